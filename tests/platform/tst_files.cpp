#include "platform/files.h"
#include "platform/propertylist.h"
#include "support/testenv.h"

#include <QDir>
#include <QTest>
#include <QTimeZone>

using namespace platform;

class TestFiles : public QObject {
    Q_OBJECT
  private slots:
    void atomicWriteAndFileTimes_data() {
        QTest::addColumn<SyncToDisk>("sync");
        QTest::newRow("synced to disk") << SyncToDisk::Yes;
        QTest::newRow("not synced (caches)") << SyncToDisk::No;
    }
    void atomicWriteAndFileTimes() {
        QFETCH(SyncToDisk, sync);
        testsupport::TempHome home;
        const QString path = home.path() + "/a/b/c/file.bin";
        Error error;
        QVERIFY(!writeFileAtomically(path, "x", &error, sync));  // no parent directory
        QCOMPARE(error.domain(), kFileErrorDomain);
        QVERIFY(createDirectory(home.path() + "/a/b/c"));
        QVERIFY(writeFileAtomically(path, "first", nullptr, sync));
        QVERIFY(writeFileAtomically(path, "second", nullptr, sync));
        QCOMPARE(readFile(path).value(), QByteArray("second"));
        // No temporary file is left beside it.
        QCOMPARE(QDir(home.path() + "/a/b/c").entryList(QDir::Files), QStringList{"file.bin"});
        QVERIFY(setFileTimes(path, 1000000000, 1234567890));
        const auto times = fileTimes(path);
        QVERIFY(times.has_value());
        QCOMPARE(times->accessTime, 1000000000);
        QCOMPARE(times->modificationTime, 1234567890);
        QVERIFY(removeFile(path));
        QVERIFY(!fileTimes(path).has_value());
        QVERIFY(!readFile(path).has_value());
    }

    void propertyListRoundTrips_data() {
        QTest::addColumn<bool>("binary");
        QTest::newRow("xml") << false;
        QTest::newRow("binary") << true;
    }
    void propertyListRoundTrips() {
        QFETCH(bool, binary);
        const QVariantMap value{
            {"int", qint64(-7)},
            {"big", qint64(1) << 40},
            {"real", 2.5},
            {"bool", true},
            {"string", QString("ünïcode")},
            {"date", QDateTime::fromSecsSinceEpoch(1600000000, Qt::UTC)},
            {"data", QByteArray("\x00\x10", 2)},
            {"array", QVariantList{qint64(1), QVariantMap{{"k", QString("v")}}}},
        };
        const QByteArray bytes =
            binary ? writePropertyListBinary(value) : writePropertyListXml(value);
        QVERIFY(!bytes.isEmpty());
        QCOMPARE(readPropertyList(bytes), QVariant(value));
    }

    void unreadablePropertyListsGiveNothing_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("truncated binary")
            << writePropertyListBinary(QVariantMap{{"a", 1}}).left(20);
        QTest::newRow("bad binary header")
            << QByteArray("bplist00\xff\xff\xff\xff\xff\xff\xff", 15);
    }
    void unreadablePropertyListsGiveNothing() {
        QFETCH(QByteArray, bytes);
        QVERIFY(!readPropertyList(bytes).isValid());
    }

    void valuesAPropertyListCannotHold() {
        QVERIFY(writePropertyListXml(QVariant()).isEmpty());
        QVERIFY(!isPropertyListValue(QVariantMap{{"url", QUrl("http://x")}}));
        QVERIFY(isPropertyListValue(QVariantList{1, "a"}));
    }
};

QTEST_GUILESS_MAIN(TestFiles)
#include "tst_files.moc"
