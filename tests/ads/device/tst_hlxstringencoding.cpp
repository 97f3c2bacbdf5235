#include "ads/device/HLXStringEncoding.h"

#include <QRandomGenerator>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

PXB_HLXStringEncoding encoding(const QString& name) {
    if (name == u"base64")
        return PXB_HLXStringEncoding::rfc4648Base64StringEncoding();
    if (name == u"websafe")
        return PXB_HLXStringEncoding::rfc4648Base64WebsafeStringEncoding();
    if (name == u"base32")
        return PXB_HLXStringEncoding::rfc4648Base32StringEncoding();
    if (name == u"base32hex")
        return PXB_HLXStringEncoding::rfc4648Base32HexStringEncoding();
    if (name == u"crockford")
        return PXB_HLXStringEncoding::crockfordBase32StringEncoding();
    if (name == u"hex")
        return PXB_HLXStringEncoding::hexStringEncoding();
    return PXB_HLXStringEncoding::binaryStringEncoding();
}

const QStringList kAllEncodings = {u"base64"_s,    u"websafe"_s, u"base32"_s, u"base32hex"_s,
                                   u"crockford"_s, u"hex"_s,     u"binary"_s};

}  // namespace

class TestHLXStringEncoding : public QObject {
    Q_OBJECT
  private slots:
    // RFC 4648, section 10, in base32: base64 and hex are held to Qt's own output in roundTrip.
    // Padding written or not, and read either way.
    void rfcVectors_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QString>("padded");
        const QList<QByteArray> inputs = {"", "f", "fo", "foo", "foob", "fooba", "foobar"};
        const QStringList expected = {
            "", "MY======", "MZXQ====", "MZXW6===", "MZXW6YQ=", "MZXW6YTB", "MZXW6YTBOI======"};
        for (int i = 0; i < inputs.size(); ++i) {
            QTest::addRow("\"%s\"", inputs[i].constData()) << inputs[i] << expected[i];
        }
    }
    void rfcVectors() {
        QFETCH(QByteArray, input);
        QFETCH(QString, padded);
        PXB_HLXStringEncoding e = PXB_HLXStringEncoding::rfc4648Base32StringEncoding();
        QString unpadded = padded;
        unpadded.remove(u'=');

        QCOMPARE(e.encode(input), padded);
        QCOMPARE(e.decode(padded), input);
        QCOMPARE(e.decode(unpadded), input);
        e.setDoPad(false);
        QCOMPARE(e.encode(input), unpadded);
        QCOMPARE(e.decode(padded), input);  // padding is still understood
    }

    // Decoding results; a null expectation means the input must be refused.
    void decode_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray refused;
        QTest::newRow("non-zero trailing bits") << u"base64"_s << u"Zh=="_s << refused;
        QTest::newRow("data after padding") << u"base64"_s << u"Zg=a"_s << refused;
        QTest::newRow("short padding") << u"base64"_s << u"Zg="_s << QByteArray("f");
        QTest::newRow("padding in a full group") << u"base64"_s << u"Zm9v="_s << QByteArray("foo");
        QTest::newRow("non-ascii") << u"base64"_s << u"Zm9vé"_s << refused;
        QTest::newRow("websafe") << u"websafe"_s << u"-_8="_s << QByteArray("\xfb\xff");
        QTest::newRow("hex odd digit") << u"hex"_s << u"FF0"_s << QByteArray("\xff");
        QTest::newRow("hex has no padding") << u"hex"_s << u"FF=="_s << refused;
        QTest::newRow("crockford O and L")
            << u"crockford"_s << u"oOLl1iI0"_s << QByteArray::fromHex("0002108420");
        QTest::newRow("binary partial byte") << u"binary"_s << u"101001010"_s << QByteArray("\xa5");
    }
    void decode() {
        QFETCH(QString, name);
        QFETCH(QString, input);
        QFETCH(QByteArray, bytes);
        const std::optional<QByteArray> result = encoding(name).decode(input);
        if (bytes.isNull()) {
            QVERIFY2(!result,
                     qPrintable(result ? QString::fromLatin1(result->toHex()) : QString()));
        } else {
            QVERIFY(result);
            QCOMPARE(result->toHex(), bytes.toHex());
        }
    }

    void alphabets_data() {
        QTest::addColumn<QString>("alphabet");
        QTest::addColumn<bool>("valid");
        QTest::newRow("two") << u"xy"_s << true;
        QTest::newRow("one") << u"x"_s << false;
        QTest::newRow("repeated") << u"abca"_s << false;
        QTest::newRow("non-ascii") << u"abcé"_s << false;
        QString all;
        for (int c = 0; c < 128; ++c)
            all += QChar(c);
        QTest::newRow("all 128") << all << true;
        QTest::newRow("256") << all + all << false;
    }
    void alphabets() {
        QFETCH(QString, alphabet);
        QFETCH(bool, valid);
        const auto e = PXB_HLXStringEncoding::stringEncodingWithString(alphabet);
        QCOMPARE(e.has_value(), valid);
        if (e) {
            const QByteArray bytes("\x00\x7f\xff\x10\x20", 5);
            QCOMPARE(e->decode(e->encode(bytes)), bytes);
        }
    }

    // Every length of partial last group, and long inputs that take the table-driven path; where
    // Qt has the same encoding, the output must match it.
    void roundTrip_data() {
        QTest::addColumn<QString>("name");
        for (const QString& name : kAllEncodings)
            QTest::newRow(qPrintable(name)) << name;
    }
    void roundTrip() {
        QFETCH(QString, name);
        PXB_HLXStringEncoding e = encoding(name);
        QRandomGenerator rng(42);
        QList<int> lengths;
        for (int n = 0; n < 40; ++n)
            lengths << n;
        lengths << 4095 << 4096 << 5003;
        for (const int n : lengths) {
            QByteArray bytes(n, Qt::Uninitialized);
            for (char& b : bytes)
                b = static_cast<char>(rng.bounded(256));
            e.setDoPad(true);
            const QByteArray reference = name == u"base64" ? bytes.toBase64()
                                         : name == u"websafe"
                                             ? bytes.toBase64(QByteArray::Base64UrlEncoding)
                                         : name == u"hex" ? bytes.toHex().toUpper()
                                                          : QByteArray();
            if (!reference.isNull())
                QCOMPARE(e.encode(bytes).toLatin1(), reference);
            for (bool pad : {true, false}) {
                e.setDoPad(pad);
                QCOMPARE(e.decode(e.encode(bytes)), bytes);
            }
        }
    }

    void stringsAreUtf8() {
        const auto e = PXB_HLXStringEncoding::rfc4648Base64StringEncoding();
        const QString text = u"Zürich"_s;
        QCOMPARE(e.encodeString(text), QString::fromLatin1(text.toUtf8().toBase64()));
        QCOMPARE(e.stringByDecoding(e.encodeString(text)), text);
        QVERIFY(!e.stringByDecoding(u"Zh=="_s));
    }
};

QTEST_GUILESS_MAIN(TestHLXStringEncoding)
#include "tst_hlxstringencoding.moc"
