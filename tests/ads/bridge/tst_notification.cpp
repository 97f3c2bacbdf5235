#include "ads/bridge/PXBNotification.h"

#include <QTest>

class TestNotification : public QObject {
    Q_OBJECT
  private slots:
    // A message's name and parameters, the older form's launch and log, a host in capitals and a
    // web page's link are proven end to end, as the messages an ad's page sends.
    void fromURL_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("message");  // the scheme is one of the two
        QTest::addColumn<bool>("understood");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariantMap>("parameters");
        const QVariantMap none;
        QTest::newRow("one character cut") << "qmsg:////x" << true << true << "/x" << none;
        QTest::newRow("no path") << "qmsg:" << true << true << "" << none;
        QTest::newRow("scheme in capitals") << "QMSG:/x" << false << false << "" << none;
        QTest::newRow("launch without url")
            << "torvin://launch" << true << true << "open" << QVariantMap{{"a", "browser"}};
        QTest::newRow("close carries nothing")
            << "torvin://closecanvas?x=1" << true << true << "close" << none;
        QTest::newRow("unknown host") << "torvin://other?url=x" << true << false << "" << none;
    }
    void fromURL() {
        QFETCH(QString, url);
        QFETCH(bool, message);
        QFETCH(bool, understood);
        QFETCH(QString, name);
        QFETCH(QVariantMap, parameters);
        QCOMPARE(PXBNotification::isNotificationURL(url), message);
        const auto notification = PXBNotification::notificationFromURL(url);
        QCOMPARE(notification.has_value(), understood);
        if (notification) {
            QCOMPARE(notification->name(), name);
            QCOMPARE(notification->parameters(), parameters);
        }
    }
};

QTEST_GUILESS_MAIN(TestNotification)
#include "tst_notification.moc"
