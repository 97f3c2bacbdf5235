#include "platform/userdefaults.h"
#include "support/testenv.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>

using namespace platform;

class TestUserDefaults : public QObject {
    Q_OBJECT
  private slots:
    // Every kind of value is kept (the property list itself is tested with the files); typed
    // readers give nothing for a missing or mismatched value, registered defaults stand in for
    // removed ones.
    void valuesSurviveAReloadAndMismatchesGiveNothing() {
        testsupport::TempHome home;
        QVERIFY(UserDefaults::defaultFilePath().startsWith(home.path()));  // XDG_CONFIG_HOME
        const QString path = home.path() + "/defaults.plist";
        const QVariantMap nested{{"list", QVariantList{1, 2.5, "x", QVariantMap{{"deep", true}}}}};
        {
            UserDefaults d(path);
            d.setDoubleForKey(0.1, "double");
            d.setObjectForKey(QByteArray("\x00\x01\xff", 3), "data");
            d.setObjectForKey(nested, "dict");
            d.setObjectForKey("12", "numeric string");
            d.setObjectForKey(QVariantList{1}, "list");
            d.registerDefaults({{"lang", QVariantList{"en"}}, {"k", 1}});
            d.setIntegerForKey(5, "k");
            QCOMPARE(d.integerForKey("k"), 5);
            d.removeObjectForKey("k");
            QCOMPARE(d.integerForKey("k"), 1);
            QCOMPARE(d.arrayForKey("lang"), QVariantList{"en"});
            QVERIFY(d.synchronize());
        }
        UserDefaults d(path);
        QCOMPARE(d.doubleForKey("double"), 0.1);
        QCOMPARE(d.dataForKey("data"), QByteArray("\x00\x01\xff", 3));
        QCOMPARE(d.dictionaryForKey("dict"), nested);
        QCOMPARE(d.integerForKey("numeric string"), 12);
        QCOMPARE(d.integerForKey("missing"), 0);
        QCOMPARE(d.floatForKey("missing"), 0.0f);
        QVERIFY(!d.objectForKey("missing").isValid());
        QVERIFY(d.dictionaryForKey("list").isEmpty() && d.stringForKey("list").isEmpty());
        d.setObjectForKey(QVariant(), "list");  // a null value is a removal
        QVERIFY(!d.objectForKey("list").isValid());
    }

    // A writer killed at random points must always leave a complete, self-consistent store.
    void killedWriterLeavesReadableContents() {
        testsupport::TempHome home;
        const QString path = home.path() + "/killed.plist";
        const QString writer = QCoreApplication::applicationDirPath() + "/defaults_writer";
        qint64 lastGeneration = 0;
        for (int round = 0; round < 8; ++round) {
            QFile::remove(path + ".started");
            QProcess process;
            process.start(writer, {path});
            QVERIFY(process.waitForStarted());
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path + ".started"), 20000);
            QTest::qWait(QRandomGenerator::global()->bounded(5, 60));
            ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
            QVERIFY(process.waitForFinished());

            UserDefaults d(path);
            QVERIFY2(!QFile::exists(path + ".unreadable"), "store was corrupted by the kill");
            const qint64 generation = d.integerForKey("generation");
            QVERIFY(generation >= lastGeneration && generation > 0);
            QCOMPARE(d.dataForKey("blob"),
                     QByteArray(512 * 1024, static_cast<char>('a' + generation % 26)));
            QCOMPARE(d.dictionaryForKey("dict").value("nested").toList().value(0).toLongLong(),
                     generation);
            lastGeneration = generation;
        }
    }
};

QTEST_GUILESS_MAIN(TestUserDefaults)
#include "tst_userdefaults.moc"
