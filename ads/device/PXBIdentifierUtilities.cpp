#include "ads/device/PXBIdentifierUtilities.h"

#include "ads/core/PXBConfiguration.h"
#include "ads/net/PXBNumberUtilities.h"
#include "platform/files.h"
#include "platform/propertylist.h"
#include "platform/ui/application.h"
#include "platform/ui/audiooutput.h"
#include "platform/ui/screen.h"
#include "platform/userdefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QLocale>
#include <QMessageAuthenticationCode>
#include <QStringList>
#include <QSysInfo>

#include <sys/utsname.h>

#include <algorithm>
#include <climits>

namespace {

const QString kLanguagesKey = QStringLiteral("AppleLanguages");

// The integer at the start of `text` (after white space, with an optional sign), 0 if none.
int leadingInt(const QString& text) {
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace()) {
        ++i;
    }
    qsizetype end = i;
    if (end < text.size() && (text.at(end) == u'-' || text.at(end) == u'+')) {
        ++end;
    }
    while (end < text.size() && text.at(end) >= u'0' && text.at(end) <= u'9') {
        ++end;
    }
    bool ok = false;
    const long long value = text.mid(i, end - i).toLongLong(&ok);
    if (!ok) {
        return 0;
    }
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

QString machineModel() {
    // SMBIOS chassis types: portables, laptops, notebooks, sub-notebooks, convertibles and
    // detachables count as laptops; tablets as tablets; everything else as a desktop.
    QFile file(QStringLiteral("/sys/class/dmi/id/chassis_type"));
    if (file.open(QIODevice::ReadOnly)) {
        switch (file.readAll().trimmed().toInt()) {
            case 8:
            case 9:
            case 10:
            case 14:
            case 31:
            case 32:
                return QStringLiteral("Laptop");
            case 30:
                return QStringLiteral("Tablet");
            default:
                break;
        }
    }
    return QStringLiteral("Desktop");
}

QString unameMachine() {
    struct utsname names {};
    if (uname(&names) != 0) {
        return QString();
    }
    return QString::fromLatin1(names.machine);
}

QString systemVersion() {
    struct utsname names {};
    const QString release = uname(&names) == 0 ? QString::fromLatin1(names.release) : QString();
    return PXBIdentifierUtilities::systemVersionFromKernelRelease(release);
}

QVariantList preferredLanguages() {
    platform::UserDefaults& defaults = platform::UserDefaults::standardUserDefaults();
    if (!defaults.objectForKey(kLanguagesKey).isValid()) {
        QVariantList languages;
        for (const QString& language : QLocale::system().uiLanguages()) {
            // The C locale speaks English.
            languages << (language == u"C" || language == u"POSIX" ? QStringLiteral("en")
                                                                   : language);
        }
        defaults.registerDefaults({{kLanguagesKey, languages}});
    }
    return defaults.arrayForKey(kLanguagesKey);
}

QString bundleIdentifier() {
    const QString name = QCoreApplication::applicationName();
    QStringList parts = QCoreApplication::organizationDomain().split(u'.', Qt::SkipEmptyParts);
    if (parts.isEmpty()) {
        return name;
    }
    std::reverse(parts.begin(), parts.end());
    return parts.join(u'.') + u'.' + name;
}

std::optional<QString> defaultAudioRoute() {
    const std::optional<platform::AudioOutput> output = platform::defaultAudioOutput();
    if (!output) {
        return std::nullopt;
    }
    return PXBIdentifierUtilities::audioRouteNameForOutput(output->description, output->id);
}

// The application object, which exists only in a graphical application; without one the phone
// window's facts are those of a fresh window in portrait with its status bar.
platform::Application* guiApplication() {
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr) {
        return nullptr;
    }
    return platform::Application::sharedApplication();
}

PXBIdentifierUtilities::Environment& currentEnvironment() {
    static PXBIdentifierUtilities::Environment environment =
        PXBIdentifierUtilities::defaultEnvironment();
    return environment;
}

}  // namespace

PXBIdentifierUtilities::Environment PXBIdentifierUtilities::defaultEnvironment() {
    Environment e;
    e.isPhoneIdiom = [] { return true; };
    e.uniqueIdentifier = [] {
        const QByteArray id = QSysInfo::machineUniqueId();
        return id.isEmpty() ? QString() : QString::fromLatin1(id);
    };
    e.model = &machineModel;
    e.systemVersion = &systemVersion;
    e.machine = &unameMachine;
    e.preferredLanguages = &preferredLanguages;
    e.audioRoute = &defaultAudioRoute;
    e.screenScale = [] { return guiApplication() != nullptr ? platform::Screen::scale() : 1.0; };
    e.applicationFrame = []() -> QRectF {
        if (guiApplication() == nullptr) {
            return QRectF(0, platform::kStatusBarHeight, platform::kPhoneScreenWidth,
                          platform::kPhoneScreenHeight - platform::kStatusBarHeight);
        }
        return platform::Screen::applicationFrame();
    };
    e.statusBarFrame = []() -> QRectF {
        platform::Application* app = guiApplication();
        return app != nullptr
                   ? QRectF(app->statusBarFrame())
                   : QRectF(0, 0, platform::kPhoneScreenWidth, platform::kStatusBarHeight);
    };
    e.isStatusBarHidden = [] {
        platform::Application* app = guiApplication();
        return app != nullptr && app->isStatusBarHidden();
    };
    e.statusBarOrientation = [] {
        platform::Application* app = guiApplication();
        return app != nullptr ? app->statusBarOrientation()
                              : int(platform::InterfaceOrientationPortrait);
    };
    e.canOpenURL = [](const QUrl& url) {
        platform::Application* app = guiApplication();
        return app != nullptr && app->canOpenURL(url);
    };
    e.bundleVersion = [] {
        const QString version = QCoreApplication::applicationVersion();
        return version.isEmpty() ? QString() : version;
    };
    e.bundleIdentifier = &bundleIdentifier;
    e.documentsDirectory = &platform::documentsDirectory;
    e.fileExists = &platform::fileExists;
    return e;
}

