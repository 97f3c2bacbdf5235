#include "platform/crypto.h"

#include <QTest>

using namespace platform;

class TestCrypto : public QObject {
    Q_OBJECT
  private slots:
    // NIST SP 800-38A, F.2.1 and F.2.2 (CBC-AES128).
    void aes128CbcVectors() {
        const QByteArray key = QByteArray::fromHex("2b7e151628aed2a6abf7158809cf4f3c");
        const QByteArray iv = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
        const QByteArray plain = QByteArray::fromHex(
            "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
            "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
        const QByteArray cipher = QByteArray::fromHex(
            "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
            "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7");
        QCOMPARE(aes128CbcEncrypt(plain, key, iv).value(), cipher);
        QCOMPARE(aes128CbcDecrypt(cipher, key, iv).value(), plain);
        QCOMPARE(aes128CbcEncrypt(plain.left(16), key, iv).value(), cipher.left(16));
        // No padding: a partial block is refused, as are a wrong key or vector size.
        QVERIFY(!aes128CbcEncrypt(plain.left(15), key, iv));
        QVERIFY(!aes128CbcEncrypt(plain, key.left(15), iv));
        QVERIFY(!aes128CbcDecrypt(cipher, key, iv + "x"));
    }
};

QTEST_GUILESS_MAIN(TestCrypto)
#include "tst_crypto.moc"
