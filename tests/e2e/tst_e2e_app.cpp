// The sound board as a user starts it, twice with one profile, against the reference ad server:
// the banner's ad arrives and is in the screenshot, the banner sits at the bottom of the phone's
// screen, the second launch builds from the cached script, and timings carry over. A damaged
// profile (stored settings unreadable, no cache folder) still gives an ad, and loses nothing.
// A second start with the same profile brings the running window to the front.
#include "adserver/adserver.h"
#include "e2eharness.h"

#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <functional>

class TestAppEndToEnd : public QObject {
    Q_OBJECT
    adserver::AdServer server;
    QTemporaryDir profile;

    struct Launch {
        int exitCode = -1;
        QString output;
        QList<QJsonObject> scripts;
        QList<QJsonObject> ads;
    };

    static QStringList screenshotArguments(const QString& screenshot) {
        return {QStringLiteral("--screenshot"), screenshot, QStringLiteral("--screenshot-delay"),
                QStringLiteral("30")};
    }

    static QProcessEnvironment profileEnvironment(const QString& home) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
            env.insert(name, QDir(home).filePath(QString::fromLatin1(name)));
        }
        return env;
    }

    // Runs the app with `home` as its profile against `on` (the demo server unless given). With
    // `until`, the app is sent SIGTERM once `until` holds for its output so far.
    Launch launchWithProfile(const QString& home, const QStringList& arguments,
                             adserver::AdServer* on = nullptr,
                             const std::function<bool(const QString&)>& until = {}) {
        adserver::AdServer& to = on != nullptr ? *on : server;
        const qint64 mark = to.lastLogSeq();
        QProcess app;
        app.setProcessEnvironment(profileEnvironment(home));
        app.setProcessChannelMode(QProcess::MergedChannels);
        QString output;
        QObject::connect(&app, &QProcess::readyRead, &app,
                         [&] { output += QString::fromLocal8Bit(app.readAll()); });
        app.start(QStringLiteral(BRINDLE_BINARY),
                  QStringList{QStringLiteral("--ad-server"), to.url().toString()} + arguments);
        // The server answers on this thread's event loop while the app runs.
        if (until) {
            [&] { QTRY_VERIFY2_WITH_TIMEOUT(until(output), qPrintable(output), 60000); }();
            app.terminate();
        }
        [&] { QTRY_COMPARE_WITH_TIMEOUT(app.state(), QProcess::NotRunning, 60000); }();
        Launch result;
        result.exitCode = app.exitStatus() == QProcess::NormalExit ? app.exitCode() : -1;
        result.output = output + QString::fromLocal8Bit(app.readAll());
        for (const QJsonValue& entry : to.logEntries(mark)) {
            const QString path = entry[QStringLiteral("path")].toString();
            if (path == QLatin1String("/zelm/sdk-core-v40.js")) {
                result.scripts.append(entry.toObject());
            } else if (path == QLatin1String("/ad")) {
                result.ads.append(entry.toObject());
            }
        }
        return result;
    }

  private slots:
    void initTestCase() { QVERIFY(server.start()); }

    // One window per profile: a second start brings the running window to the front and ends
    // without asking for an ad; --new-instance runs beside it.
    void aSecondStartShowsTheRunningWindow() {
        QTemporaryDir home;
        QProcess first;
        first.setProcessEnvironment(profileEnvironment(home.path()));
        first.setProcessChannelMode(QProcess::MergedChannels);
        QString firstOutput;
        QObject::connect(&first, &QProcess::readyRead, &first,
                         [&] { firstOutput += QString::fromLocal8Bit(first.readAll()); });
        first.start(QStringLiteral(BRINDLE_BINARY),
                    {QStringLiteral("--ad-server"), server.url().toString()});
        QTRY_VERIFY2_WITH_TIMEOUT(firstOutput.contains(QLatin1String("ad shown")),
                                  qPrintable(firstOutput), 60000);

        const Launch second = launchWithProfile(home.path(), {});
        QCOMPARE(second.exitCode, 0);
        QVERIFY2(second.output.contains(QLatin1String("already running for this profile")),
                 qPrintable(second.output));
        QVERIFY(second.scripts.isEmpty() && second.ads.isEmpty());
        QTRY_VERIFY(firstOutput.contains(QLatin1String("brought the window to the front")));

        const Launch beside = launchWithProfile(
            home.path(),
            {QStringLiteral("--new-instance"), QStringLiteral("--quit-after"),
             QStringLiteral("30")},
            nullptr, [](const QString& out) { return out.contains(QLatin1String("ad shown")); });
        QVERIFY2(!beside.output.contains(QLatin1String("already running")),
                 qPrintable(beside.output));
        QCOMPARE(beside.ads.size(), 1);

        first.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(first.state(), QProcess::NotRunning, 30000);
        QCOMPARE(first.exitCode(), 0);
    }

    void twoLaunchesWithOneProfile() {
        const QString firstShot = profile.filePath(QStringLiteral("first.png"));
        const Launch first = launchWithProfile(profile.path(), screenshotArguments(firstShot));
        QVERIFY2(first.output.contains(QStringLiteral("ad shown")), qPrintable(first.output));
        // The picture is taken once the ad has arrived, not at the fallback delay.
        QVERIFY(first.output.indexOf(QStringLiteral("ad shown")) <
                first.output.indexOf(QStringLiteral("screenshot written")));
        QVERIFY(QImage(firstShot).size() == QSize(320, 480));
        QCOMPARE(first.scripts.size(), 1);
        QCOMPARE(first.ads.size(), 1);
        const QVariantMap query = e2e::queryOf(first.ads.first());
        // The main view is the 460 points below the status bar: the banner sits at its foot.
        QCOMPARE(e2e::rectOf(query.value("ad_frame")), QRectF(0, 410, 320, 50));
        // The project's version and a reverse-DNS identifier ending in the program's name.
        QCOMPARE(query.value("app_name").toString(),
                 PROJECT_VERSION_TEXT ".iphone.example.brindle.brindle-sounds");

        const Launch second = launchWithProfile(
            profile.path(), screenshotArguments(profile.filePath(QStringLiteral("second.png"))));
        QVERIFY2(second.output.contains(QStringLiteral("ad shown")), qPrintable(second.output));
        QCOMPARE(second.scripts.size(), 0);  // revalidated less than a day ago
        QCOMPARE(second.ads.size(), 1);
        // The time since the first request keeps growing across launches.
        const QVariantMap again = e2e::queryOf(second.ads.first());
        QVERIFY2(again.value("ptime").toLongLong() > query.value("ptime").toLongLong(),
                 qPrintable(again.value("ptime").toString()));
    }

    void damagedProfileStillShowsAnAd_data() {
        QTest::addColumn<QString>("settings");   // what lies where the settings file belongs
        QTest::addColumn<bool>("cacheBlocked");  // a file where the cache folder belongs
        QTest::addColumn<QString>("outcome");
        const QString shown = "ad shown";
        QTest::newRow("settings cut short")
            << "<?xml version=\"1.0\"?><plist><dict><key>PXB" << false << shown;
        QTest::newRow("settings unreadable (a folder)") << "folder" << false << shown;
        // The script cannot be kept, so it counts as not fetched: with no earlier copy, no ad.
        QTest::newRow("no cache folder: script failure")
            << "" << true << "no ad (com.sorvel.ads 2)";
    }

    void damagedProfileStillShowsAnAd() {
        QFETCH(QString, settings);
        QFETCH(bool, cacheBlocked);
        QFETCH(QString, outcome);
        QTemporaryDir home;
        const QString config = home.filePath("XDG_CONFIG_HOME/brindle-sounds");
        const QString settingsFile = config + "/brindle-sounds.plist";
        QVERIFY(QDir().mkpath(config));
        const QByteArray damaged = settings.toLatin1();
        if (settings == "folder") {
            QVERIFY(QDir().mkpath(settingsFile + "/inside"));
        } else if (!settings.isEmpty()) {
            QFile file(settingsFile);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(damaged) == damaged.size());
        }
        if (cacheBlocked) {
            QVERIFY(QDir().mkpath(home.filePath("XDG_CACHE_HOME")));
            QFile blocker(home.filePath("XDG_CACHE_HOME/brindle-sounds"));
            QVERIFY(blocker.open(QIODevice::WriteOnly));
        }

        const Launch run =
            launchWithProfile(home.path(), screenshotArguments(home.filePath("shot.png")));
        QVERIFY2(run.output.contains(outcome), qPrintable(run.output));
        QCOMPARE(run.exitCode, 0);
        if (!settings.isEmpty()) {
            // Said in the log, and what could not be read is kept beside the new settings.
            QVERIFY2(run.output.contains("were unreadable; moved to"), qPrintable(run.output));
            if (settings == "folder") {
                QVERIFY(QFileInfo(settingsFile + ".unreadable/inside").isDir());
            } else {
                QFile kept(settingsFile + ".unreadable");
                QVERIFY(kept.open(QIODevice::ReadOnly));
                QCOMPARE(kept.readAll(), damaged);
            }
        }
        // The run's own settings were saved in the damaged file's place.
        QVERIFY(QFileInfo(settingsFile).isFile());
    }

    // With its server out of reach the banner stays empty: the board says why on screen, once
    // while the client keeps trying, and plays on.
    void anUnreachableAdServerIsToldOnceOnScreen() {
        QTemporaryDir home;
        QTcpServer probe;  // a loopback port that was free a moment ago: nothing listens there
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        const QString closed = QStringLiteral("http://127.0.0.1:%1/").arg(probe.serverPort());
        probe.close();
        const QString failure = QStringLiteral("no ad (com.sorvel.ads 2)");
        const Launch run =
            launchWithProfile(home.path(), {QStringLiteral("--ad-server"), closed}, nullptr,
                              [&](const QString& output) { return output.count(failure) >= 2; });
        QCOMPARE(run.output.count("said on screen that the ad is offline"), 1);
    }

    // The user quits while the ad server takes its time: the app ends cleanly without waiting
    // for the answer, which then finds no one.
    void quitWhileAnAdIsOnItsWay() {
        QTemporaryDir home;
        server.setPathFaults(QStringLiteral("/ad"), QJsonObject{{"delayMs", 8000}});
        const Launch run =
            launchWithProfile(home.path(), {QStringLiteral("--quit-after"), QStringLiteral("2")});
        server.setPathFaults(QStringLiteral("/ad"), {});
        QVERIFY2(run.output.contains("quitting as asked"), qPrintable(run.output));
        QVERIFY2(!run.output.contains("ad shown"), qPrintable(run.output));
        QCOMPARE(run.exitCode, 0);
    }

    // Quitting while the ad has something open (a full screen, the composer, a tracking that
    // never answers), once pressed, ends the process cleanly: exit code 0, nothing from the
    // sanitizers. SIGTERM closes the window as the user does; --quit-after leaves the event loop
    // directly.
    void quitWithSomethingOpen_data() {
        QTest::addColumn<QString>("creative");  // of quit-inventory.json
        QTest::addColumn<QString>("open");      // the app's line once it is open
        QTest::addColumn<QString>("fetched");   // and the server's path it has asked for
        QTest::addColumn<bool>("signal");       // SIGTERM, else --quit-after
        // clang-format off
        QTest::newRow("browser, SIGTERM") << "browser" << "ad opens a full screen" << "/landing/" << true;
        QTest::newRow("web app, SIGTERM") << "webapp" << "ad opens a full screen" << "/webapp/" << true;
        QTest::newRow("web app, --quit-after") << "webapp" << "ad opens a full screen" << "/webapp/" << false;
        QTest::newRow("composer, SIGTERM") << "composer" << "ad shown" << "/t/composer-asked" << true;
        QTest::newRow("click tracking, SIGTERM") << "tracker" << "ad shown" << "/t/click-asked" << true;
        QTest::newRow("click tracking, --quit-after") << "tracker" << "ad shown" << "/t/click-asked" << false;
        // clang-format on
    }

    void quitWithSomethingOpen() {
        QFETCH(QString, creative);
        QFETCH(QString, open);
        QFETCH(QString, fetched);
        QFETCH(bool, signal);
        static adserver::AdServer quitServer;
        if (!quitServer.isListening()) {
            quitServer.setRequestFaultsEnabled(true);
            QVERIFY(quitServer.start(0, QStringLiteral("127.0.0.1"),
                                     qEnvironmentVariable("SORVEL_SOURCE_DIR") +
                                         QStringLiteral("/tests/e2e/quit-inventory.json")));
        }
        quitServer.setPathFaults(QStringLiteral("/ad"), QJsonObject{{"creative", creative}});
        QTemporaryDir home;
        const qint64 mark = quitServer.lastLogSeq();
        const auto isOpen = [&](const QString& output) {
            bool asked = false;
            for (const QJsonValue& entry : quitServer.logEntries(mark)) {
                asked = asked || entry[QStringLiteral("path")].toString() == fetched;
            }
            return output.contains(open) && asked;
        };
        // The ad opens its screen (or asks for its tracking) only once pressed.
        const QString press = QStringLiteral("--press-ad");
        const Launch run =
            signal ? launchWithProfile(home.path(), {press}, &quitServer, isOpen)
                   : launchWithProfile(home.path(), {QStringLiteral("--quit-after"), "10", press},
                                       &quitServer);
        QVERIFY2(run.output.contains(open), qPrintable(run.output));
        if (!signal) {
            QVERIFY2(run.output.indexOf(open) < run.output.indexOf("quitting as asked"),
                     qPrintable(run.output));
        }
        for (const char* report : {"Sanitizer", "runtime error"}) {
            QVERIFY2(!run.output.contains(QLatin1String(report)), qPrintable(run.output));
        }
        QCOMPARE(run.exitCode, 0);
    }
};

QTEST_GUILESS_MAIN(TestAppEndToEnd)
#include "tst_e2e_app.moc"
