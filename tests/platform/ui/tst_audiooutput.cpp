// The player against a sound server of the suite's own, listened to at its sink's monitor: an
// output that appears after start-up is used, a clip is heard to its last sample before the
// player reports its end, and a server that goes away while a clip plays ends the sound without
// bringing the application down.
#include "platform/ui/audiooutput.h"
#include "platform/ui/audioplayer.h"
#include "uitestmain.h"

#include <QDataStream>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtEndian>

#include <cmath>

using namespace platform;

namespace {

class FinishDelegate : public AudioPlayerDelegate {
  public:
    void audioPlayerDidFinishPlayingSuccessfully(AudioPlayer*, bool ok) override {
        (ok ? finished : failed) += 1;
    }
    int finished = 0;
    int failed = 0;
};

// A mono 16-bit 22.05 kHz WAV: `soft` seconds of a soft 440 Hz tone, then a tenth of a second of
// a loud 2 kHz one, the clip's last sound. data/tail.mp3 and data/tail.m4a hold the clip with
// half a second of the soft tone, encoded as app/make-sounds encodes the board's clips.
QByteArray tailClip(double soft) {
    constexpr int rate = 22050;
    QByteArray samples;
    auto tone = [&](double seconds, double hz, double level) {
        for (int i = 0; i < int(seconds * rate); ++i) {
            const qint16 value = qToLittleEndian(
                qint16(std::lround(level * 32767 * std::sin(2 * M_PI * hz * i / rate))));
            samples.append(reinterpret_cast<const char*>(&value), 2);
        }
    };
    tone(soft, 440, 0.1);
    tone(0.1, 2000, 0.8);
    QByteArray wav;
    QDataStream out(&wav, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << quint32(36 + samples.size());
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(1) << quint32(rate) << quint32(rate * 2)
        << quint16(2) << quint16(16);
    out.writeRawData("data", 4);
    out << quint32(samples.size());
    return wav + samples;
}

// Milliseconds of the loud tone in a recording (mono 16-bit at 44.1 kHz): 5 ms windows whose
// level stands far above the soft part's.
int loudMilliseconds(const QByteArray& recording) {
    const auto* samples = reinterpret_cast<const qint16*>(recording.constData());
    const qsizetype count = recording.size() / 2;
    constexpr int window = 44100 / 200;
    int loud = 0;
    for (qsizetype start = 0; start + window <= count; start += window) {
        double sum = 0;
        for (int i = 0; i < window; ++i) {
            const double s = qFromLittleEndian(samples[start + i]);
            sum += s * s;
        }
        loud += std::sqrt(sum / window) > 0.4 * 32767 ? 5 : 0;
    }
    return loud;
}

QUrl dataClip(const QString& name) {
    return QUrl::fromLocalFile(qEnvironmentVariable("SORVEL_SOURCE_DIR") +
                               QStringLiteral("/tests/platform/ui/data/") + name);
}

}  // namespace

class TestAudioOutput : public QObject {
    Q_OBJECT
  private:
    QTemporaryDir dir;
    QString server;  // the address clients use
    QProcess daemon;
    QUrl wav;
    QUrl shortWav;

    bool pactl(const QStringList& arguments) {
        QProcess tool;
        tool.setStandardOutputFile(QProcess::nullDevice());
        tool.setStandardErrorFile(QProcess::nullDevice());
        tool.start(QStringLiteral("pactl"), QStringList{QStringLiteral("-s"), server} + arguments);
        return tool.waitForFinished() && tool.exitStatus() == QProcess::NormalExit &&
               tool.exitCode() == 0;
    }

  private slots:
    void initTestCase() {
        for (const char* tool : {"pulseaudio", "pactl", "parec"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty()) {
                QSKIP("needs the PulseAudio daemon and its tools (scripts/setup installs them)");
            }
        }
        QVERIFY(dir.isValid());
        const QString socket = dir.filePath(QStringLiteral("native"));
        server = QStringLiteral("unix:") + socket;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), dir.path());
        env.insert(QStringLiteral("PULSE_STATE_PATH"), dir.path());
        daemon.setProcessEnvironment(env);
        daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        // No sink yet: the first test adds one while the application runs.
        daemon.start(
            QStringLiteral("pulseaudio"),
            {QStringLiteral("--daemonize=no"), QStringLiteral("-n"),
             QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--use-pid-file=no"),
             QStringLiteral("--load=module-native-protocol-unix auth-anonymous=1 socket=") +
                 socket});
        QVERIFY(daemon.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(pactl({QStringLiteral("info")}), 10000);
        // Qt's audio connects to the server named here when it is first used, which is below.
        qputenv("PULSE_SERVER", server.toLocal8Bit());

        for (auto [url, name, soft] :
             {std::tuple{&wav, "tail.wav", 0.5}, std::tuple{&shortWav, "tone.wav", 0.0}}) {
            QFile file(dir.filePath(QString::fromLatin1(name)));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(tailClip(soft));
            *url = QUrl::fromLocalFile(file.fileName());
        }
    }

