#include "platform/notificationcenter.h"

#include <QTest>

using namespace platform;

class TestNotificationCenter : public QObject {
    Q_OBJECT
  private slots:
    // Matching by name and by sender is proven end to end (a page's messages named like the
    // application's reach none of its observers).
    void matchingByNameAndObject_data() {
        QTest::addColumn<QString>("observedName");
        QTest::addColumn<bool>("observeObject");
        QTest::addColumn<QString>("postedName");
        QTest::addColumn<bool>("postFromObject");
        QTest::addColumn<bool>("onlyToObservers");  // postNotificationToObserversOf
        QTest::addColumn<bool>("delivered");
        // clang-format off
        QTest::newRow("any name") << "" << false << "B" << false << false << true;
        QTest::newRow("to the sender's observers: one of any sender hears nothing") << "A" << false << "A" << true << true << false;
        QTest::newRow("to the sender's observers: the sender's own hears it") << "A" << true << "A" << true << true << true;
        QTest::newRow("to the sender's observers: any name, the sender's own hears it") << "" << true << "B" << true << true << true;
        // clang-format on
    }
    void matchingByNameAndObject() {
        QFETCH(QString, observedName);
        QFETCH(bool, observeObject);
        QFETCH(QString, postedName);
        QFETCH(bool, postFromObject);
        QFETCH(bool, onlyToObservers);
        QFETCH(bool, delivered);
        NotificationCenter center;
        int sender = 0;
        int other = 0;
        int calls = 0;
        center.addObserver(this, observedName, observeObject ? &sender : nullptr,
                           [&](const Notification&) { ++calls; });
        if (onlyToObservers) {
            center.postNotificationToObserversOf(postedName, postFromObject ? &sender : &other);
        } else {
            center.postNotification(postedName, postFromObject ? &sender : &other);
        }
        QCOMPARE(calls, delivered ? 1 : 0);
    }

    // Delivered at once, in registration order, with the user info; an observer removed during
    // a delivery (by itself or another) is not called again, and removal by name and object
    // leaves the observer's other registrations.
    void deliveryInOrderWithRemovalsOnTheWay() {
        NotificationCenter center;
        QStringList calls;
        int a = 0, b = 0, c = 0;
        center.addObserver(&a, "N", nullptr, [&](const Notification& n) {
            calls << "a:" + n.userInfo.value("k").toString();
            center.removeObserver(&a);  // itself
            center.removeObserver(&b);  // a later one
        });
        center.addObserver(&b, "N", nullptr, [&](const Notification&) { calls << "b"; });
        center.addObserver(&c, "N", nullptr, [&](const Notification&) { calls << "c"; });
        center.addObserver(&c, "M", &a, [&](const Notification&) { calls << "c:M"; });
        center.postNotification("N", nullptr, {{"k", "v"}});
        QCOMPARE(calls, (QStringList{"a:v", "c"}));
        center.removeObserver(&c, "M", &a);
        center.postNotification("N");
        center.postNotification("M", &a);
        QCOMPARE(calls, (QStringList{"a:v", "c", "c"}));
        QCOMPARE(center.observerCount(), 1);
    }
};

QTEST_GUILESS_MAIN(TestNotificationCenter)
#include "tst_notificationcenter.moc"
