#include "ads/bridge/PXBNotification.h"

#include <QTest>

class TestNotification : public QObject {
    Q_OBJECT
  private slots:
    void fromURL_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("message");  // the scheme is one of the two
        QTest::addColumn<bool>("understood");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariant>("parameters");  // invalid: none at all
        const QVariant none;
        const QVariant empty = QVariantMap{};
        QTest::newRow("message") << "qmsg://x/custom?A=1&b=%41+c" << true << true << "custom"
                                 << QVariant(QVariantMap{{"a", "1"}, {"b", "A+c"}});
        QTest::newRow("one character cut") << "qmsg:////x" << true << true << "/x" << empty;
        QTest::newRow("no path") << "qmsg:" << true << true << "" << empty;
        QTest::newRow("malformed escape as written")
            << "qmsg:///m?k=%ZZ&j=%7e" << true << true << "m" << QVariant(QVariantMap{{"j", "~"}});
        QTest::newRow("scheme in capitals") << "QMSG:/x" << false << false << "" << none;
        QTest::newRow("launch") << "torvin://launch?url=http%3A%2F%2Fa.example%2Fp&z=1" << true
                                << true << "open"
                                << QVariant(
                                       QVariantMap{{"a", "browser"}, {"u", "http://a.example/p"}});
        QTest::newRow("launch without url") << "torvin://launch" << true << true << "open"
                                            << QVariant(QVariantMap{{"a", "browser"}});
        QTest::newRow("host in capitals") << "torvin://LAUNCH?url=x" << true << false << "" << none;
        QTest::newRow("legacy scheme capitalised")
            << "Torvin://launch" << false << false << "" << none;
        QTest::newRow("close carries nothing")
            << "torvin://closecanvas?x=1" << true << true << "close" << none;
        QTest::newRow("log") << "torvin://log?Msg=hi" << true << true << "log"
                             << QVariant(QVariantMap{{"msg", "hi"}});
        QTest::newRow("unknown host") << "torvin://other?url=x" << true << false << "" << none;
        QTest::newRow("web page") << "http://a.example/click" << false << false << "" << none;
    }
    void fromURL() {
        QFETCH(QString, url);
        QFETCH(bool, message);
        QFETCH(bool, understood);
        QFETCH(QString, name);
        QFETCH(QVariant, parameters);
        QCOMPARE(PXBNotification::isNotificationURL(url), message);
        const auto notification = PXBNotification::notificationFromURL(url);
        QCOMPARE(notification.has_value(), understood);
        if (notification) {
            QCOMPARE(notification->name(), name);
            QCOMPARE(notification->hasParameters(), parameters.isValid());
            QCOMPARE(notification->parameters(), parameters.toMap());
        }
    }
};

QTEST_GUILESS_MAIN(TestNotification)
#include "tst_notification.moc"
