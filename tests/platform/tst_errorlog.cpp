#include "platform/clock.h"
#include "platform/error.h"
#include "platform/log.h"  // describe()

#include <QTest>

using namespace platform;

class TestErrorLog : public QObject {
    Q_OBJECT
  private slots:
    void errorsCarryTheirUnderlyingError() {
        const Error inner = Error::withDescription("Inner", 3, "inner failed");
        const Error outer("Outer", 7, {{Error::kUnderlyingErrorKey, QVariant::fromValue(inner)}});
        QCOMPARE(*outer.underlyingError(), inner);
        QVERIFY(!inner.underlyingError().has_value());
        QVERIFY(outer.localizedDescription().contains("Outer error 7"));  // none given
    }

    // Numbers and booleans as they reach a URL's query: the network utilities' suite.
    void describeFormatsLikeTheLog_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("string") << QVariant("plain text") << "plain text";
        QTest::newRow("null") << QVariant() << "(null)";
        QTest::newRow("dict") << QVariant(QVariantMap{{"a", 1}, {"b c", "x y"}})
                              << "{\n    a = 1;\n    \"b c\" = \"x y\";\n}";
        QTest::newRow("array") << QVariant(QVariantList{"a", QVariantList{1}})
                               << "(\n    a,\n    (\n        1\n    )\n)";
    }
    void describeFormatsLikeTheLog() {
        QFETCH(QVariant, value);
        QFETCH(QString, text);
        QCOMPARE(describe(value), text);
    }

    // The 2001 epoch of the absolute clock (a round trip through it is the property lists').
    void clocks() {
        QVERIFY(absoluteTimeNow() > 7.0e8);  // past 2023
        QCOMPARE(dateFromAbsoluteTime(0).toSecsSinceEpoch(), 978307200);
    }
};

QTEST_GUILESS_MAIN(TestErrorLog)
#include "tst_errorlog.moc"
