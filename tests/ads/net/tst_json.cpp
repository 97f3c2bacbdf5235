#include "ads/core/PXBMacros.h"
#include "ads/net/PXB_RQJSON.h"

#include <QTest>

using platform::Error;

namespace {

QVariant dec(const char* text) {
    return QVariant::fromValue(*PXBDecimalNumber::fromString(QString::fromLatin1(text)));
}

// The codes of the error and of each error it wraps, outermost first.
QList<qint64> codes(const QList<Error>& trace) {
    QList<qint64> result;
    for (const Error& e : trace) {
        result << e.code();
    }
    return result;
}

}  // namespace

class TestJson : public QObject {
    Q_OBJECT
  private slots:
    void readValues_data();
    void readValues();
    void readErrors_data();
    void readErrors();
    void depthLimit_data();
    void depthLimit();
    void write_data();
    void write();
    void decimalNumbers();
    void shorthands();
};

void TestJson::readValues_data() {
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QVariant>("expected");
    const QVariant null = PXB_RQJSON::null();
    QTest::newRow("object") << QByteArray(" {\"a\" : [true, false, null], \"b\":\"x\"} ")
                            << QVariant(
                                   QVariantMap{{"a", QVariantList{true, false, null}}, {"b", "x"}});
    QTest::newRow("missing comma accepted")
        << QByteArray("[1 2]") << QVariant(QVariantList{dec("1"), dec("2")});
    QTest::newRow("later key wins")
        << QByteArray("{\"a\":1,\"a\":2}") << QVariant(QVariantMap{{"a", dec("2")}});
    QTest::newRow("escapes") << QByteArray(R"(["\"\\\/\b\f\n\r\t\u00e9\u20AC"])")
                             << QVariant(QVariantList{QString::fromUtf8("\"\\/\b\f\n\r\t\u00e9€")});
    QTest::newRow("surrogate pair folds to one unit")
        << QByteArray(R"(["\uD83D\uDE00"])") << QVariant(QVariantList{QString(QChar(0xF600))});
    QTest::newRow("nothing after zero byte")
        << QByteArray("[1]\0garbage", 11) << QVariant(QVariantList{dec("1")});
}

void TestJson::readValues() {
    QFETCH(QByteArray, input);
    QFETCH(QVariant, expected);
    PXB_RQJSON json;
    Error error;
    const QVariant value = json.objectWithUtf8(input, &error);
    QVERIFY2(error.isNull(), qPrintable(error.localizedDescription()));
    QCOMPARE(value, expected);
    QCOMPARE(json.objectWithString(QString::fromUtf8(input), &error), expected);
}

void TestJson::readErrors_data() {
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("fragment");
    QTest::addColumn<QList<qint64>>("trace");
    using C = QList<qint64>;
    // clang-format off
    QTest::newRow("trailing comma") << QByteArray("[1,2,]") << false << C{9};
    QTest::newRow("leading zero") << QByteArray("01") << true << C{2};
    QTest::newRow("scalar where an object is required") << QByteArray("1") << false << C{4};
    QTest::newRow("nothing required after a word") << QByteArray("nullx") << true << C{10};
    QTest::newRow("unrecognised") << QByteArray("[x]") << false << C{3, 3};
    QTest::newRow("empty input") << QByteArray("  ") << false << C{11};
    QTest::newRow("bad key string") << QByteArray("{\"\\q\":2}") << false << C{3, 8};
    QTest::newRow("bad member value wraps twice") << QByteArray("{\"k\":[-]}") << false << C{3, 3, 2};
    QTest::newRow("raw tab") << QByteArray("\"a\tb\"") << true << C{5};
    QTest::newRow("DFFF refused as low surrogate") << QByteArray(R"("\uD800\uDFFF")") << true << C{6, 6};
    // Bytes that are not UTF-8 end with an error instead of a scanner that stops moving.
    QTest::newRow("invalid UTF-8 after ASCII") << QByteArray("\"ab\xFF\"") << true << C{5};
    QTest::newRow("null input") << QByteArray() << false << C{12};
    // clang-format on
}

void TestJson::readErrors() {
    QFETCH(QByteArray, input);
    QFETCH(bool, fragment);
    QFETCH(QList<qint64>, trace);
    PXB_RQJSON json;
    Error error;
    const QVariant value =
        fragment ? json.fragmentWithUtf8(input, &error) : json.objectWithUtf8(input, &error);
    QVERIFY(!value.isValid());
    QCOMPARE(error.domain(), kPXBJSONErrorDomain);
    QCOMPARE(json.errorTrace().first(), error);
    QCOMPARE(codes(json.errorTrace()), trace);
    // Without an error argument the call fails just the same.
    QVERIFY(!(fragment ? json.fragmentWithUtf8(input) : json.objectWithUtf8(input)).isValid());
}

