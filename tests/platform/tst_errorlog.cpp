#include "platform/clock.h"
#include "platform/error.h"
#include "platform/log.h"

#include <QTest>

using namespace platform;

class TestErrorLog : public QObject {
    Q_OBJECT
  private slots:
    void errorsCarryDescriptionAndUnderlyingError() {
        const Error inner = Error::withDescription("Inner", 3, "inner failed");
        const Error outer("Outer", 7,
                          {{Error::kLocalizedDescriptionKey, "outer failed"},
                           {Error::kUnderlyingErrorKey, QVariant::fromValue(inner)}});
        QCOMPARE(outer.localizedDescription(), QString("outer failed"));
        QVERIFY(outer.underlyingError().has_value());
        QCOMPARE(*outer.underlyingError(), inner);
        QVERIFY(!inner.underlyingError().has_value());
        QVERIFY(Error().isNull());
        QVERIFY(Error("D", 1).localizedDescription().contains("D error 1"));
    }

    void describeFormatsLikeTheLog_data() {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("string") << QVariant("plain text") << "plain text";
        QTest::newRow("int") << QVariant(42) << "42";
        QTest::newRow("real") << QVariant(0.5) << "0.5";
        QTest::newRow("bool") << QVariant(true) << "1";
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

    void logLinesGoToTheSorvelCategory() {
        QTest::ignoreMessage(QtInfoMsg, "<Sorvel> Unable to serve: x");
        logLine("<Sorvel> Unable to serve: x");
        setDebugLogging(false);
        logDebug("hidden");  // an unexpected message would fail the test
    }

    void clocks() {
        const double a = monotonicSeconds();
        QTest::qWait(20);
        QVERIFY(monotonicSeconds() - a >= 0.015);
        const double now = absoluteTimeNow();
        QVERIFY(now > 7.0e8);  // past 2023 on the 2001 clock
        QCOMPARE(dateFromAbsoluteTime(0).toSecsSinceEpoch(), 978307200);
        QCOMPARE(absoluteTimeFromDate(dateFromAbsoluteTime(12345.5)), 12345.5);
        platform::srandom(7);
        const long first = platform::random();
        platform::srandom(7);
        QCOMPARE(platform::random(), first);
    }
};

QTEST_GUILESS_MAIN(TestErrorLog)
#include "tst_errorlog.moc"
