#include "ads/device/PXBIdentifierUtilities.h"
#include "app/Bundle.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {
// The clips of the sound board and the music track, as the board asks for them.
const QStringList kResources = {
    "who needs em.mp3",
    "spread that butter.mp3",
    "havent seen a newspaper.mp3",
    "lonely here.mp3",
    "Good News.mp3",
    "finger.m4a",
    "Young Man.m4a",
    "Tip in pocket.mp3",
    "Sweaty.m4a",
    "Thats Sounds Fun.m4a",
    "You like popsicles.mp3",
    "Why the long face.mp3",
    "Nice Muscly arm.mp3",
    "guess who.mp3",
    "hey there fella.mp3",
    "Good Lord.m4a",
    "Freezer full of popsicles.mp3",
    "Fish it out.mp3",
    "Dont make me beg.mp3",
    "Come here son.mp3",
    "buttonEffect.caf",
    "Be your lover.mp3",
};

void touch(const QString& path) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
}
}  // namespace

class TestBundle : public QObject {
    Q_OBJECT
  private slots:
    void shippedResourcesHaveTheBoardsNamesAndTypes() {
        const QDir source(qEnvironmentVariable("SORVEL_SOURCE_DIR") + "/app/resources");
        QVERIFY(source.exists());
        QStringList present = source.entryList(QDir::Files);
        QStringList expected = kResources;
        present.sort();
        expected.sort();
        QCOMPARE(present, expected);
        for (const QString& file : kResources) {
            QVERIFY2(QFileInfo(source.filePath(file)).size() > 1000, qPrintable(file));
            QVERIFY2(QFileInfo(source.filePath(file)).size() < 200 * 1024, qPrintable(file));
        }
    }

    void pathForResource_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("file");  // null: not found
        QTest::newRow("name with spaces") << "Be your lover"
                                          << "mp3"
                                          << "Be your lover.mp3";
        QTest::newRow("type in the name") << "finger.m4a"
                                          << ""
                                          << "finger.m4a";
        QTest::newRow("wrong type") << "finger"
                                    << "mp3" << QString();
        QTest::newRow("case matters") << "FINGER"
                                      << "m4a" << QString();
        QTest::newRow("missing") << "nothing"
                                 << "mp3" << QString();
        QTest::newRow("empty name") << ""
                                    << "mp3" << QString();
        QTest::newRow("a folder is not a resource") << "sub"
                                                    << "" << QString();
    }
    void pathForResource() {
        QFETCH(QString, name);
        QFETCH(QString, type);
        QFETCH(QString, file);
        QTemporaryDir dir;
        touch(dir.filePath("Be your lover.mp3"));
        touch(dir.filePath("finger.m4a"));
        QDir(dir.path()).mkdir("sub");
        const Bundle bundle(dir.path());
        QCOMPARE(bundle.resourcePath(), dir.path());
        QCOMPARE(bundle.pathForResource(name, type),
                 file.isNull() ? QString() : dir.filePath(file));
    }

    void resourceFolderFromBuildOrInstalledTree_data() {
        QTest::addColumn<QStringList>("folders");
        QTest::addColumn<QString>("found");
        QTest::newRow("build tree") << QStringList{"build/Resources"} << "build/Resources";
        QTest::newRow("installed tree")
            << QStringList{"prefix/share/brindle-sounds"} << "prefix/share/brindle-sounds";
        QTest::newRow("build tree first")
            << QStringList{"build/Resources", "share/brindle-sounds"} << "build/Resources";
        QTest::newRow("none") << QStringList{} << "build/Resources";
    }
    void resourceFolderFromBuildOrInstalledTree() {
        QFETCH(QStringList, folders);
        QFETCH(QString, found);
        qunsetenv("BRINDLE_SOUNDS_RESOURCES");
        QTemporaryDir root;
        for (const QString& folder : folders) {
            QDir(root.path()).mkpath(folder);
        }
        const QString exeDir = root.filePath(found.startsWith("prefix") ? "prefix/bin" : "build");
        QDir().mkpath(exeDir);
        QCOMPARE(Bundle::locateResourcePath(exeDir), root.filePath(found));
    }

    void environmentOverridesTheSearch() {
        QTemporaryDir elsewhere;
        qputenv("BRINDLE_SOUNDS_RESOURCES", elsewhere.path().toLocal8Bit());
        QCOMPARE(Bundle::locateResourcePath("/nonexistent"), elsewhere.path());
        qunsetenv("BRINDLE_SOUNDS_RESOURCES");
    }

    void mainBundleFindsTheCopiedResources() {
        // Suites run from the build tree; the program's folder is build/app.
        const QString exeDir = QCoreApplication::applicationDirPath() + "/../../app";
        const Bundle bundle(Bundle::locateResourcePath(exeDir));
        for (const QString& file : kResources) {
            QVERIFY2(!bundle.pathForResource(file, "").isNull(), qPrintable(file));
        }
    }

    // The facts behind the ad client's "app_name": the project's version and a reverse-DNS
    // identifier ending in the program's name.
    void applicationIdentity() {
        Bundle::setUpApplicationIdentity();
        const auto facts = PXBIdentifierUtilities::defaultEnvironment();
        QCOMPARE(facts.bundleVersion(), QStringLiteral(PROJECT_VERSION_TEXT));
        QCOMPARE(facts.bundleIdentifier(), "example.brindle.brindle-sounds");
    }
};

QTEST_GUILESS_MAIN(TestBundle)
#include "tst_bundle.moc"
