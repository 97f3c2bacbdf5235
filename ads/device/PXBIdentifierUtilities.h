// The one place where the ad client reads facts about the device, the operating system and the
// hosting application: the device part of every ad request's parameters, and the client's single
// operating-system version test.
//
// Where this desktop port takes each fact from (the Environment's default sources):
// - unique identifier: the machine's stable id (QSysInfo::machineUniqueId, /etc/machine-id). It
//   never leaves the machine as it is: "isu" is an HMAC-SHA256 keyed with it over the
//   application's identifier, its first 16 bytes in 32 upper-case hexadecimal digits, so another
//   application cannot work it out or match it with its own; no id, no "isu".
// - model: the kind of device from the firmware's chassis type ("Laptop", "Tablet", otherwise
//   "Desktop"); a desktop never reports "iPad", so "ios_ipadc" stays absent.
// - idiom: always the phone's, since the phone app runs in its phone window.
// - system version: the running kernel's version, the first three numbers of uname's release
//   ("6.1.0" of "6.1.0-18-amd64"), each read from its leading digits, a missing one 0. The
//   kernel is what the application runs on; a distribution's release number ("12") says
//   nothing about what the system can do.
// - submodel: the machine field of uname (such as "x86_64").
// - locale: the first of "AppleLanguages" in the standard user defaults, which is seeded (as a
//   registered, never saved, default) from the desktop's preferred UI languages.
// - audio route: the default audio output: built-in speakers "Speaker", headphones or a headset
//   "Headphone" or "Headset", no readable output code 1, any other output its own name (code 5).
// - screen: the phone window: its application frame in points, the status bar's height counted
//   back in while it shows, the scale from the device pixel ratio, landscape from the status
//   bar's orientation.
// - URL schemes: the application's canOpenURL.
// - bundle: the version is the application's version, the identifier the organisation's domain
//   reversed and the application's name ("com.example.Sounds"), or the name alone.
// - store metadata: "iTunesMetadata.plist" beside the documents directory (in its parent), read
//   with libplist in XML or binary form.
// - jailbreak: whether "/Applications/Cydia.app" exists (never, on a desktop in practice).
#pragma once

#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QUrl>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <optional>

inline const QString kPXBParameterIPadCompatibilityMode = QStringLiteral("ios_ipadc");
inline const QString kPXBParameterITunesMetadata = QStringLiteral("ios_metadata");
inline const QString kPXBParameterApplicationName = QStringLiteral("app_name");
inline const QString kPXBParameterJailbroken = QStringLiteral("ios_jb");
inline const QString kPXBParameterDeviceID = QStringLiteral("isu");
inline const QString kPXBParameterDeviceModel = QStringLiteral("platform");
inline const QString kPXBParameterDeviceSubmodel = QStringLiteral("submodel");
inline const QString kPXBParameterLocale = QStringLiteral("hl");
inline const QString kPXBParameterAudioOutput = QStringLiteral("u_audio");
inline const QString kPXBParameterScreenOrientation = QStringLiteral("u_so");
inline const QString kPXBParameterScreenDensity = QStringLiteral("u_sd");
inline const QString kPXBParameterScreenWidth = QStringLiteral("u_w");
inline const QString kPXBParameterScreenHeight = QStringLiteral("u_h");
inline const QString kPXBParameterCapabilitiesBookstore = QStringLiteral("cap_bs");

class PXBIdentifierUtilities {
  public:
    // The platform facts read here, one function each, so that tests (and a port to another
    // desktop) can replace any of them. See the top of this file for the default sources.
    struct Environment {
        std::function<bool()> isPhoneIdiom;
        std::function<QString()> uniqueIdentifier;  // null when the machine has none
        std::function<QString()> model;
        std::function<QString()> systemVersion;
        std::function<QString()> machine;
        std::function<QVariantList()> preferredLanguages;
        // The current route's name; nullopt when no route can be read.
        std::function<std::optional<QString>()> audioRoute;
        std::function<double()> screenScale;
        std::function<QRectF()> applicationFrame;
        std::function<QRectF()> statusBarFrame;
        std::function<bool()> isStatusBarHidden;
        std::function<int()> statusBarOrientation;
        std::function<bool(const QUrl&)> canOpenURL;
        std::function<QString()> bundleVersion;  // null when the application has none
        std::function<QString()> bundleIdentifier;
        std::function<QString()> documentsDirectory;  // empty when there is none
        std::function<bool(const QString&)> fileExists;
    };
    static Environment defaultEnvironment();
    // Replaces the facts for every instance made afterwards and for the class methods; values
    // already cached by an instance stay.
    static void setEnvironment(Environment environment);
    static const Environment& environment();

    // "major.minor.patch" of a kernel release (see the system version above).
    static QString systemVersionFromKernelRelease(const QString& release);

    // The route name an audio output is reported as, from its description and system id.
    static QString audioRouteNameForOutput(const QString& description, const QString& id);

    // The process-wide instance, made on first use and kept for the process.
    static PXBIdentifierUtilities* sharedInstance();

    // Splits the system version at "." into its first three numbers (missing ones are 0); each
    // pointer may be null.
    static void getOSMajor(int* major, int* minor, int* bugFix);
    static bool isOSAtLeastMajor(int major, int minor, int bug);
    // The class's own jailbreak test; the instance's isJailbroken() is this, taken at creation.
    static bool detectJailbroken();
    // The dictionary in a property-list file, or an empty one when the file cannot be read or
    // holds anything else.
    static QVariantMap readITunesMetadataFileAt(const QString& path);

    PXBIdentifierUtilities();

    bool isPhoneIdiom() const { return isPhoneIdiom_; }
    bool isJailbroken() const { return isJailbroken_; }

    // Read afresh on every call.
    QString osVersion() const;
    QString deviceModel() const;
    int audioRoute() const;
    float screenDensity() const;
    // Points, with the status bar's strip counted back in while it shows.
    QSizeF screenSize() const;
    bool isOrientationLandscape() const;

    // Computed on first use and kept.
    QString deviceSubmodel();
    QString deviceIdentifier();
    QString locale();
    QVariantMap iTunesMetadata();

    // One entry per string in `urls`: whether the application can open it.
    QVariantMap canOpenURLs(const QVariantList& urls) const;

    // The device part of an ad request's parameters (a fresh dictionary on every call).
    QVariantMap parameters();

  private:
    bool isPhoneIdiom_ = true;
    std::optional<QVariantMap> iTunesMetadata_;
    bool isJailbroken_ = false;
    std::optional<QString> deviceIdentifier_;
    std::optional<QString> deviceSubmodel_;
    std::optional<QString> locale_;
};
