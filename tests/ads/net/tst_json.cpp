#include "ads/core/PXBMacros.h"
#include "ads/net/PXB_RQJSON.h"

#include <QDir>
#include <QFile>
#include <QTest>

using platform::Error;

namespace {

QVariant dec(const char* text) {
    return QVariant::fromValue(*PXBDecimalNumber::fromString(QString::fromLatin1(text)));
}

QString messages(const QList<Error>& trace) {
    QStringList parts;
    for (const Error& e : trace) {
        parts << QStringLiteral("%1 %2").arg(e.code()).arg(e.localizedDescription());
    }
    return parts.join(QStringLiteral(" / "));
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
    void writeErrors_data();
    void writeErrors();
    void decimalNumbers();
    void roundTrip_data();
    void roundTrip();
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
    QTest::newRow("UTF-8 passes through") << QByteArray("[\"h\xC3\xA9llo \xF0\x9F\x98\x80\"]")
                                          << QVariant(QVariantList{QString::fromUtf8("héllo 😀")});
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
    // Codes and messages of the error and of each error it wraps, outermost first.
    QTest::addColumn<QString>("trace");
    // clang-format off
    QTest::newRow("trailing comma in array") << QByteArray("[1,2,]") << false << "9 Trailing comma disallowed in array";
    QTest::newRow("trailing comma in object") << QByteArray("{\"a\":1 , }") << false << "9 Trailing comma disallowed in object";
    QTest::newRow("leading zero") << QByteArray("01") << true << "2 Leading 0 disallowed in number";
    QTest::newRow("minus alone") << QByteArray("-") << true << "2 No digits after initial minus";
    QTest::newRow("no fraction digits") << QByteArray("1.") << true << "2 No digits after decimal point";
    QTest::newRow("no exponent digits") << QByteArray("1e+") << true << "2 No digits after exponent";
    QTest::newRow("leading plus") << QByteArray("+1") << true << "2 Leading + disallowed in number";
    QTest::newRow("scalar where an object is required") << QByteArray("1") << false << "4 Valid fragment, but not JSON";
    QTest::newRow("garbage") << QByteArray("[] x") << false << "10 Garbage after JSON";
    QTest::newRow("nothing required after a word") << QByteArray("nullx") << true << "10 Garbage after JSON";
    QTest::newRow("bad word") << QByteArray("[tru]") << false << "3 Expected value while parsing array / 3 Expected 'true'";
    QTest::newRow("unrecognised") << QByteArray("[x]") << false << "3 Expected value while parsing array / 3 Unrecognised leading character";
    QTest::newRow("empty input") << QByteArray("  ") << false << "11 Unexpected end of string";
    QTest::newRow("open array") << QByteArray("[1,") << false << "11 End of input while parsing array";
    QTest::newRow("open object") << QByteArray("{\"a\":1") << false << "11 End of input while parsing object";
    QTest::newRow("open string") << QByteArray("\"abc") << true << "11 Unexpected EOF while parsing string";
    QTest::newRow("key not a string") << QByteArray("{1:2}") << false << "3 Object key string expected";
    QTest::newRow("bad key string") << QByteArray("{\"\\q\":2}") << false << "3 Object key string expected / 8 Illegal escape sequence '0x71'";
    QTest::newRow("no colon") << QByteArray("{\"a\" 1}") << false << "3 Expected ':' separating key and value";
    QTest::newRow("bad member value wraps twice") << QByteArray("{\"k\":[-]}") << false << "3 Object value expected for key: k / 3 Expected value while parsing array / 2 No digits after initial minus";
    QTest::newRow("raw tab") << QByteArray("\"a\tb\"") << true << "5 Unescaped control character '0x9'";
    QTest::newRow("lone low surrogate") << QByteArray(R"("\uDFFF")") << true << "6 Broken unicode character / 6 Invalid high character in surrogate pair";
    QTest::newRow("DFFF refused as low surrogate") << QByteArray(R"("\uD800\uDFFF")") << true << "6 Broken unicode character / 6 Invalid low surrogate char";
    QTest::newRow("high surrogate alone") << QByteArray(R"("\uD800x")") << true << "6 Broken unicode character / 6 Missing low character in surrogate pair";
    QTest::newRow("short second quad") << QByteArray(R"("\uD800\u12")") << true << "6 Broken unicode character / 6 Missing low character in surrogate pair / 6 Missing hex digit in quad";
    QTest::newRow("short quad") << QByteArray(R"("\u12G4")") << true << "6 Broken unicode character / 6 Missing hex quad";
    // Bytes that are not UTF-8 end with an error instead of a scanner that stops moving.
    QTest::newRow("invalid UTF-8 after ASCII") << QByteArray("\"ab\xFF\"") << true << "5 Unescaped control character '0xff'";
    QTest::newRow("truncated UTF-8 sequence") << QByteArray("\"\xC3\"") << true << "5 Unescaped control character '0xc3'";
    QTest::newRow("overlong UTF-8") << QByteArray("[\"\xC0\xAF\"]") << false << "3 Expected value while parsing array / 5 Unescaped control character '0xc0'";
    QTest::newRow("UTF-8 surrogate") << QByteArray("\"\xED\xA0\x80\"") << true << "5 Unescaped control character '0xed'";
    QTest::newRow("null input") << QByteArray() << false << "12 Input was 'nil'";
    // clang-format on
}

void TestJson::readErrors() {
    QFETCH(QByteArray, input);
    QFETCH(bool, fragment);
    QFETCH(QString, trace);
    PXB_RQJSON json;
    Error error;
    const QVariant value =
        fragment ? json.fragmentWithUtf8(input, &error) : json.objectWithUtf8(input, &error);
    QVERIFY(!value.isValid());
    QCOMPARE(error.domain(), kPXBJSONErrorDomain);
    QCOMPARE(json.errorTrace().first(), error);
    QCOMPARE(messages(json.errorTrace()), trace);
    // Without an error argument the call fails just the same.
    QVERIFY(!(fragment ? json.fragmentWithUtf8(input) : json.objectWithUtf8(input)).isValid());
}

void TestJson::depthLimit_data() {
    QTest::addColumn<unsigned>("maxDepth");
    QTest::addColumn<int>("nesting");
    QTest::addColumn<bool>("ok");
    QTest::newRow("512 with the default") << 512u << 512 << true;
    QTest::newRow("513 with the default") << 512u << 513 << false;
    QTest::newRow("3 of 2") << 2u << 3 << false;
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
        QCOMPARE(json.errorTrace().last().localizedDescription(), "Nested too deep");
    }
}

