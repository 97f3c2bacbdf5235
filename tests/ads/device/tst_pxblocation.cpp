#include "ads/device/HLXStringEncoding.h"
#include "ads/device/PXBLocation.h"
#include "platform/crypto.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <QtEndian>

using namespace Qt::StringLiterals;

namespace {

QByteArray websafeDecode(const QString& text) {
    return PXB_HLXStringEncoding::rfc4648Base64WebsafeStringEncoding().decode(text).value_or(
        QByteArray());
}

// Decrypts the way the ad server would, with the command-line cipher rather than the library's.
QByteArray decryptWithOpenssl(const QByteArray& cipherText, const QByteArray& key,
                              const QByteArray& iv) {
    QProcess openssl;
    openssl.start(u"openssl"_s,
                  {u"enc"_s, u"-d"_s, u"-aes-128-cbc"_s, u"-nopad"_s, u"-K"_s,
                   QString::fromLatin1(key.toHex()), u"-iv"_s, QString::fromLatin1(iv.toHex())});
    openssl.write(cipherText);
    openssl.closeWriteChannel();
    if (!openssl.waitForFinished(10000) || openssl.exitCode() != 0) {
        return {};
    }
    return openssl.readAllStandardOutput();
}

}  // namespace

class TestPXBLocation : public QObject {
    Q_OBJECT
  private slots:
    void init() { qunsetenv(PXBLocation::kLocationKeyVariable); }

    // An ordinary place is sent with a later ad end to end.
    void creation_data() {
        QTest::addColumn<float>("latitude");
        QTest::addColumn<float>("longitude");
        QTest::addColumn<bool>("precise");
        QTest::newRow("corner") << 90.0f << -180.0f << true;
        QTest::newRow("prime meridian") << 10.0f << 0.0f << false;
        QTest::newRow("within epsilon") << 1e-8f << 10.0f << false;
        QTest::newRow("latitude beyond 90") << 90.001f << 10.0f << false;
        QTest::newRow("longitude beyond 180") << 10.0f << -180.01f << false;
    }
    void creation() {
        QFETCH(float, latitude);
        QFETCH(float, longitude);
        QFETCH(bool, precise);
        const auto location = PXBLocation::initWithLatitude(latitude, longitude, 10);
        QCOMPARE(location.has_value(), precise);
        if (location) {
            QVERIFY(location->isPreciseLocation());
            QCOMPARE(location->description(),
                     QString::asprintf("%f,%f", double(latitude), double(longitude)));
        }
    }

    // Equal in place (or description) and accuracy; the time a reading was taken is not
    // compared.
    void descriptionsAndEquality() {
        QVERIFY(!PXBLocation::initWithDescription(u""_s));
        const auto paris = PXBLocation::initWithDescription(u"Paris"_s);
        QVERIFY(paris && !paris->isPreciseLocation());
        QVERIFY(std::abs(paris->timestamp() - QDateTime::currentMSecsSinceEpoch() / 1000.0) < 5);
        const auto a = *PXBLocation::initWithLatitude(48.5f, 2.25f, 10);
        auto b = *PXBLocation::initWithLatitude(48.5f, 2.25f, 10);
        b.setTimestamp(1);
        QVERIFY(a.isEqual(b));
        QVERIFY(!a.isEqual(*PXBLocation::initWithLatitude(48.5f, 2.25f, 11)));
        QVERIFY(!a.isEqual(*paris));
        QVERIFY(!paris->isEqual(*PXBLocation::initWithDescription(u"Lyon"_s)));
    }

    void textForm_data() {
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("sent");
        QTest::newRow("double quote") << u"Le \"Marais\""_s << u"\"Le 'Marais'\""_s;
        QTest::newRow("non-ascii") << u"Zürich"_s << u"\"Zürich\""_s;
    }
    void textForm() {
        QFETCH(QString, place);
        QFETCH(QString, sent);
        auto location = *PXBLocation::initWithDescription(place);
        location.setTimestamp(1300000000.0);
        const QString form = location.oolongRepresentation();
        QVERIFY(form.startsWith(u"a+"_s));
        QVERIFY(!form.contains(u'='));
        QCOMPARE(QString::fromUtf8(websafeDecode(form.mid(2))),
                 u"role: 6 producer: 24 historical_role: 1 historical_producer: 12 "
                 "timestamp: 1300000000000000 loc: "_s +
                     sent);
    }

