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

    // Samples are kept once decoded, but a file replaced on disk is read anew.
    void aSoundFileReplacedOnDiskIsReadAnew() {
        QTemporaryDir dir;
        const QString path = dir.filePath("pad.mp3");
        const QUrl url = QUrl::fromLocalFile(path);
        auto replaceWith = [&](const QByteArray& contents) {
            QFile file(path);
            return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                   file.write(contents) == contents.size();
        };
        auto bytesOf = [](const QUrl& source) {
            QFile file(source.toLocalFile());
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        };
        auto durationOf = [](const QUrl& source) {
            auto player = AudioPlayer::withContentsOfURL(source);
            return player != nullptr ? player->duration() : -1.0;
        };
        const double first = durationOf(clip("clip.mp3"));
        const double second = durationOf(clip("tail.mp3"));
        QVERIFY(first > 0 && second > 0 && first != second);
        QVERIFY(replaceWith(bytesOf(clip("clip.mp3"))));
        QCOMPARE(durationOf(url), first);
        QCOMPARE(durationOf(url), first);
        QVERIFY(replaceWith(bytesOf(clip("tail.mp3"))));
        QCOMPARE(durationOf(url), second);
        QVERIFY(replaceWith("<html>no longer a sound</html>"));
        QVERIFY(AudioPlayer::withContentsOfURL(url) == nullptr);
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

    // The board's stop-all: rewound, nobody told.
    void stopRewindsTellingNoOne() {
        FinishDelegate delegate;
        std::weak_ptr<AudioPlayer> weak;
        {
            auto player = AudioPlayer::withContentsOfURL(clip("clip.caf"));
            weak = player;
            player->setDelegate(&delegate);
            player->setNumberOfLoops(-1);
            QVERIFY(player->play());
            QTRY_VERIFY(player->currentTime() > 0.05);
            player->stop();
            QVERIFY(!player->isPlaying());
            QCOMPARE(player->currentTime(), 0.0);
        }
        // Stopped, it let go of itself: freed, it can report nothing any more.
        QTRY_VERIFY(weak.expired());
        QCOMPARE(delegate.finished + delegate.failed, 0);
    }
};

SORVEL_UI_TEST_MAIN(TestAudioPlayer)
#include "tst_audioplayer.moc"