void TestJson::write_data() {
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("sortKeys");
    QTest::addColumn<bool>("humanReadable");
    QTest::addColumn<QString>("expected");
    QTest::newRow("scalars") << QVariant(QVariantList{true, false, 1, -2.5, 0.1f, dec("1.50e3"),
                                                      PXB_RQJSON::null(), QVariant(),
                                                      qulonglong(18446744073709551615u)})
                             << false << false
                             << "[true,false,1,-2.5,0.1,1.50e3,null,null,18446744073709551615]";
    QTest::newRow("escaping")
        << QVariant(QVariantList{QString::fromUtf8("\"\\/\b\t\n\f\r\x01\x1f é\x7f")}) << false
        << false << QString::fromUtf8(R"(["\"\\/\b\t\n\f\r\u0001\u001f é)") + QChar(0x7f) + "\"]";
    QVariantHash hash{{"b", 1}, {"a", QVariantList{1, 2}}, {"c", QVariantMap()}};
    QTest::newRow("sorted, human-readable")
        << QVariant(hash) << true << true
        << "{\n  \"a\" : [\n    1,\n    2\n  ],\n  \"b\" : 1,\n  \"c\" : {}\n}";
    QTest::newRow("compact") << QVariant(QVariantMap{{"b", QStringList{"x"}}, {"a", QVariantMap()}})
                             << false << false << R"({"a":{},"b":["x"]})";
    QTest::newRow("empty list readable") << QVariant(QVariantList()) << false << true << "[]";
    QTest::newRow("other types as strings")
        << QVariant(QVariantList{QUrl("http://h/a b"), QByteArray("\x01\xff", 2)}) << false << false
        << R"(["http://h/a%20b","<01ff>"])";
    QTest::newRow("typed containers")
        << QVariant::fromValue(QMap<QString, int>{{"k", 3}}) << true << false << R"({"k":3})";
}

