// What the user did with past ads (clicks, latencies, landing pages, request counts), gathered
// between requests and reported once as parameters of the next request.
#pragma once

#include "ads/stats/PXBStatisticsCore.h"
#include "ads/stats/PXBTimingManager.h"

#include <QStringList>
#include <QUrl>

#include <memory>

// Request parameter keys supplied by the statistics.
inline const QString kPXBParameterSessionID = QStringLiteral("session_id");
inline const QString kPXBParameterPriorRequestLatency = QStringLiteral("prl");
inline const QString kPXBParameterPriorClickLatency = QStringLiteral("pcl");
inline const QString kPXBParameterPriorClickString = QStringLiteral("pai");
inline const QString kPXBParameterPriorPreClickLatency = QStringLiteral("ppcl");
inline const QString kPXBParameterPriorClickRedirectLatency = QStringLiteral("pcrl");
inline const QString kPXBParameterPriorLandingPageLoad = QStringLiteral("plpl");
inline const QString kPXBParameterPriorLandingPageDuration = QStringLiteral("plpd");
inline const QString kPXBParameterTimeSinceFirstRequest = QStringLiteral("ptime");
inline const QString kPXBParameterPriorClickBreakOut = QStringLiteral("pcbo");
inline const QString kPXBParameterPriorClickBackgroundedApp = QStringLiteral("pclb");
inline const QString kPXBParameterPriorLandingPageNavCount = QStringLiteral("plpnc");
inline const QString kPXBParameterPriorLandingPageSSLNavCount = QStringLiteral("plpsnc");
inline const QString kPXBParameterPriorImpressionTicketString = QStringLiteral("pit");
inline const QString kPXBParameterPriorClickCount = QStringLiteral("pcc");
inline const QString kPXBParameterTotalAdRequests = QStringLiteral("preqs");
inline const QString kPXBParameterAppOpenInterstitialTimedOut = QStringLiteral("aoi_timedout");
inline const QString kPXBParameterAppOpenInterstitialNoFill = QStringLiteral("aoi_nofill");

class PXBStatistics {
  public:
    // The process-wide statistics, created on first use.
    static PXBStatistics& sharedStatistics();
    // Destroys the shared statistics; the next sharedStatistics() starts a new session.
    static void releaseSharedStatistics();
    // The eight timings, in the order their parameters are gathered.
    static QStringList allTimingNames();

    // Host name suffix of the older ad network, whose click-tracking URLs carry an impression
    // ticket in their path. Configuration; the default is "torvin.com".
    static QString olderNetworkDomainSuffix();
    static void setOlderNetworkDomainSuffix(const QString& suffix);

    // Loads the persisted counters and timings and draws a new session identifier. `defaults`
    // (standard user defaults when null) must outlive the object.
    explicit PXBStatistics(platform::UserDefaults* defaults = nullptr);
    PXBStatistics(const PXBStatistics&) = delete;
    PXBStatistics& operator=(const PXBStatistics&) = delete;

    void incrementClickCount();
    void resetClickCount();
    void incrementPageNavigationCount();
    void resetPageNavigationCount();
    void incrementSSLPageNavigationCount();
    void resetSSLPageNavigationCount();
    void incrementAdRequestCount();
    qint64 adRequestCount() const;
    void setAdRequestCount(qint64 count);
    void setBreakOutToSafari();
    void resetBreakOutToSafari();
    void setClickBackgroundedApp();
    void resetClickBackgroundedApp();
    void setAppOpenInterstitialTimeOut();
    void resetAppOpenInterstitialTimeOut();
    void setAppOpenInterstitialNoFill();
    void resetAppOpenInterstitialNoFill();
    void setFlagWithParameterName(const QString& name);
    void resetFlagWithParameterName(const QString& name);

    // Starting replaces any timing of that name with a fresh running one.
    void startTimingNamed(const QString& name);
    void endTimingNamed(const QString& name);
    void removeTimingNamed(const QString& name);
    std::shared_ptr<PXBTiming> timingNamed(const QString& name) const;
    // True while a click's latency is being measured.
    bool isTimingClick() const;

    quint32 sessionId() const { return sessionId_; }

    // Notes the impression ticket of an older-network click-tracking URL for the next request.
    void addClickTrackingURL(const QUrl& url);
    // Counts a click and starts its timings; returns the URL to open, with the signals module's
    // click signal appended when it provides one. In-ad messages and "about:blank" are no clicks.
    QUrl urlForClick(const QUrl& url);
    // The statistics parameters of one request. Consumes the one-shot values: counters and flags
    // other than the request count, and every timing but the time since the first request.
    QVariantMap parameters();
    void synchronize();

  private:
    quint32 sessionId_ = 0;
    std::unique_ptr<PXBStatisticsCore> statistics_;
    std::unique_ptr<PXBTimingManager> timingMgr_;
};