    void cleanupTestCase() {
        if (daemon.state() != QProcess::NotRunning) {
            daemon.kill();
            daemon.waitForFinished();
        }
    }

    void anOutputThatAppearsLaterIsUsed() {
        QVERIFY(!defaultAudioOutput().has_value());
        auto player = AudioPlayer::withContentsOfURL(wav);
        QVERIFY(player != nullptr);
        FinishDelegate delegate;
        player->setDelegate(&delegate);
        QTest::ignoreMessage(QtInfoMsg, "No audio output: tail.wav is not played");
        QVERIFY(!player->play());
        QVERIFY(!player->isPlaying());

        QVERIFY(pactl({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                       QStringLiteral("sink_name=board")}));
        QTRY_VERIFY(defaultAudioOutput().has_value());
        QVERIFY(player->play());
        QTRY_COMPARE_WITH_TIMEOUT(delegate.finished, 1, 5000);
    }

    void theLastSamplesAreHeard_data() {
        QTest::addColumn<QUrl>("clip");
        QTest::newRow("wav") << wav;
        QTest::newRow("wav, shorter than the output's buffer") << shortWav;
        QTest::newRow("mp3") << dataClip(QStringLiteral("tail.mp3"));
        QTest::newRow("m4a") << dataClip(QStringLiteral("tail.m4a"));
    }
    void theLastSamplesAreHeard() {
        QFETCH(QUrl, clip);
        QByteArray recording;
        QProcess recorder;
        connect(&recorder, &QProcess::readyReadStandardOutput, this,
                [&] { recording += recorder.readAllStandardOutput(); });
        recorder.start(QStringLiteral("parec"),
                       {QStringLiteral("-s"), server, QStringLiteral("-d"),
                        QStringLiteral("board.monitor"), QStringLiteral("--raw"),
                        QStringLiteral("--format=s16le"), QStringLiteral("--channels=1"),
                        QStringLiteral("--rate=44100"), QStringLiteral("--latency-msec=10")});
        QTRY_VERIFY(!recording.isEmpty());  // listening

        auto player = AudioPlayer::withContentsOfURL(clip);
        QVERIFY(player != nullptr);
        FinishDelegate delegate;
        player->setDelegate(&delegate);
        QVERIFY(player->play());
        QTRY_COMPARE_WITH_TIMEOUT(delegate.finished, 1, 5000);
        // The tone lasts 100 ms; lossy encoders soften its edges by a window or two.
        QTRY_VERIFY2_WITH_TIMEOUT(loudMilliseconds(recording) >= 90,
                                  qPrintable(QStringLiteral("heard %1 ms of the final 100 ms tone")
                                                 .arg(loudMilliseconds(recording))),
                                  3000);
        qInfo("heard %d ms of the final 100 ms tone", loudMilliseconds(recording));
        recorder.kill();
        recorder.waitForFinished();
    }

    void aServerThatGoesAwayEndsTheSound() {
        auto player = AudioPlayer::withContentsOfURL(wav);
        FinishDelegate delegate;
        player->setDelegate(&delegate);
        player->setNumberOfLoops(-1);
        QVERIFY(player->play());
        QTRY_VERIFY(player->currentTime() > 0.1);

        QTest::ignoreMessage(QtInfoMsg, "Audio output lost: tail.wav stopped");
        daemon.kill();
        daemon.waitForFinished();
        QTRY_COMPARE_WITH_TIMEOUT(delegate.failed, 1, 5000);
        QVERIFY(!player->isPlaying());
        // The output may still be listed; opening it fails, and says so.
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("tail.wav is not played$"));
        QVERIFY(!player->play());
    }
};

SORVEL_UI_TEST_MAIN(TestAudioOutput)
#include "tst_audiooutput.moc"
