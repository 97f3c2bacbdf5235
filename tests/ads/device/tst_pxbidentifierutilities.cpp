#include "ads/core/PXBConfiguration.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "platform/propertylist.h"
#include "support/testenv.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Env = PXBIdentifierUtilities::Environment;

Q_DECLARE_METATYPE(std::optional<QString>)

class TestPXBIdentifierUtilities : public QObject {
    Q_OBJECT
    Env env_;

    // Replaces the facts for the class methods and for instances made afterwards.
    void apply() { PXBIdentifierUtilities::setEnvironment(env_); }

  private slots:
    void init() {
        // Known facts everywhere a test does not set its own; nothing reads the real desktop.
        env_ = PXBIdentifierUtilities::defaultEnvironment();
        env_.uniqueIdentifier = [] { return u"abc"_s; };
        env_.model = [] { return u"Desktop"_s; };
        env_.systemVersion = [] { return u"12"_s; };
        env_.machine = [] { return u"x86_64"_s; };
        env_.preferredLanguages = [] { return QVariantList{u"pt-PT"_s, u"en"_s}; };
        env_.audioRoute = [] { return std::optional<QString>(u"Speaker"_s); };
        env_.canOpenURL = [](const QUrl&) { return false; };
        env_.bundleVersion = [] { return u"1.3"_s; };
        env_.bundleIdentifier = [] { return u"com.example.Sounds"_s; };
        env_.documentsDirectory = [] { return QString(); };
        env_.fileExists = [](const QString&) { return false; };
        apply();
    }
    void cleanupTestCase() {
        PXBIdentifierUtilities::setEnvironment(PXBIdentifierUtilities::defaultEnvironment());
    }

    void osVersion_data() {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QList<int>>("parts");
        QTest::addColumn<QList<int>>("asked");
        QTest::addColumn<bool>("atLeast");
        using L = QList<int>;
        QTest::newRow("major only") << u"5"_s << L{5, 0, 0} << L{5, 0, 1} << false;
        QTest::newRow("minor decides") << u"10.15.7"_s << L{10, 15, 7} << L{10, 16, 0} << false;
        QTest::newRow("minor wins over bug")
            << u"10.15.0"_s << L{10, 15, 0} << L{10, 14, 9} << true;
        QTest::newRow("leading digits, smaller major")
            << u"4a.b"_s << L{4, 0, 0} << L{5, 0, 0} << false;
        QTest::newRow("empty") << u""_s << L{0, 0, 0} << L{0, 0, 0} << true;
    }
    void osVersion() {
        QFETCH(QString, version);
        QFETCH(QList<int>, parts);
        QFETCH(QList<int>, asked);
        QFETCH(bool, atLeast);
        env_.systemVersion = [version] { return version; };
        apply();
        int major = -1, minor = -1, bugFix = -1;
        PXBIdentifierUtilities::getOSMajor(&major, &minor, &bugFix);
        QCOMPARE((QList<int>{major, minor, bugFix}), parts);
        int onlyMinor = -1;
        PXBIdentifierUtilities::getOSMajor(nullptr, &onlyMinor, nullptr);
        QCOMPARE(onlyMinor, parts[1]);
        QCOMPARE(PXBIdentifierUtilities::isOSAtLeastMajor(asked[0], asked[1], asked[2]), atLeast);
    }

    void kernelRelease_data() {
        QTest::addColumn<QString>("release");
        QTest::addColumn<QString>("version");
        QTest::newRow("distribution kernel") << u"6.1.0-18-amd64"_s << u"6.1.0"_s;
        QTest::newRow("four numbers") << u"5.15.153.1-microsoft-standard-WSL2"_s << u"5.15.153"_s;
        QTest::newRow("release candidate") << u"6.8-rc3"_s << u"6.8.0"_s;
        QTest::newRow("letters first") << u"x.2"_s << u"0.2.0"_s;
        QTest::newRow("empty") << u""_s << u"0.0.0"_s;
    }
    void kernelRelease() {
        QFETCH(QString, release);
        QFETCH(QString, version);
        QCOMPARE(PXBIdentifierUtilities::systemVersionFromKernelRelease(release), version);
    }

