#include "platform/ui/audioplayer.h"
#include "uitestmain.h"

#include <QTemporaryDir>

using namespace platform;

namespace {

class FinishDelegate : public AudioPlayerDelegate {
  public:
    void audioPlayerDidFinishPlayingSuccessfully(AudioPlayer*, bool ok) override {
        finished += ok ? 1 : 0;
        failed += ok ? 0 : 1;
    }
    int finished = 0;
    int failed = 0;
};

QUrl clip(const QString& name) {
    return QUrl::fromLocalFile(qEnvironmentVariable("SORVEL_SOURCE_DIR") +
                               QStringLiteral("/tests/platform/ui/data/") + name);
}

}  // namespace

class TestAudioPlayer : public QObject {
    Q_OBJECT
  private slots:
    void missingOrUnreadableFilesGiveNoPlayer_data() {
        QTest::addColumn<QByteArray>("contents");  // empty: no file at all
        QByteArray noise(3000, 0);
        for (int i = 0; i < noise.size(); ++i) {
            noise[i] = char((i * 7919) >> 3);
        }
        QTest::newRow("missing") << QByteArray();
        QTest::newRow("not audio") << QByteArray("<html>not a sound</html>");
        QTest::newRow("mp3 tag, then noise") << "ID3" + noise;
        QTest::newRow("mpeg-4 without its index")
            << QByteArray::fromHex("00000018") + "ftypM4A " + noise;
        QTest::newRow("wave header, no samples") << QByteArray(
            "RIFF\x24\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x22\x56\0\0"
            "\x44\xac\0\0\x02\0\x10\0data\0\0\0\0",
            44);
    }
    void missingOrUnreadableFilesGiveNoPlayer() {
        QFETCH(QByteArray, contents);
        QTemporaryDir dir;
        const QString path = dir.filePath("sound.mp3");
        if (!contents.isEmpty()) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(contents);
        }
        Error error;
        QVERIFY(AudioPlayer::withContentsOfURL(QUrl::fromLocalFile(path), &error) == nullptr);
        QVERIFY(!error.isNull());
    }

    // A player nobody holds plays to its end, tells of it once, then is freed.
    void releasedPlayerPlaysToItsEndThenIsFreed() {
        FinishDelegate delegate;
        std::weak_ptr<AudioPlayer> weak;
        QList<bool> endings;
        {
            auto player = AudioPlayer::withContentsOfURL(clip("clip.mp3"));
            QVERIFY(player != nullptr);
            QVERIFY(player->duration() > 0.3 && player->duration() < 0.6);
            player->setDelegate(&delegate);
            connect(player.get(), &AudioPlayer::finished, this,
                    [&](bool ok) { endings.append(ok); });
            QVERIFY(player->play());
            weak = player;
        }
        QVERIFY(!weak.expired());  // nobody holds it, yet it plays
        QVERIFY(weak.lock()->isPlaying());
        QTRY_COMPARE_WITH_TIMEOUT(delegate.finished, 1, 5000);
        QCOMPARE(endings, QList<bool>{true});
        QTRY_VERIFY(weak.expired());
        QCOMPARE(delegate.failed, 0);
    }
};

SORVEL_UI_TEST_MAIN(TestAudioPlayer)
#include "tst_audioplayer.moc"
