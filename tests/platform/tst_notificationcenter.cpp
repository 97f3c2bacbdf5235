#include "platform/notificationcenter.h"

#include <QTest>

using namespace platform;

class TestNotificationCenter : public QObject {
    Q_OBJECT
  private slots:
    void matchingByNameAndObject_data() {
        QTest::addColumn<QString>("observedName");
        QTest::addColumn<bool>("observeObject");
        QTest::addColumn<QString>("postedName");
        QTest::addColumn<bool>("postFromObject");
        QTest::addColumn<bool>("delivered");
        QTest::newRow("same name, any object") << "A" << false << "A" << true << true;
        QTest::newRow("other name") << "A" << false << "B" << true << false;
        QTest::newRow("any name") << "" << false << "B" << false << true;
        QTest::newRow("object matches") << "A" << true << "A" << true << true;
        QTest::newRow("object differs") << "A" << true << "A" << false << false;
    }
    void matchingByNameAndObject() {
        QFETCH(QString, observedName);
        QFETCH(bool, observeObject);
        QFETCH(QString, postedName);
        QFETCH(bool, postFromObject);
        QFETCH(bool, delivered);
        NotificationCenter center;
        int sender = 0;
        int other = 0;
        int calls = 0;
        center.addObserver(this, observedName, observeObject ? &sender : nullptr,
                           [&](const Notification&) { ++calls; });
        center.postNotification(postedName, postFromObject ? &sender : &other);
        QCOMPARE(calls, delivered ? 1 : 0);
    }

    void removeByNameAndObjectLeavesTheRest() {
        NotificationCenter center;
        int sender = 0;
        int calls = 0;
        center.addObserver(this, "A", nullptr, [&](const Notification&) { calls += 1; });
        center.addObserver(this, "B", &sender, [&](const Notification&) { calls += 10; });
        center.removeObserver(this, "B", &sender);
        center.postNotification("A");
        center.postNotification("B", &sender);
        QCOMPARE(calls, 1);
    }

    void deliveryIsSynchronousInRegistrationOrderWithUserInfo() {
        NotificationCenter center;
        QStringList order;
        int a = 0, b = 0, c = 0;
        center.addObserver(&a, "N", nullptr, [&](const Notification& n) {
            order << "a:" + n.userInfo.value("k").toString();
        });
        center.addObserver(&b, "N", nullptr, [&](const Notification&) { order << "b"; });
        center.addObserver(&c, "N", nullptr, [&](const Notification&) { order << "c"; });
        center.postNotification("N", nullptr, {{"k", "v"}});
        QCOMPARE(order, (QStringList{"a:v", "b", "c"}));
    }

    void observersRemovedDuringDeliveryAreNotCalled() {
        NotificationCenter center;
        QStringList calls;
        int a = 0, b = 0, c = 0;
        center.addObserver(&a, "N", nullptr, [&](const Notification&) {
            calls << "a";
            center.removeObserver(&a);  // itself
            center.removeObserver(&b);  // a later one
        });
        center.addObserver(&b, "N", nullptr, [&](const Notification&) { calls << "b"; });
        center.addObserver(&c, "N", nullptr, [&](const Notification&) { calls << "c"; });
        center.postNotification("N");
        center.postNotification("N");
        QCOMPARE(calls, (QStringList{"a", "c", "c"}));
        QCOMPARE(center.observerCount(), 1);
    }
};

QTEST_GUILESS_MAIN(TestNotificationCenter)
#include "tst_notificationcenter.moc"
