#include "ads/core/PXBRequestPrivate.h"

#include "ads/core/PXBConfiguration.h"
#include "ads/core/PXBParameterKeys.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/device/PXBNetworkChecker.h"
#include "ads/signals/PXBSignals.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/log.h"

namespace {
// The private constructor is reachable only from inside the class; make_shared is not.
struct Constructible : PXBRequestPrivate {};
}  // namespace

std::shared_ptr<PXBRequestPrivate> PXBRequestPrivate::create() {
    return std::make_shared<Constructible>();
}

std::shared_ptr<PXBRequestPrivate> PXBRequestPrivate::createWithRequest(const PXBRequest* request) {
    auto copy = create();
    if (request == nullptr) {
        return copy;
    }
    const auto* other = dynamic_cast<const PXBRequestPrivate*>(request);
    // The accessors' order; the counter is not copied.
    copy->setTestDevices(request->testDevices());
    copy->setTesting(request->isTesting());
    copy->setAdditionalParameters(request->additionalParameters());
    copy->setGender(request->gender());
    copy->setBirthday(request->birthday());
    if (other != nullptr) {
        copy->setLocation(other->location());
    }
    copy->setKeywords(request->keywords());
    if (other != nullptr) {
        copy->setInterstitialAd(other->isInterstitialAd());
    }
    return copy;
}

void PXBRequestPrivate::setBirthdayWithMonth(int month, int day, int year) {
    // Lenient like a calendar given loose components: overflow carries into the next unit.
    const QDate date = QDate(year, 1, 1).addMonths(month - 1).addDays(day - 1);
    setBirthday(QDateTime(date, QTime(0, 0)));
}

void PXBRequestPrivate::addKeyword(const QString& keyword) {
    if (keyword.isEmpty()) {
        return;
    }
    if (!keywords_) {
        setKeywords(std::make_shared<QStringList>(QStringList{keyword}));
        return;
    }
    keywords_->append(keyword);
}

void PXBRequestPrivate::setLocationWithLatitude(double latitude, double longitude,
                                                double accuracy) {
    setLocation(PXBLocation::initWithLatitude(
        static_cast<float>(latitude), static_cast<float>(longitude), static_cast<float>(accuracy)));
}

void PXBRequestPrivate::setLocationWithDescription(const QString& description) {
    setLocation(PXBLocation::initWithDescription(description));
}

QString PXBRequestPrivate::birthdayString() const {
    if (birthday_.isNull()) {
        return {};
    }
    return birthday_.toLocalTime().toString(QStringLiteral("yyyyMMdd"));
}

QString PXBRequestPrivate::genderString() const {
    switch (gender_) {
        case 1:
            return QStringLiteral("m");
        case 2:
            return QStringLiteral("f");
        default:
            return {};
    }
}

bool PXBRequestPrivate::deviceAtLeastMinimumOSMajorVersion(int major, int minor) {
    int osMajor = 0;
    int osMinor = 0;
    PXBIdentifierUtilities::getOSMajor(&osMajor, &osMinor, nullptr);
    return osMajor > major || (osMajor == major && osMinor >= minor);
}

int PXBRequestPrivate::requestTypeFromString(const QString& type) {
    if (type == QLatin1String("torvin")) {
        return 4;
    }
    if (type == QLatin1String("qel")) {
        return 5;
    }
    if (type == QLatin1String("merrow")) {
        return 1;
    }
    return 0;
}

QVariantMap PXBRequestPrivate::parameters() const {
    QVariantMap parameters = PXBIdentifierUtilities::sharedInstance()->parameters();
    parameters.insert(kPXBParameterSDKVersion, sdkVersion());
    if (const QString net = PXBNetworkChecker::sharedChecker()->networkTypeString();
        !net.isNull()) {
        parameters.insert(kPXBParameterNetworkType, net);
    }
    if (isTesting()) {
        platform::logLine(QStringLiteral(
            "<Sorvel> \"testing\" property has been deprecated.  Use \"testDevices\" instead."));
        parameters.insert(kPXBParameterTesting, QStringLiteral("1"));
    }
    if (!testDevices_.isEmpty()) {
        const auto& deviceIdentifier = PXBIdentifierUtilities::environment().uniqueIdentifier;
        const QString device = deviceIdentifier ? deviceIdentifier() : QString();
        if (!device.isNull() && testDevices_.contains(device)) {
            parameters.insert(kPXBParameterTestMode, QStringLiteral("on"));
        }
    }
    if (PXBConfiguration::isTestMode()) {
        parameters.insert(kPXBParameterTestMode, QStringLiteral("on"));
    }
    if (!additionalParameters_.isEmpty()) {
        parameters.insert(kPXBParameterExtraParams, additionalParameters_);
    }
    if (const QString gender = genderString(); !gender.isNull()) {
        parameters.insert(kPXBParameterGender, gender);
    }
    if (const QString birthday = birthdayString(); !birthday.isNull()) {
        parameters.insert(kPXBParameterBirthday, birthday);
    }
    if (keywords_) {
        parameters.insert(kPXBParameterKeywords, QVariant(*keywords_).toList());
    }
    if (location_) {
        if (const QString uule = location_->oolongRepresentation(); !uule.isNull()) {
            parameters.insert(kPXBParameterLocation, uule);
        }
    }
    parameters.insert(PXBStatistics::sharedStatistics().parameters());
    parameters.insert(kPXBParameterTotalAdRequests, counter_);
    return parameters;
}

QString PXBRequestPrivate::description() const {
    QString gender;
    if (gender_ == 1) {
        gender = QStringLiteral("\ngender:Male");
    } else if (gender_ == 2) {
        gender = QStringLiteral("\ngender:Female");
    }
    const QString birthday = birthday_.isNull()
                                 ? QString()
                                 : QStringLiteral("\nbirthday:") + platform::describe(birthday_);
    const QString location =
        location_ ? QStringLiteral("\nlocation:") + location_->description() : QString();
    const QString keywords = keywords_ ? QStringLiteral("\nkeywords:") +
                                             platform::describe(QVariant(*keywords_).toList())
                                       : QString();
    const QString extras =
        additionalParameters_.isEmpty()
            ? QString()
            : QStringLiteral("\nadditionalParameters:") + platform::describe(additionalParameters_);
    return QStringLiteral("PXBRequest<0x%1>: %2%3%4%5%6")
        .arg(quintptr(this), 0, 16)
        .arg(gender, birthday, location, keywords, extras);
}

QVariantMap PXBRequestPrivate::spamSignals() {
    QString signalString;
    if (!PXBSignals::fillRequestSignals(signalString)) {
        return {};
    }
    const QStringList pieces = signalString.split(QLatin1Char('='));
    if (pieces.size() < 2 || pieces[1].isEmpty()) {
        return {};
    }
    return {{pieces[0], pieces[1]}};
}