void PXBIdentifierUtilities::setEnvironment(Environment environment) {
    currentEnvironment() = std::move(environment);
}

const PXBIdentifierUtilities::Environment& PXBIdentifierUtilities::environment() {
    return currentEnvironment();
}

QString PXBIdentifierUtilities::systemVersionFromKernelRelease(const QString& release) {
    const QStringList parts = release.split(u'.');
    QStringList numbers;
    for (int i = 0; i < 3; ++i) {
        const QString part = parts.value(i);
        qsizetype digits = 0;
        while (digits < part.size() && part.at(digits) >= u'0' && part.at(digits) <= u'9') {
            ++digits;
        }
        // At most nine digits: no number beyond what getOSMajor reads back.
        numbers << QString::number(part.left(std::min<qsizetype>(digits, 9)).toInt());
    }
    return numbers.join(u'.');
}

QString PXBIdentifierUtilities::audioRouteNameForOutput(const QString& description,
                                                        const QString& id) {
    const QString both = (description + u' ' + id).toLower();
    if (both.contains(u"headset") || both.contains(u"head_unit") || both.contains(u"handsfree")) {
        return QStringLiteral("Headset");
    }
    // Bluetooth outputs are headphones unless they say otherwise.
    if (both.contains(u"headphone") || both.contains(u"a2dp") || both.contains(u"bluez")) {
        return QStringLiteral("Headphone");
    }
    if (both.contains(u"speaker") || both.contains(u"built-in") ||
        id.startsWith(u"alsa_output.pci")) {
        return QStringLiteral("Speaker");
    }
    return description;
}

PXBIdentifierUtilities* PXBIdentifierUtilities::sharedInstance() {
    static PXBIdentifierUtilities* shared = new PXBIdentifierUtilities();
    return shared;
}

void PXBIdentifierUtilities::getOSMajor(int* major, int* minor, int* bugFix) {
    const QStringList parts = sharedInstance()->osVersion().split(u'.');
    int* out[] = {major, minor, bugFix};
    for (int i = 0; i < 3; ++i) {
        if (out[i] != nullptr) {
            *out[i] = i < parts.size() ? leadingInt(parts[i]) : 0;
        }
    }
}

bool PXBIdentifierUtilities::isOSAtLeastMajor(int major, int minor, int bug) {
    int osMajor = 0;
    int osMinor = 0;
    int osBugFix = 0;
    getOSMajor(&osMajor, &osMinor, &osBugFix);
    if (osMajor != major) {
        return osMajor > major;
    }
    if (osMinor != minor) {
        return osMinor > minor;
    }
    return osBugFix >= bug;
}

bool PXBIdentifierUtilities::detectJailbroken() {
    return environment().fileExists(QStringLiteral("/Applications/Cydia.app"));
}

QVariantMap PXBIdentifierUtilities::readITunesMetadataFileAt(const QString& path) {
    const std::optional<QByteArray> bytes = platform::readFile(path);
    if (!bytes) {
        return {};
    }
    const QVariant value = platform::readPropertyList(*bytes);
    if (value.metaType().id() != QMetaType::QVariantMap) {
        return {};
    }
    return value.toMap();
}

PXBIdentifierUtilities::PXBIdentifierUtilities()
    : isPhoneIdiom_(environment().isPhoneIdiom()), isJailbroken_(detectJailbroken()) {}

QString PXBIdentifierUtilities::osVersion() const {
    return environment().systemVersion();
}

QString PXBIdentifierUtilities::deviceModel() const {
    return environment().model();
}

int PXBIdentifierUtilities::audioRoute() const {
    const std::optional<QString> route = environment().audioRoute();
    if (!route || route->isNull()) {
        return 1;
    }
    if (route->isEmpty()) {
        return 3;
    }
    if (*route == u"Headphone" || *route == u"Headset") {
        return 2;
    }
    if (*route == u"Speaker") {
        return 1;
    }
    return 5;
}

float PXBIdentifierUtilities::screenDensity() const {
    return static_cast<float>(environment().screenScale());
}

