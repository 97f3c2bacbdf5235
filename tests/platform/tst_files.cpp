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
    // Synced to disk; the caches' unsynced writes are proven end to end (the cached script), file
    // times by the cached file's suite.
    void atomicWrite() {
        testsupport::TempHome home;
        const QString path = home.path() + "/a/b/c/file.bin";
        Error error;
        QVERIFY(!writeFileAtomically(path, "x", &error));  // no parent directory
        QCOMPARE(error.domain(), kFileErrorDomain);
        QVERIFY(createDirectory(home.path() + "/a/b/c"));
        QVERIFY(writeFileAtomically(path, "first"));
        QVERIFY(writeFileAtomically(path, "second"));
        QCOMPARE(readFile(path).value(), QByteArray("second"));
        // No temporary file is left beside it.
        QCOMPARE(QDir(home.path() + "/a/b/c").entryList(QDir::Files), QStringList{"file.bin"});
        QVERIFY(removeFile(path));
        QVERIFY(!readFile(path).has_value());
    }

    void propertyListRoundTrips() {
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
        QCOMPARE(readPropertyList(writePropertyListXml(value)), QVariant(value));
    }

    // Nothing read from an empty file or a damaged binary header (settings cut short are proven
    // end to end, by a damaged profile), and nothing written for what a property list cannot hold.
    void whatAPropertyListCannotReadOrHold() {
        QVERIFY(!readPropertyList(QByteArray()).isValid());
        QVERIFY(
            !readPropertyList(QByteArray("bplist00\xff\xff\xff\xff\xff\xff\xff", 15)).isValid());
        QVERIFY(writePropertyListXml(QVariant()).isEmpty());
        QVERIFY(!isPropertyListValue(QVariantMap{{"url", QUrl("http://x")}}));
        QVERIFY(isPropertyListValue(QVariantList{1, "a"}));
    }
};

QTEST_GUILESS_MAIN(TestFiles)
#include "tst_files.moc"