    // The route as the system names it, or as named for a desktop output (description, id): the
    // outputs' rows give "Speaker", "Headphone" and "Headset".
    void audioRoute_data() {
        QTest::addColumn<std::optional<QString>>("route");
        QTest::addColumn<QStringList>("output");
        QTest::addColumn<int>("code");
        using R = std::optional<QString>;
        const QStringList none;
        // clang-format off
        QTest::newRow("unreadable") << R() << none << 1;
        QTest::newRow("empty") << R(u""_s) << none << 3;
        QTest::newRow("whole string only") << R(u"HeadphonesAndMicrophone"_s) << none << 5;
        QTest::newRow("built-in output") << R() << QStringList{u"Built-in Audio Analog Stereo"_s, u"alsa_output.pci-0000_00_1f.3.analog-stereo"_s} << 1;
        QTest::newRow("bluetooth output") << R() << QStringList{u"WH-1000XM4"_s, u"bluez_output.00_11.a2dp-sink"_s} << 2;
        QTest::newRow("usb headset output") << R() << QStringList{u"USB Headset Analog Stereo"_s, u"alsa_output.usb-Logitech_Headset-00.analog-stereo"_s} << 2;
        QTest::newRow("null sink") << R() << QStringList{u"Null Output"_s, u"sorvel_null"_s} << 5;
        // clang-format on
    }
    void audioRoute() {
        QFETCH(std::optional<QString>, route);
        QFETCH(QStringList, output);
        QFETCH(int, code);
        if (!output.isEmpty()) {
            route = PXBIdentifierUtilities::audioRouteNameForOutput(output[0], output[1]);
        }
        env_.audioRoute = [route] { return route; };
        apply();
        PXBIdentifierUtilities utilities;
        QCOMPARE(utilities.audioRoute(), code);
        QCOMPARE(utilities.parameters().value(kPXBParameterAudioOutput), QString::number(code));
    }

    void identifier() {
        PXBIdentifierUtilities utilities;
        // HMAC-SHA256 keyed with the machine id "abc" over the application's identifier, its
        // first 16 bytes in upper-case hex (as `openssl dgst -sha256 -hmac abc` gives it); never
        // the machine id's plain MD5 (900150983CD24FB0D6963F7D28E17F72), which anyone can work
        // out.
        QCOMPARE(utilities.deviceIdentifier(), u"412D97F6804AB07CB7642898A6CF8D43"_s);
        env_.uniqueIdentifier = [] { return u"changed"_s; };
        apply();
        QCOMPARE(utilities.deviceIdentifier(), u"412D97F6804AB07CB7642898A6CF8D43"_s);
        env_.uniqueIdentifier = [] { return u"abc"_s; };
        env_.bundleIdentifier = [] { return u"com.example.Other"_s; };
        apply();
        QCOMPARE(PXBIdentifierUtilities().deviceIdentifier(),
                 u"044FAAB50696B819DA85161A3D343D1C"_s);

        env_.uniqueIdentifier = [] { return QString(); };
        apply();
        QVERIFY(!PXBIdentifierUtilities().parameters().contains(kPXBParameterDeviceID));
    }