QSizeF PXBIdentifierUtilities::screenSize() const {
    const Environment& e = environment();
    QSizeF size = e.applicationFrame().size();
    if (!e.isStatusBarHidden()) {
        size.rheight() += e.statusBarFrame().height();
    }
    return size;
}

bool PXBIdentifierUtilities::isOrientationLandscape() const {
    const int orientation = environment().statusBarOrientation();
    return orientation == 3 || orientation == 4;
}

QString PXBIdentifierUtilities::deviceSubmodel() {
    if (!deviceSubmodel_) {
        deviceSubmodel_ = environment().machine();
    }
    return *deviceSubmodel_;
}

QString PXBIdentifierUtilities::deviceIdentifier() {
    if (!deviceIdentifier_) {
        // The machine's id is not to leave it, nor anything another program could work out
        // from it alone: the identifier is a hash keyed with the id over this application's
        // name, so it is stable here and unrelated to what any other application sends.
        const QString unique = environment().uniqueIdentifier();
        deviceIdentifier_ =
            unique.isNull() ? QString()
                            : QString::fromLatin1(QMessageAuthenticationCode::hash(
                                                      environment().bundleIdentifier().toUtf8(),
                                                      unique.toUtf8(), QCryptographicHash::Sha256)
                                                      .left(16)
                                                      .toHex()
                                                      .toUpper());
    }
    return *deviceIdentifier_;
}

QString PXBIdentifierUtilities::locale() {
    if (!locale_) {
        const QVariantList languages = environment().preferredLanguages();
        locale_ = languages.isEmpty() ? QString() : languages.first().toString().toLower();
    }
    return *locale_;
}

QVariantMap PXBIdentifierUtilities::iTunesMetadata() {
    if (!iTunesMetadata_) {
        iTunesMetadata_ = QVariantMap();
        const QString documents = environment().documentsDirectory();
        if (!documents.isEmpty()) {
            iTunesMetadata_ = readITunesMetadataFileAt(
                QDir::cleanPath(documents + QStringLiteral("/../iTunesMetadata.plist")));
        }
    }
    return *iTunesMetadata_;
}

QVariantMap PXBIdentifierUtilities::canOpenURLs(const QVariantList& urls) const {
    QVariantMap result;
    for (const QVariant& url : urls) {
        if (url.metaType().id() != QMetaType::QString) {
            continue;
        }
        // Asked of any scheme, the answer would list the user's applications to whoever made
        // the ad: only the schemes an ad may hand over anyway get a real answer.
        const QString text = url.toString();
        const QUrl parsed(text);
        result.insert(text,
                      PXBConfiguration::mayHandOver(parsed) && environment().canOpenURL(parsed));
    }
    return result;
}

QVariantMap PXBIdentifierUtilities::parameters() {
    QVariantMap parameters;
    // Sampled first, as the phone did, before the identifier entries.
    const int route = audioRoute();
    const bool landscape = isOrientationLandscape();

    if (deviceModel() == u"iPad" && isPhoneIdiom()) {
        parameters.insert(kPXBParameterIPadCompatibilityMode, QStringLiteral("1"));
    }
    parameters.insert(kPXBParameterITunesMetadata, iTunesMetadata());

    QString applicationName;
    const QString version = environment().bundleVersion();
    if (!version.isNull()) {
        applicationName = version + u'.';
    }
    applicationName += QStringLiteral("iphone.") + environment().bundleIdentifier();
    parameters.insert(kPXBParameterApplicationName, applicationName);

    if (isJailbroken()) {
        parameters.insert(kPXBParameterJailbroken, QStringLiteral("1"));
    }
    const auto insertIfSet = [&parameters](const QString& key, const QString& value) {
        if (!value.isNull()) {
            parameters.insert(key, value);
        }
    };
    insertIfSet(kPXBParameterDeviceID, deviceIdentifier());
    insertIfSet(kPXBParameterDeviceModel, deviceModel());
    insertIfSet(kPXBParameterDeviceSubmodel, deviceSubmodel());
    insertIfSet(kPXBParameterLocale, locale());

    parameters.insert(kPXBParameterAudioOutput, QString::number(route));
    parameters.insert(kPXBParameterScreenOrientation,
                      landscape ? QStringLiteral("l") : QStringLiteral("p"));
    parameters.insert(kPXBParameterScreenDensity,
                      PXBNumberUtilities::stringWithFloat(screenDensity()));
    const QSizeF size = screenSize();
    parameters.insert(kPXBParameterScreenWidth,
                      PXBNumberUtilities::stringWithFloat(static_cast<float>(size.width())));
    parameters.insert(kPXBParameterScreenHeight,
                      PXBNumberUtilities::stringWithFloat(static_cast<float>(size.height())));

    int bookstores = 0;
    const QVariantMap openable =
        canOpenURLs({QStringLiteral("itms-books://"), QStringLiteral("kindle://home")});
    if (openable.value(QStringLiteral("itms-books://")).toBool()) {
        bookstores |= 1;
    }
    if (openable.value(QStringLiteral("kindle://home")).toBool()) {
        bookstores |= 2;
    }
    if (bookstores != 0) {
        parameters.insert(kPXBParameterCapabilitiesBookstore, bookstores);
    }
    return parameters;
}
