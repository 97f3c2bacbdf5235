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
    // Values are kept (the property list itself is tested with the files); typed readers give
    // nothing for a mismatched value, registered defaults stand in for removed ones.
    void valuesSurviveAReloadAndMismatchesGiveNothing() {
        testsupport::TempHome home;
        QVERIFY(UserDefaults::defaultFilePath().startsWith(home.path()));  // XDG_CONFIG_HOME
        const QString path = home.path() + "/defaults.plist";
        const QVariantMap nested{{"list", QVariantList{1, 2.5, "x", QVariantMap{{"deep", true}}}}};
        {
            UserDefaults d(path);
            d.setFloatForKey(0.5f, "float");
            d.setObjectForKey(nested, "dict");
            d.setObjectForKey(QVariantList{1}, "list");
            d.registerDefaults({{"lang", QVariantList{"en"}}, {"k", 1}});
            d.setObjectForKey(5, "k");
            d.removeObjectForKey("k");
            QCOMPARE(d.objectForKey("k"), QVariant(1));
            QCOMPARE(d.arrayForKey("lang"), QVariantList{"en"});
            QVERIFY(d.synchronize());
        }
        UserDefaults d(path);
        QCOMPARE(d.objectForKey("float").toDouble(), 0.5);
        QCOMPARE(d.dictionaryForKey("dict"), nested);
        QVERIFY(d.dictionaryForKey("list").isEmpty() && d.arrayForKey("dict").isEmpty());
        d.setObjectForKey(QVariant(), "list");  // a null value is a removal
        QVERIFY(!d.objectForKey("list").isValid());
    }

    // Storing what is there already writes nothing (the file, removed behind the store's back,
    // stays away); the same number of another type is a change.
    void onlyChangesAreWritten() {
        testsupport::TempHome home;
        const QString path = home.path() + "/same.plist";
        UserDefaults d(path);
        d.setObjectForKey(QVariantMap{{"launches", 1}}, "stats");
        d.setObjectForKey(1, "n");
        QVERIFY(d.synchronize());
        QVERIFY(QFile::remove(path));
        d.setObjectForKey(QVariantMap{{"launches", 1}}, "stats");
        d.setObjectForKey(1, "n");
        QVERIFY(d.synchronize());
        QVERIFY(!QFile::exists(path));
        d.setObjectForKey(1.0, "n");
        QVERIFY(d.synchronize());
        QCOMPARE(UserDefaults(path).objectForKey("n").metaType().id(), QMetaType::Double);
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
            const qint64 generation = d.objectForKey("generation").toLongLong();
            QVERIFY(generation >= lastGeneration && generation > 0);
            QCOMPARE(d.objectForKey("blob").toByteArray(),
                     QByteArray(512 * 1024, static_cast<char>('a' + generation % 26)));
            QCOMPARE(d.dictionaryForKey("dict").value("nested").toList().value(0).toLongLong(),
                     generation);
            lastGeneration = generation;
        }
    }
};

QTEST_GUILESS_MAIN(TestUserDefaults)
#include "tst_userdefaults.moc"