void TestJson::depthLimit_data() {
    QTest::addColumn<unsigned>("maxDepth");
    QTest::addColumn<int>("nesting");
    QTest::addColumn<bool>("ok");
    QTest::newRow("512 with the default") << 512u << 512 << true;
    QTest::newRow("513 with the default") << 512u << 513 << false;
    QTest::newRow("no limit") << 0u << 1500 << true;
    QTest::newRow("no limit still has a ceiling")
        << 0u << int(PXB_RQJSON::kDepthCeiling) + 1 << false;
}

void TestJson::depthLimit() {
    QFETCH(unsigned, maxDepth);
    QFETCH(int, nesting);
    QFETCH(bool, ok);
    PXB_RQJSON json;
    json.setMaxDepth(maxDepth);
    // Objects inside arrays, so that both kinds count.
    QByteArray text;
    for (int i = 0; i < nesting; ++i) {
        text += (i % 2 == 0) ? "[" : (i == nesting - 1 ? "{" : "{\"k\":");
    }
    for (int i = nesting - 1; i >= 0; --i) {
        text += (i % 2 == 0) ? "]" : "}";
    }
    Error error;
    const QVariant value = json.objectWithUtf8(text, &error);
    QCOMPARE(value.isValid(), ok);
    if (!ok) {
        QCOMPARE(json.errorTrace().last().code(), PXB_RQJSON::kErrorDepth);
    }
}

void TestJson::write_data() {
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("sortKeys");
    QTest::addColumn<bool>("humanReadable");
    QTest::addColumn<QString>("expected");  // null: refused, with this error code
    QTest::addColumn<qint64>("code");
    QTest::newRow("scalars") << QVariant(QVariantList{true, false, 1, -2.5, 0.1f, dec("1.50e3"),
                                                      PXB_RQJSON::null(), QVariant(),
                                                      qulonglong(18446744073709551615u)})
                             << false << false
                             << "[true,false,1,-2.5,0.1,1.50e3,null,null,18446744073709551615]"
                             << 0ll;
    QTest::newRow("escaping")
        << QVariant(QVariantList{QString::fromUtf8("\"\\/\b\t\n\f\r\x01\x1f é\x7f")}) << false
        << false << QString::fromUtf8(R"(["\"\\/\b\t\n\f\r\u0001\u001f é)") + QChar(0x7f) + "\"]"
        << 0ll;
    QVariantHash hash{{"b", 1}, {"a", QVariantList{1, 2}}, {"c", QVariantMap()}};
    QTest::newRow("sorted, human-readable")
        << QVariant(hash) << true << true
        << "{\n  \"a\" : [\n    1,\n    2\n  ],\n  \"b\" : 1,\n  \"c\" : {}\n}" << 0ll;
    QTest::newRow("empty list readable")
        << QVariant(QVariantList()) << false << true << "[]" << 0ll;
    QTest::newRow("other types as strings")
        << QVariant(QVariantList{QUrl("http://h/a b"), QByteArray("\x01\xff", 2)}) << false << false
        << R"(["http://h/a%20b","<01ff>"])" << 0ll;
    QTest::newRow("bad nested value")
        << QVariant(QVariantMap{{"k", QVariantList{QVariant::fromValue(QMap<int, int>{{1, 2}})}}})
        << false << false << QString() << 1ll;
    QTest::newRow("scalar top level")
        << QVariant(QStringLiteral("x")) << false << false << QString() << 4ll;
}

void TestJson::write() {
    QFETCH(QVariant, value);
    QFETCH(bool, sortKeys);
    QFETCH(bool, humanReadable);
    QFETCH(QString, expected);
    QFETCH(qint64, code);
    PXB_RQJSON json;
    json.setSortKeys(sortKeys);
    json.setHumanReadable(humanReadable);
    Error error;
    const QString text = json.stringWithObject(value, &error);
    QCOMPARE(text, expected);
    QCOMPARE(text.isNull(), expected.isNull());
    QCOMPARE(error.isNull(), code == 0);
    if (code != 0) {
        QCOMPARE(codes(json.errorTrace()), QList<qint64>{code});
    }
}

void TestJson::decimalNumbers() {
    PXB_RQJSON json;
    // The fragment reader keeps the number's text exactly; booleans stay booleans.
    QCOMPARE(json.fragmentWithString("true").metaType(), QMetaType::fromType<bool>());
    const QString exact = "-12345678901234567890.123456789012345678901234567890e-7";
    QCOMPARE(json.stringWithFragment(json.fragmentWithString(exact)), exact);
    // Equal by value, however written.
    QCOMPARE(dec("1.50"), dec("15e-1"));
    QVERIFY(dec("1e400") != dec("1e-400"));
    QCOMPARE(dec("1e400").toDouble(), qInf());
    QCOMPARE(dec("-12.75").toInt(), -12);
}

// What the bridge embeds in a script call as it is.
void TestJson::shorthands() {
    QVERIFY(PXBMacros::jsonify(QVariant()).isNull());
    // What cannot be written gives an empty text, not a null one.
    const QString unwritable = PXBMacros::jsonify(QVariant::fromValue(QMap<int, int>{{1, 2}}));
    QVERIFY(unwritable.isEmpty() && !unwritable.isNull());
}

QTEST_GUILESS_MAIN(TestJson)
#include "tst_json.moc"
