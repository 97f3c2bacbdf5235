#include "app/AppOptions.h"

#include <QTest>

class TestAppOptions : public QObject {
    Q_OBJECT
  private slots:
    void init() {
        qunsetenv("SORVEL_AD_SERVER");
        qunsetenv("SORVEL_SCRIPT_HOST");
    }

    // The end-to-end runs give the server as a full http address.
    void parse_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("serverEnv");
        QTest::addColumn<QString>("adServer");  // "!" : the parse fails
        QTest::addColumn<QString>("scriptHost");
        QTest::addColumn<bool>("builtIn");
        // clang-format off
        QTest::newRow("nothing: built-in server") << QStringList{} << "" << "" << "" << true;
        QTest::newRow("host and port") << QStringList{"--ad-server", "127.0.0.1:8080"} << "" << "http://127.0.0.1:8080/" << "" << false;
        QTest::newRow("full URL, path dropped") << QStringList{"--ad-server=http://ads.example:81/x?y=1"} << "" << "http://ads.example:81/" << "" << false;
        QTest::newRow("environment") << QStringList{} << "localhost:9" << "http://localhost:9/" << "" << false;
        QTest::newRow("bare IPv6 loopback stays on http") << QStringList{"--ad-server", "[::1]:9"} << "" << "http://[::1]:9/" << "" << false;
        QTest::newRow("command line beats environment; a bare name goes over https") << QStringList{"--ad-server", "a.test"} << "b.test" << "https://a.test/" << "" << false;
        QTest::newRow("script host alone") << QStringList{"--script-host", "https://js.test"} << "" << "" << "https://js.test/" << false;
        QTest::newRow("not http") << QStringList{"--ad-server", "ftp://x"} << "" << "!" << "" << false;
        QTest::newRow("bad environment") << QStringList{} << "::::" << "!" << "" << false;
        QTest::newRow("stray argument") << QStringList{"extra"} << "" << "!" << "" << false;
        QTest::newRow("unknown option") << QStringList{"--loud"} << "" << "!" << "" << false;
        QTest::newRow("Qt's own options left to Qt") << QStringList{"-platform", "offscreen", "--reverse", "-style=fusion", "--qwindowtitle", "t", "--ad-server", "a.test"} << "" << "https://a.test/" << "" << false;
        QTest::newRow("Qt's option in a form Qt does not read") << QStringList{"-platform=offscreen"} << "" << "!" << "" << false;
        QTest::newRow("empty --ad-server is no address") << QStringList{"--ad-server", ""} << "" << "!" << "" << false;
        QTest::newRow("negative seconds") << QStringList{"--quit-after", "-1"} << "" << "!" << "" << false;
        QTest::newRow("seconds not a number") << QStringList{"--screenshot-delay", "soon"} << "" << "!" << "" << false;
        // clang-format on
    }
    void parse() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, serverEnv);
        QFETCH(QString, adServer);
        QFETCH(QString, scriptHost);
        QFETCH(bool, builtIn);
        if (!serverEnv.isEmpty()) {
            qputenv("SORVEL_AD_SERVER", serverEnv.toUtf8());
        }
        QString error;
        const auto options = AppOptions::parse(QStringList{"brindle-sounds"} + arguments, &error);
        if (adServer == "!") {
            QVERIFY(!options);
            QVERIFY(!error.isEmpty());
            return;
        }
        QVERIFY2(options, qPrintable(error));
        QCOMPARE(options->adServer.toString(), adServer);
        QCOMPARE(options->scriptHost.toString(), scriptHost);
        QCOMPARE(options->startsBuiltInAdServer(), builtIn);
    }
};

QTEST_GUILESS_MAIN(TestAppOptions)
#include "tst_appoptions.moc"
