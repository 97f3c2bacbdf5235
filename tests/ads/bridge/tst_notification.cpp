#include "ads/bridge/PXBNotification.h"
#include "ads/bridge/PXBNotificationCenter.h"
#include "platform/notificationcenter.h"

#include <QTest>

class TestNotification : public QObject {
    Q_OBJECT
  private slots:
    void fromURL_data() {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<bool>("understood");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariantMap>("parameters");
        QTest::newRow("message") << QUrl("qmsg://x/custom?A=1&b=%41+c") << true << "custom"
                                 << QVariantMap{{"a", "1"}, {"b", "A+c"}};
        QTest::newRow("one character cut") << QUrl("qmsg:////x") << true << "/x" << QVariantMap{};
        QTest::newRow("no path") << QUrl("qmsg:") << true << "" << QVariantMap{};
        QTest::newRow("launch") << QUrl("torvin://launch?url=http%3A%2F%2Fa.example%2Fp&z=1")
                                << true << "open"
                                << QVariantMap{{"a", "browser"}, {"u", "http://a.example/p"}};
        QTest::newRow("launch without url")
            << QUrl("torvin://launch") << true << "open" << QVariantMap{{"a", "browser"}};
        QTest::newRow("close") << QUrl("torvin://closecanvas?x=1") << true << "close"
                               << QVariantMap{};
        QTest::newRow("log") << QUrl("torvin://log?Msg=hi") << true << "log"
                             << QVariantMap{{"msg", "hi"}};
        QTest::newRow("unknown host")
            << QUrl("torvin://other?url=x") << false << "" << QVariantMap{};
        QTest::newRow("web page") << QUrl("http://a.example/click") << false << "" << QVariantMap{};
    }
    void fromURL() {
        QFETCH(QUrl, url);
        QFETCH(bool, understood);
        QFETCH(QString, name);
        QFETCH(QVariantMap, parameters);
        const auto notification = PXBNotification::notificationFromURL(url);
        QCOMPARE(notification.has_value(), understood);
        if (notification) {
            QCOMPARE(notification->name(), name);
            QCOMPARE(notification->parameters(), parameters);
        }
    }

    void delayedPostingComesOnALaterTurn() {
        QList<platform::Notification> received;
        auto& center = platform::NotificationCenter::defaultCenter();
        center.addObserver(this, QString(), nullptr,
                           [&](const platform::Notification& n) { received.append(n); });
        int webView = 0;
        PXBNotificationCenter::defaultCenter().postNotificationFromURL(QUrl("qmsg://h/custom?A=1"),
                                                                       &webView, 0);
        PXBNotificationCenter::defaultCenter().postNotificationFromURL(QUrl("torvin://nope"),
                                                                       &webView, 0);
        QVERIFY(received.isEmpty());
        QTRY_COMPARE(received.size(), 1);
        QCOMPARE(received[0].name, QString("custom"));
        QCOMPARE(received[0].object, &webView);
        QCOMPARE(received[0].userInfo, (QVariantMap{{"a", "1"}}));
        // Nothing more arrives from the unparsable URL.
        QTest::qWait(20);
        QCOMPARE(received.size(), 1);
        center.removeObserver(this);
    }

    void scriptForMessagesToThePage() {
        QCOMPARE(PXBNotificationCenter::scriptForJSNotification("onshow", std::nullopt),
                 QString("ZELM_ReceiveMessage('onshow');"));
        QCOMPARE(
            PXBNotificationCenter::scriptForJSNotification("openableURLs", QVariantMap{{"a", 1}}),
            QString("ZELM_ReceiveMessage('openableURLs', {\"a\":1});"));
    }
};

QTEST_GUILESS_MAIN(TestNotification)
#include "tst_notification.moc"