    // Even where the desktop has a program for it, a scheme an ad may not hand over is
    // answered "no": the answers would otherwise list the user's applications. (A web page is
    // answered "yes" end to end.)
    void canOpenOnlyWhatMayBeHandedOver_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QStringList>("handOverSchemes");
        QTest::addColumn<bool>("answer");
        // clang-format off
        QTest::newRow("another application's scheme") << "chatapp://open" << QStringList{} << false;
        QTest::newRow("a scheme the application lets through") << "chatapp://open" << QStringList{"chatapp"} << true;
        // clang-format on
    }
    void canOpenOnlyWhatMayBeHandedOver() {
        QFETCH(QString, url);
        QFETCH(QStringList, handOverSchemes);
        QFETCH(bool, answer);
        env_.canOpenURL = [](const QUrl&) { return true; };
        apply();
        PXBConfiguration::setHandOverSchemes(handOverSchemes);
        const QVariantMap answers = PXBIdentifierUtilities().canOpenURLs({url});
        PXBConfiguration::setHandOverSchemes({});
        QCOMPARE(answers.value(url).toBool(), answer);
    }

    void deviceFacts() {
        env_.model = [] { return u"iPad"_s; };
        apply();
        PXBIdentifierUtilities utilities;
        QVariantMap parameters = utilities.parameters();
        QCOMPARE(parameters.value(kPXBParameterIPadCompatibilityMode), u"1"_s);
        QCOMPARE(parameters.value(kPXBParameterDeviceModel), u"iPad"_s);
        QCOMPARE(parameters.value(kPXBParameterDeviceSubmodel), u"x86_64"_s);
        QCOMPARE(parameters.value(kPXBParameterLocale), u"pt-pt"_s);
        QCOMPARE(parameters.value(kPXBParameterApplicationName),
                 u"1.3.iphone.com.example.Sounds"_s);
        QVERIFY(!parameters.contains(kPXBParameterJailbroken));

        env_.isPhoneIdiom = [] { return false; };
        env_.fileExists = [](const QString& path) { return path == u"/Applications/Cydia.app"; };
        env_.preferredLanguages = [] { return QVariantList(); };
        env_.bundleVersion = [] { return QString(); };
        apply();
        parameters = PXBIdentifierUtilities().parameters();
        QCOMPARE(parameters.value(kPXBParameterApplicationName), u"iphone.com.example.Sounds"_s);
        QVERIFY(!parameters.contains(kPXBParameterIPadCompatibilityMode));
        QCOMPARE(parameters.value(kPXBParameterJailbroken), u"1"_s);
        QVERIFY(!parameters.contains(kPXBParameterLocale));
        // Values cached by the first instance stay.
        QCOMPARE(utilities.locale(), u"pt-pt"_s);
    }

    void languagesSeededFromDesktop() {
        testsupport::TempHome home;
        env_.preferredLanguages = PXBIdentifierUtilities::defaultEnvironment().preferredLanguages;
        apply();
        QString expected = QLocale::system().uiLanguages().value(0).toLower();
        if (expected == u"c" || expected == u"posix")
            expected = u"en"_s;
        QCOMPARE(PXBIdentifierUtilities().locale(), expected);
    }

    // The store's metadata file beside the documents directory; anything but a dictionary reads
    // as an empty one.
    void metadataFile_data() {
        QTest::addColumn<QByteArray>("contents");  // null: no file
        QTest::addColumn<QVariantMap>("expected");
        const QVariantMap store{{u"itemId"_s, qint64(284417350)},
                                {u"rating"_s, QVariantMap{{u"label"_s, u"4+"_s}}}};
        QTest::newRow("dictionary") << platform::writePropertyListXml(store) << store;
        QTest::newRow("missing") << QByteArray() << QVariantMap();
        QTest::newRow("not a property list") << QByteArray("not a plist") << QVariantMap();
        QTest::newRow("an array") << platform::writePropertyListXml(QVariantList{1, 2})
                                  << QVariantMap();
    }
    void metadataFile() {
        QFETCH(QByteArray, contents);
        QFETCH(QVariantMap, expected);
        QTemporaryDir home;
        const QString documents = home.filePath(u"Documents"_s);
        QDir().mkpath(documents);
        if (!contents.isNull()) {
            QFile file(home.filePath(u"iTunesMetadata.plist"_s));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size());
        }
        env_.documentsDirectory = [documents] { return documents; };
        apply();
        PXBIdentifierUtilities utilities;
        QCOMPARE(utilities.iTunesMetadata(), expected);
        QCOMPARE(utilities.parameters().value(kPXBParameterITunesMetadata).toMap(), expected);
    }
};

QTEST_GUILESS_MAIN(TestPXBIdentifierUtilities)
#include "tst_pxbidentifierutilities.moc"
