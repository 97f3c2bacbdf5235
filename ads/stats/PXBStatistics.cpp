#include "ads/stats/PXBStatistics.h"

#include "ads/bridge/PXBNotification.h"
#include "ads/net/PXBNetworkUtilities.h"
#include "ads/signals/PXBSignals.h"
#include "platform/clock.h"

#include <cmath>
#include <utility>

namespace {

// Values kept in the click latency timing between the click and the next request.
const QString kClickDateKey = QStringLiteral("date");
const QString kClickStringQueryKey = QStringLiteral("ai");

// Never destroyed at exit: it lives for the process, and the centres and stores it would talk to
// on the way out may already be gone.
PXBStatistics*& sharedSlot() {
    static PXBStatistics* shared = nullptr;
    return shared;
}

QString& domainSuffix() {
    static QString suffix = QStringLiteral("torvin.com");
    return suffix;
}

}  // namespace

PXBStatistics& PXBStatistics::sharedStatistics() {
    PXBStatistics*& shared = sharedSlot();
    if (shared == nullptr) {
        shared = new PXBStatistics;
    }
    return *shared;
}

void PXBStatistics::releaseSharedStatistics() {
    delete std::exchange(sharedSlot(), nullptr);
}

QStringList PXBStatistics::allTimingNames() {
    return {kPXBParameterPriorRequestLatency,       kPXBParameterPriorClickLatency,
            kPXBParameterPriorClickString,          kPXBParameterPriorPreClickLatency,
            kPXBParameterPriorClickRedirectLatency, kPXBParameterPriorLandingPageLoad,
            kPXBParameterPriorLandingPageDuration,  kPXBParameterTimeSinceFirstRequest};
}

QString PXBStatistics::olderNetworkDomainSuffix() {
    return domainSuffix();
}

void PXBStatistics::setOlderNetworkDomainSuffix(const QString& suffix) {
    domainSuffix() = suffix;
}

PXBStatistics::PXBStatistics(platform::UserDefaults* defaults)
    : statistics_(std::make_unique<PXBStatisticsCore>(QStringLiteral("shared"), defaults)),
      timingMgr_(std::make_unique<PXBTimingManager>(QStringLiteral("shared"), defaults)) {
    // Seeded from the wall clock so that each launch draws a different session; the value is
    // then spread from random()'s 31 bits over the whole unsigned 32-bit range.
    platform::srandom(static_cast<unsigned int>(static_cast<qint64>(platform::absoluteTimeNow())));
    const auto drawn = static_cast<qint32>(platform::random() - 1);
    const double spread = static_cast<double>(drawn) / 2147483647.0 * 4294967295.0;
    sessionId_ = spread > 0 ? static_cast<quint32>(spread) : 0;
}

void PXBStatistics::incrementClickCount() {
    statistics_->addValue(1, kPXBParameterPriorClickCount);
}

void PXBStatistics::resetClickCount() {
    statistics_->setNumber(0, kPXBParameterPriorClickCount);
}

void PXBStatistics::incrementPageNavigationCount() {
    statistics_->addValue(1, kPXBParameterPriorLandingPageNavCount);
}

void PXBStatistics::resetPageNavigationCount() {
    statistics_->setNumber(0, kPXBParameterPriorLandingPageNavCount);
}

void PXBStatistics::incrementSSLPageNavigationCount() {
    statistics_->addValue(1, kPXBParameterPriorLandingPageSSLNavCount);
}

void PXBStatistics::resetSSLPageNavigationCount() {
    statistics_->setNumber(0, kPXBParameterPriorLandingPageSSLNavCount);
}

void PXBStatistics::incrementAdRequestCount() {
    statistics_->addValue(1, kPXBParameterTotalAdRequests);
}

qint64 PXBStatistics::adRequestCount() const {
    return PXBStatisticsCore::integerValue(statistics_->numberForKey(kPXBParameterTotalAdRequests));
}

void PXBStatistics::setAdRequestCount(qint64 count) {
    statistics_->setNumber(count, kPXBParameterTotalAdRequests);
}

void PXBStatistics::setBreakOutToSafari() {
    setFlagWithParameterName(kPXBParameterPriorClickBreakOut);
}

void PXBStatistics::resetBreakOutToSafari() {
    resetFlagWithParameterName(kPXBParameterPriorClickBreakOut);
}

void PXBStatistics::setClickBackgroundedApp() {
    setFlagWithParameterName(kPXBParameterPriorClickBackgroundedApp);
}

void PXBStatistics::resetClickBackgroundedApp() {
    resetFlagWithParameterName(kPXBParameterPriorClickBackgroundedApp);
}

void PXBStatistics::setAppOpenInterstitialTimeOut() {
    setFlagWithParameterName(kPXBParameterAppOpenInterstitialTimedOut);
}

void PXBStatistics::resetAppOpenInterstitialTimeOut() {
    resetFlagWithParameterName(kPXBParameterAppOpenInterstitialTimedOut);
}

void PXBStatistics::setAppOpenInterstitialNoFill() {
    setFlagWithParameterName(kPXBParameterAppOpenInterstitialNoFill);
}

void PXBStatistics::resetAppOpenInterstitialNoFill() {
    resetFlagWithParameterName(kPXBParameterAppOpenInterstitialNoFill);
}

void PXBStatistics::setFlagWithParameterName(const QString& name) {
    statistics_->setNumber(1, name);
}

