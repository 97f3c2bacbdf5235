// The sound board as a user starts it, twice with one profile, against the reference ad server:
// the banner's ad arrives and is in the screenshot, the banner sits at the bottom of the phone's
// screen, the second launch builds from the cached script, and timings carry over.
#include "adserver/adserver.h"
#include "e2eharness.h"

#include <QProcess>
#include <QTemporaryDir>

class TestAppEndToEnd : public QObject {
    Q_OBJECT
    adserver::AdServer server;
    QTemporaryDir profile;

    struct Launch {
        QString output;
        QList<QJsonObject> scripts;
        QList<QJsonObject> ads;
    };

    Launch launch(const QString& screenshot) {
        const qint64 mark = server.lastLogSeq();
        QProcess app;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
            env.insert(name, profile.filePath(QString::fromLatin1(name)));
        }
        app.setProcessEnvironment(env);
        app.setProcessChannelMode(QProcess::MergedChannels);
        app.start(
            QStringLiteral(BRINDLE_BINARY),
            {QStringLiteral("--ad-server"), server.url().toString(), QStringLiteral("--screenshot"),
             screenshot, QStringLiteral("--screenshot-delay"), QStringLiteral("30")});
        // The server answers on this thread's event loop while the app runs.
        [&] { QTRY_COMPARE_WITH_TIMEOUT(app.state(), QProcess::NotRunning, 60000); }();
        Launch result;
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
};

QTEST_GUILESS_MAIN(TestAppEndToEnd)
#include "tst_e2e_app.moc"
