#include "app/Bundle.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {
void touch(const QString& path) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
}
}  // namespace

class TestBundle : public QObject {
    Q_OBJECT
  private slots:
    void pathForResource_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("file");  // null: not found
        // clang-format off
        QTest::newRow("type in the name") << "finger.m4a" << "" << "finger.m4a";
        QTest::newRow("wrong type") << "finger" << "mp3" << QString();
        QTest::newRow("case matters") << "FINGER" << "m4a" << QString();
        QTest::newRow("empty name") << "" << "mp3" << QString();
        QTest::newRow("a folder is not a resource") << "sub" << "" << QString();
        // clang-format on
    }
    void pathForResource() {
        QFETCH(QString, name);
        QFETCH(QString, type);
        QFETCH(QString, file);
        QTemporaryDir dir;
        touch(dir.filePath("finger.m4a"));
        QDir(dir.path()).mkdir("sub");
        const Bundle bundle(dir.path());
        QCOMPARE(bundle.pathForResource(name, type),
                 file.isNull() ? QString() : dir.filePath(file));
    }

    // The build tree alone is where every board suite and end-to-end run finds its clips.
    void resourceFolderFromBuildOrInstalledTree_data() {
        QTest::addColumn<QStringList>("folders");
        QTest::addColumn<QString>("found");
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
};

QTEST_GUILESS_MAIN(TestBundle)
#include "tst_bundle.moc"
