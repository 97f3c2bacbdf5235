// A program on the shared platform library loads FFmpeg with the audio decoder module, which lies
// beside that library, at its first sound and not before. (The static platform, which the other
// suites link, has the decoder linked in.)
#include "platform/ui/audioplayer.h"

#include <QFile>
#include <QTest>

namespace {

bool ffmpegLoaded() {
    QFile maps(QStringLiteral("/proc/self/maps"));
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libavcodec");
}

}  // namespace

class TestAudioModule : public QObject {
    Q_OBJECT
  private slots:
    void theDecoderComesWithTheFirstSound() {
        QVERIFY(!ffmpegLoaded());
        const platform::DecodedAudio clip = platform::decodeAudioFile(QStringLiteral(SOUND_FILE));
        QVERIFY2(clip.error.isEmpty(), qPrintable(clip.error));
        QVERIFY(clip.sampleRate > 0 && !clip.samples.isEmpty());
        QVERIFY(ffmpegLoaded());
        // The module decodes, and refuses, as the linked decoder does.
        const platform::DecodedAudio text = platform::decodeAudioFile(QStringLiteral(TEXT_FILE));
        QVERIFY2(text.error.startsWith(QStringLiteral("Not an audio file")),
                 qPrintable(text.error));
    }
};

QTEST_GUILESS_MAIN(TestAudioModule)
#include "tst_audiomodule.moc"
