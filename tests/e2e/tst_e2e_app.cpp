// The sound board as a user starts it, twice with one profile, against the reference ad server:
// the banner's ad arrives and is in the screenshot, the banner sits at the bottom of the phone's
// screen, the second launch builds from the cached script, and timings carry over. A damaged
// profile (stored settings unreadable, no cache folder) still gives an ad, and loses nothing.
#include "adserver/adserver.h"
#include "e2eharness.h"

#include <QProcess>
#include <QTemporaryDir>

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

    Launch launch(const QString& screenshot) {
        return launchWithProfile(profile.path(), screenshotArguments(screenshot));
    }

    static QStringList screenshotArguments(const QString& screenshot) {
        return {QStringLiteral("--screenshot"), screenshot, QStringLiteral("--screenshot-delay"),
                QStringLiteral("30")};
    }

    Launch launchWithProfile(const QString& home, const QStringList& arguments) {
        const qint64 mark = server.lastLogSeq();
        QProcess app;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
            env.insert(name, QDir(home).filePath(QString::fromLatin1(name)));
        }
        app.setProcessEnvironment(env);
        app.setProcessChannelMode(QProcess::MergedChannels);
        app.start(QStringLiteral(BRINDLE_BINARY),
                  QStringList{QStringLiteral("--ad-server"), server.url().toString()} + arguments);
        // The server answers on this thread's event loop while the app runs.
        [&] { QTRY_COMPARE_WITH_TIMEOUT(app.state(), QProcess::NotRunning, 60000); }();
        Launch result;
        result.exitCode = app.exitStatus() == QProcess::NormalExit ? app.exitCode() : -1;
        result.output = QString::fromLocal8Bit(app.readAll());
        for (const QJsonValue& entry : server.logEntries(mark)) {
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

    void twoLaunchesWithOneProfile() {
        const QString firstShot = profile.filePath(QStringLiteral("first.png"));
        const Launch first = launch(firstShot);
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
        QCOMPARE(e2e::rectOf(query.value("ad_bounds")), QRectF(0, 0, 320, 50));
        QVERIFY(!query.contains("format"));

        const Launch second = launch(profile.filePath(QStringLiteral("second.png")));
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
        QTest::newRow("settings of garbage") << "\x01\xff\xfe garbage \x80" << false << shown;
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
};

QTEST_GUILESS_MAIN(TestAppEndToEnd)
#include "tst_e2e_app.moc"