void PXBStatistics::resetFlagWithParameterName(const QString& name) {
    statistics_->removeObjectForKey(name);
}

void PXBStatistics::startTimingNamed(const QString& name) {
    timingMgr_->removeTimingForCategory(name);
    if (auto timing = timingMgr_->addTimingWithCategory(name)) {
        timing->start();
    }
}

void PXBStatistics::endTimingNamed(const QString& name) {
    if (auto timing = timingMgr_->timingForCategory(name)) {
        timing->end();
    }
}

void PXBStatistics::removeTimingNamed(const QString& name) {
    timingMgr_->removeTimingForCategory(name);
}

std::shared_ptr<PXBTiming> PXBStatistics::timingNamed(const QString& name) const {
    return timingMgr_->timingForCategory(name);
}

bool PXBStatistics::isTimingClick() const {
    const auto timing = timingNamed(kPXBParameterPriorClickLatency);
    return timing && timing->isActive();
}

void PXBStatistics::addClickTrackingURL(const QUrl& url) {
    const QString suffix = olderNetworkDomainSuffix();
    const QString path = url.path();
    if (suffix.isEmpty() || !url.host().endsWith(suffix) || path.size() < 5) {
        return;
    }
    if (auto click = timingNamed(kPXBParameterPriorClickLatency)) {
        click->setValue(path.mid(4), kPXBParameterPriorImpressionTicketString);
    }
}

QUrl PXBStatistics::urlForClick(const QUrl& url) {
    if (PXBNotification::isNotificationURL(url) ||
        url.toString(QUrl::FullyEncoded) == QLatin1String("about:blank")) {
        return url;
    }
    incrementClickCount();
    startTimingNamed(kPXBParameterPriorClickLatency);
    startTimingNamed(kPXBParameterPriorClickRedirectLatency);
    endTimingNamed(kPXBParameterPriorPreClickLatency);
    const auto click = timingNamed(kPXBParameterPriorClickLatency);
    click->setValue(QDateTime::currentDateTimeUtc(), kClickDateKey);

    QUrl result = url;
    const QString clickString =
        PXBNetworkUtilities::parameterValueForKey(kClickStringQueryKey, url);
    if (!clickString.isEmpty()) {
        click->setValue(clickString, kPXBParameterPriorClickString);
        QString signal;
        if (PXBSignals::fillClickSignal(clickString, signal)) {
            result = PXBNetworkUtilities::appendQueryKey(signal, QVariant(), url);
        }
    }
    // The redirect latency is, on purpose, the time this method took.
    endTimingNamed(kPXBParameterPriorClickRedirectLatency);
    return result;
}

QVariantMap PXBStatistics::parameters() {
    QVariantMap result;
    result.insert(kPXBParameterSessionID, sessionId_);

    auto click = timingNamed(kPXBParameterPriorClickLatency);
    if (!click) {
        // A time from showing to clicking is meaningless without the click.
        removeTimingNamed(kPXBParameterPriorPreClickLatency);
    }

    // A click that sent the application to the background is measured on the wall clock since
    // the click: the monotonic counter stands still while the machine sleeps.
    quint32 backgroundedLatency = 0;
    if (statistics_->numberForKey(kPXBParameterPriorClickBackgroundedApp).isValid()) {
        const QDateTime date = click ? click->valueForKey(kClickDateKey).toDateTime() : QDateTime();
        if (date.isValid()) {
            const double milliseconds =
                std::fabs(static_cast<double>(date.msecsTo(QDateTime::currentDateTimeUtc())));
            backgroundedLatency =
                milliseconds >= 4294967295.0 ? 4294967295u : static_cast<quint32>(milliseconds);
        }
    }
    if (click) {
        click->removeValueForKey(kClickDateKey);
    }

    for (const QString& name : allTimingNames()) {
        const auto timing = timingNamed(name);
        if (!timing) {
            continue;
        }
        result.insert(name, timing->elapsedMillisecondsString());
        const QVariantMap values = timing->keysAndValues();
        for (auto it = values.cbegin(); it != values.cend(); ++it) {
            result.insert(it.key(), it.value());
        }
        if (name != kPXBParameterTimeSinceFirstRequest) {
            removeTimingNamed(name);
        }
    }

    if (backgroundedLatency != 0) {
        result.insert(kPXBParameterPriorClickLatency, backgroundedLatency);
    }

    for (const QString& key :
         {kPXBParameterTotalAdRequests, kPXBParameterPriorClickBreakOut,
          kPXBParameterAppOpenInterstitialTimedOut, kPXBParameterAppOpenInterstitialNoFill,
          kPXBParameterPriorClickBackgroundedApp, kPXBParameterPriorLandingPageNavCount,
          kPXBParameterPriorLandingPageSSLNavCount, kPXBParameterPriorClickCount}) {
        const QVariant stored = statistics_->numberForKey(key);
        if (PXBStatisticsCore::integerValue(stored) != 0) {
            result.insert(key, stored);
        }
    }

    resetBreakOutToSafari();
    resetAppOpenInterstitialTimeOut();
    resetAppOpenInterstitialNoFill();
    resetClickBackgroundedApp();
    resetPageNavigationCount();
    resetSSLPageNavigationCount();
    resetClickCount();
    return result;
}

void PXBStatistics::synchronize() {
    statistics_->synchronize();
    timingMgr_->synchronize();
}