    // A text that fills its last block (a whole block of padding) is read back by the ad server end
    // to end.
    void encryptedForm_data() {
        QTest::addColumn<float>("latitude");
        QTest::addColumn<float>("longitude");
        QTest::addColumn<float>("accuracy");
        QTest::addColumn<double>("timestamp");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QList<qint32>>("ivWords");
        const QString fixed =
            u"role: 6 producer: 24 historical_role: 1 historical_producer: 12 timestamp: "_s;
        const qint32 max = 2147483647;
        QTest::newRow("negative, radius saturates")
            << -33.75f << 151.125f << 3000000.0f << 1300000000.0
            << fixed +
                   u"1300000000000000 latlng <latitude_e7: -337500000 longitude_e7: "
                   "1511250000> radius: 2147483647"_s
            << QList<qint32>{1300000000, max, max, max};
        QTest::newRow("early time, no saturation")
            << 90.0f << -180.0f << 100.0f << 1000.75
            << fixed +
                   u"1000750000 latlng <latitude_e7: 900000000 longitude_e7: -1800000000> "
                   "radius: 100000"_s
            << QList<qint32>{1000, 2001, 3002, 4003};
    }
    void encryptedForm() {
        QFETCH(float, latitude);
        QFETCH(float, longitude);
        QFETCH(float, accuracy);
        QFETCH(double, timestamp);
        QFETCH(QString, text);
        QFETCH(QList<qint32>, ivWords);
        if (QStandardPaths::findExecutable(u"openssl"_s).isEmpty()) {
            QSKIP("the openssl command is not installed");
        }
        auto location = *PXBLocation::initWithLatitude(latitude, longitude, accuracy);
        location.setTimestamp(timestamp);
        const QString form = location.oolongRepresentation();
        QVERIFY(form.startsWith(u"e1+"_s));
        QVERIFY(!form.contains(u'='));
        const QByteArray buffer = websafeDecode(form.mid(3));
        QVERIFY(buffer.size() > 16);
        QCOMPARE(buffer.size() % 16, 0);

        const QByteArray iv = buffer.left(16);
        for (int k = 0; k < 4; ++k) {
            QCOMPARE(qFromLittleEndian<qint32>(iv.constData() + 4 * k), ivWords[k]);
        }
        const QByteArray plain = decryptWithOpenssl(
            buffer.mid(16), QByteArray::fromHex(PXBLocation::kDefaultLocationKeyHex), iv);
        const qsizetype padding = 16 - text.size() % 16;
        QCOMPARE(plain, text.toUtf8() + QByteArray(padding, char(padding)));
    }

    void keyFromEnvironment() {
        auto location = *PXBLocation::initWithLatitude(48.5f, 2.25f, 50.0f);
        const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
        qputenv(PXBLocation::kLocationKeyVariable, key.toHex().toUpper());
        QCOMPARE(PXBLocation::locationKey(), key);
        const QByteArray buffer = websafeDecode(location.oolongRepresentation().mid(3));
        const auto plain = platform::aes128CbcDecrypt(buffer.mid(16), key, buffer.left(16));
        QVERIFY(plain && plain->startsWith("role: 6 "));

        // A value that is not 32 hexadecimal digits leaves the built-in key in force.
        const QByteArray builtIn = QByteArray::fromHex(PXBLocation::kDefaultLocationKeyHex);
        for (const QByteArray& bad : {QByteArray("0102"), key.toHex().replace('0', 'g')}) {
            qputenv(PXBLocation::kLocationKeyVariable, bad);
            QCOMPARE(PXBLocation::locationKey(), builtIn);
        }
    }
};

QTEST_GUILESS_MAIN(TestPXBLocation)
#include "tst_pxblocation.moc"