void TestJson::write() {
    QFETCH(QVariant, value);
    QFETCH(bool, sortKeys);
    QFETCH(bool, humanReadable);
    QFETCH(QString, expected);
    PXB_RQJSON json;
    json.setSortKeys(sortKeys);
    json.setHumanReadable(humanReadable);
    Error error;
    QCOMPARE(json.stringWithObject(value, &error), expected);
    QVERIFY(error.isNull());
}

void TestJson::writeErrors_data() {
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("fragment");
    QTest::addColumn<QString>("trace");
    QTest::newRow("number key") << QVariant::fromValue(QMap<int, QString>{{1, "a"}}) << false
                                << "1 JSON object key must be string";
    QTest::newRow("bad nested value")
        << QVariant(QVariantMap{{"k", QVariantList{QVariant::fromValue(QMap<int, int>{{1, 2}})}}})
        << false << "1 Unsupported value for key k in object";
    QTest::newRow("scalar top level")
        << QVariant(QStringLiteral("x")) << false << "4 Not valid type for JSON";
}

void TestJson::writeErrors() {
    QFETCH(QVariant, value);
    QFETCH(bool, fragment);
    QFETCH(QString, trace);
    PXB_RQJSON json;
    Error error;
    const QString text =
        fragment ? json.stringWithFragment(value, &error) : json.stringWithObject(value, &error);
    QVERIFY(text.isNull());
    QCOMPARE(messages(json.errorTrace()), trace);
}

void TestJson::decimalNumbers() {
    PXB_RQJSON json;
    // The fragment reader keeps the number's text exactly; booleans stay booleans.
    QCOMPARE(json.fragmentWithString("true").metaType(), QMetaType::fromType<bool>());
    const QString exact = "-12345678901234567890.123456789012345678901234567890e-7";
    QCOMPARE(json.stringWithFragment(json.fragmentWithString(exact)), exact);
    // Equal by value, however written.
    QCOMPARE(dec("1.50"), dec("15e-1"));
    QCOMPARE(dec("0"), dec("-0.0e5"));
    QVERIFY(dec("1.5") != dec("1.05"));
    QVERIFY(dec("1e400") != dec("1e-400"));
    QCOMPARE(dec("1e400").toDouble(), qInf());
    QCOMPARE(dec("-12.75").toInt(), -12);
}

void TestJson::roundTrip_data() {
    QTest::addColumn<QByteArray>("text");
    const QDir dir(qEnvironmentVariable("SORVEL_SOURCE_DIR") + "/../shared/bench-data/json");
    for (const QString& name : dir.entryList({"*.json"}, QDir::Files, QDir::Name)) {
        QFile file(dir.filePath(name));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QTest::newRow(qPrintable(name)) << file.readAll();
    }
}

void TestJson::roundTrip() {
    QFETCH(QByteArray, text);
    if (text.isEmpty()) {
        QSKIP("document not found");
    }
    for (const bool readable : {false, true}) {
        PXB_RQJSON json;
        json.setHumanReadable(readable);
        Error error;
        const QVariant first = json.objectWithUtf8(text, &error);
        QVERIFY2(error.isNull(), qPrintable(messages(json.errorTrace())));
        const QString written = json.stringWithObject(first, &error);
        QVERIFY(error.isNull());
        const QVariant second = json.objectWithString(written, &error);
        QVERIFY(error.isNull());
        QVERIFY(second == first);
        QCOMPARE(json.stringWithObject(second), written);
    }
}

void TestJson::shorthands() {
    QCOMPARE(PXBMacros::readJson("{\"a\":\"b\"}"), (std::optional<QVariantMap>({{"a", "b"}})));
    for (const QString& notAMap :
         {QStringLiteral("[1,2]"), QStringLiteral("{\"a\":}"), QString()}) {
        QVERIFY2(!PXBMacros::readJson(notAMap), qPrintable(notAMap));
    }
    QVERIFY(PXBMacros::jsonify(QVariant()).isNull());
    // What cannot be written gives an empty text, not a null one.
    QCOMPARE(PXBMacros::jsonify(QVariant::fromValue(QMap<int, int>{{1, 2}})), QString(""));
    QVERIFY(!PXBMacros::jsonify(QVariant::fromValue(QMap<int, int>{{1, 2}})).isNull());
}

QTEST_GUILESS_MAIN(TestJson)
#include "tst_json.moc"
