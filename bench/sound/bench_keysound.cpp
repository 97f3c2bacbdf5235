// Key press -> sound out: a key event on the sound board until the first audible samples reach
// the audio sink, against the same clip's decoded samples written to a bare PulseAudio stream.
// Both are heard at the monitor of a null sink on a sound server of the benchmark's own, by a
// recording thread that notes when loud samples first arrive; its own delay is in both figures.
//
// Then the sound must not wait for the ad: the same key, p50 and p95 over --presses presses, on
// the board alone (idle) and on the whole application beside it, whose banner refreshes every
// second against a sorvel-adserver on loopback.
//
//   bench_keysound [--runs N] [--presses N] [--sound INDEX]
#include "app/Bundle.h"
#include "app/DesktopAppDelegate.h"
#include "app/MainInterface.h"
#include "app/MainView.h"
#include "bench/figure.h"
#include "platform/ui/application.h"
#include "platform/ui/audioplayer.h"
#include "platform/ui/window.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <pulse/error.h>
#include <pulse/simple.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

namespace {

constexpr int kRate = 44100;

// PulseAudio's description of a stream's samples: format, rate, channels.
using SampleFormat = pa_sample_spec;
constexpr int kLoud = 256;  // a sample above this, in 16-bit units, is heard

qint64 nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

[[noreturn]] void fail(const QString& message) {
    std::fprintf(stderr, "bench_keysound: %s\n", qPrintable(message));
    std::exit(1);
}

// Listens to the sink's monitor in small fragments and remembers when sound was last and first
// heard after being armed.
class Listener {
  public:
    explicit Listener(const QByteArray& server) {
        SampleFormat format{PA_SAMPLE_S16LE, kRate, 1};
        pa_buffer_attr attr;
        attr.maxlength = uint32_t(-1);
        attr.fragsize = 64 * sizeof(int16_t);  // about 1.5 ms
        attr.tlength = attr.prebuf = attr.minreq = uint32_t(-1);
        int error = 0;
        stream_ = pa_simple_new(server.constData(), "bench_keysound", PA_STREAM_RECORD,
                                "board.monitor", "listener", &format, nullptr, &attr, &error);
        if (stream_ == nullptr) {
            fail(QStringLiteral("cannot listen: %1").arg(pa_strerror(error)));
        }
        thread_ = std::thread([this] { run(); });
    }
    ~Listener() {
        stop_ = true;
        thread_.join();
        pa_simple_free(stream_);
    }

    void arm() {
        heard_ = 0;
        armed_ = true;
    }
    qint64 heardAt() const { return heard_; }
    qint64 lastLoud() const { return lastLoud_; }

  private:
    void run() {
        int16_t samples[64];
        while (!stop_) {
            if (pa_simple_read(stream_, samples, sizeof samples, nullptr) < 0) {
                return;
            }
            const qint64 at = nowNs();
            for (const int16_t s : samples) {
                if (s > kLoud || s < -kLoud) {
                    lastLoud_ = at;
                    if (armed_.exchange(false)) {
                        heard_ = at;
                    }
                    break;
                }
            }
        }
    }

    pa_simple* stream_ = nullptr;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> armed_{false};
    std::atomic<qint64> heard_{0};
    std::atomic<qint64> lastLoud_{0};
};

// Runs the event loop until the listener hears something (ms since `start`), or -1.
double waitForSound(const Listener& listener, qint64 start) {
    QElapsedTimer limit;
    limit.start();
    while (listener.heardAt() == 0 && limit.elapsed() < 3000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    return listener.heardAt() == 0 ? -1.0 : (listener.heardAt() - start) / 1e6;
}

// Until nothing has been heard for 300 ms.
void waitForSilence(const Listener& listener) {
    while (nowNs() - listener.lastLoud() < 300'000'000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
}

// Milliseconds from `count` key presses on `target` to their sound; `stop` silences the board.
std::vector<double> pressTimes(Listener& listener, QWidget* target, const QKeySequence& key,
                               int count, const std::function<void()>& stop) {
    std::vector<double> times;
    for (int press = 0; press < count; ++press) {
        waitForSilence(listener);
        listener.arm();
        const qint64 start = nowNs();
        QTest::keyClick(target, key[0].key());
        const double heard = waitForSound(listener, start);
        stop();
        if (heard < 0) {
            fail(QStringLiteral("a key press was not heard"));
        }
        times.push_back(heard);
    }
    return times;
}

double percentile(std::vector<double> samples, double p) {
    std::sort(samples.begin(), samples.end());
    return samples.empty() ? 0.0 : samples[size_t(p * double(samples.size() - 1) + 0.5)];
}

// The figure of one percentile of `ours` against the same percentile of `idle`.
void printPercentile(const char* name, double p, const std::vector<double>& ours,
                     const std::vector<double>& idle) {
    bench::Figure f = bench::lowerIsBetter(name, {percentile(ours, p)}, {percentile(idle, p)}, 1.5);
    f.runs = int(ours.size());
    bench::print(f);
}

// A sorvel-adserver on a free loopback port serving the inventory whose ad refreshes every
// second; its root, or nothing.
QString startRefreshingServer(QProcess& server) {
    server.setProcessChannelMode(QProcess::MergedChannels);
    server.start(QStringLiteral(BENCH_ADSERVER),
                 {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("-q"),
                  QStringLiteral("--inventory"), QStringLiteral(BENCH_REFRESH_INVENTORY)});
    QByteArray output;
    while (server.waitForReadyRead(10000)) {
        output += server.readAll();
        const qsizetype at = output.indexOf("Listening on ");
        const qsizetype end = output.indexOf('\n', at);
        if (at >= 0 && end > at) {
            return QString::fromUtf8(output.mid(at + 13, end - at - 13)).trimmed();
        }
    }
    return {};
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 9;
    int presses = 30;
    int soundIndex = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        const QByteArray arg = argv[i];
        if (arg == "--runs") {
            runs = std::atoi(argv[i + 1]);
        } else if (arg == "--presses") {
            presses = std::atoi(argv[i + 1]);
        } else if (arg == "--sound") {
            soundIndex = std::atoi(argv[i + 1]);
        }
    }

    // A sound server of our own with a null sink, named before anything opens an output.
    QTemporaryDir dir;
    const QString socket = dir.filePath(QStringLiteral("native"));
    const QByteArray server = "unix:" + socket.toLocal8Bit();
    qputenv("PULSE_SERVER", server);
    QProcess daemon;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), dir.path());
    env.insert(QStringLiteral("PULSE_STATE_PATH"), dir.path());
    daemon.setProcessEnvironment(env);
    daemon.start(
        QStringLiteral("pulseaudio"),
        {QStringLiteral("--daemonize=no"), QStringLiteral("-n"),
         QStringLiteral("--exit-idle-time=-1"), QStringLiteral("--use-pid-file=no"),
         QStringLiteral("--load=module-native-protocol-unix auth-anonymous=1 socket=") + socket,
         QStringLiteral("--load=module-null-sink sink_name=board")});
    if (!daemon.waitForStarted()) {
        fail(QStringLiteral("pulseaudio does not start"));
    }
    for (int tries = 0; !QFile::exists(socket) && tries < 100; ++tries) {
        QThread::msleep(50);
    }

    platform::prepareApplication();  // the whole application runs in this process later
    QApplication app(argc, argv);
    Bundle bundle(Bundle::locateResourcePath(QStringLiteral(BENCH_APP_DIR)));
    const MainView::Sound sound = MainView::sounds().at(soundIndex);
    const QString clipPath =
        bundle.pathForResource(QString::fromLatin1(sound.clip), QString::fromLatin1(sound.type));
    const platform::DecodedAudio clip = platform::decodeAudioFile(clipPath);
    if (!clip.error.isEmpty()) {
        fail(clip.error);
    }
    Listener listener(server);

    // Ours: the board in a window, a key press through the window's shortcuts.
    std::unique_ptr<MainView> view(MainInterface::buildMainView(QRect(0, 0, 320, 460)));
    view->setBundle(&bundle);
    view->show();
    view->activateWindow();
    if (!QTest::qWaitForWindowActive(view.get())) {
        fail(QStringLiteral("the board's window is not active"));
    }
    const QKeySequence key = MainInterface::shortcutForSound(soundIndex);

    // The baseline: a bare stream, opened beforehand, with a 20 ms buffer.
    SampleFormat format{PA_SAMPLE_S16LE, uint32_t(clip.sampleRate), uint8_t(clip.channels)};
    pa_buffer_attr attr;
    attr.maxlength = attr.minreq = attr.prebuf = uint32_t(-1);
    attr.tlength = uint32_t(pa_usec_to_bytes(20'000, &format));
    attr.fragsize = uint32_t(-1);
    int error = 0;
    pa_simple* bare = pa_simple_new(server.constData(), "bench_keysound", PA_STREAM_PLAYBACK,
                                    "board", "baseline", &format, nullptr, &attr, &error);
    if (bare == nullptr) {
        fail(QStringLiteral("cannot open a bare stream: %1").arg(pa_strerror(error)));
    }
    const QByteArray head =
        clip.samples.left(qsizetype(pa_usec_to_bytes(150'000, &format)));  // enough to be heard

    std::vector<double> ours;
    std::vector<double> baseline;
    // The first round is a warm-up: the monitor's recording takes a second or two to catch up
    // with the sink after it starts.
    for (int run = 0; run < runs + 1; ++run) {
        waitForSilence(listener);
        listener.arm();
        qint64 start = nowNs();
        QTest::keyClick(view.get(), key[0].key());
        const double heard = waitForSound(listener, start);
        view->stopAllSounds();
        if (heard < 0) {
            fail(QStringLiteral("the key press was not heard"));
        }

        waitForSilence(listener);
        listener.arm();
        start = nowNs();
        pa_simple_write(bare, head.constData(), size_t(head.size()), nullptr);
        const double bareHeard = waitForSound(listener, start);
        pa_simple_drain(bare, nullptr);
        if (bareHeard < 0) {
            fail(QStringLiteral("the bare stream was not heard"));
        }
        std::fprintf(stderr, "run %d: key %.1f ms, bare stream %.1f ms\n", run, heard, bareHeard);
        if (run > 0) {
            ours.push_back(heard);
            baseline.push_back(bareHeard);
        }
    }
    pa_simple_free(bare);

    bench::Figure f = bench::lowerIsBetter(
        QStringLiteral("key press -> sound out, %1 (ms)").arg(sound.clip).toStdString(), ours,
        baseline, 1.5);
    f.target += " and < 50 ms";
    f.pass = f.pass && f.median < 50.0;
    bench::print(f);

    const auto stopBoard = [&view] { view->stopAllSounds(); };
    const std::vector<double> idle = pressTimes(listener, view.get(), key, presses, stopBoard);
    view.reset();

    // The whole application, its banner refreshing every second.
    QProcess adServer;
    const QString root = startRefreshingServer(adServer);
    if (root.isEmpty()) {
        fail(QStringLiteral("sorvel-adserver did not start"));
    }
    qputenv("BRINDLE_SOUNDS_RESOURCES", bundle.resourcePath().toLocal8Bit());  // its sounds
    AppOptions options;
    options.adServer = QUrl(root);
    options.newInstance = true;
    auto delegate = std::make_unique<DesktopAppDelegate>(options);
    MainInterface::connectOutlets(delegate.get());
    platform::Application* application = platform::Application::sharedApplication();
    application->setDelegate(delegate.get());
    application->finishLaunching();
    platform::Window* window = delegate->window();
    if (window == nullptr || !QTest::qWaitForWindowActive(window->desktopWindow())) {
        fail(QStringLiteral("the application's window is not active"));
    }
    QTest::qWait(3000);  // the first ad, and refreshes under way
    MainView* board = window->findChild<MainView*>();
    if (board == nullptr) {
        fail(QStringLiteral("the application's window has no board"));
    }
    const auto stopApp = [board] { board->stopAllSounds(); };
    const std::vector<double> refreshing = pressTimes(listener, window, key, presses, stopApp);
    for (size_t i = 0; i < idle.size() && i < refreshing.size(); ++i) {
        std::fprintf(stderr, "press %zu: idle %.1f ms, refreshing %.1f ms\n", i, idle[i],
                     refreshing[i]);
    }
    printPercentile("key press -> sound out while the ad refreshes every second, p50 (ms)", 0.5,
                    refreshing, idle);
    printPercentile("key press -> sound out while the ad refreshes every second, p95 (ms)", 0.95,
                    refreshing, idle);
    application->setDelegate(nullptr);
    delegate.reset();
    adServer.kill();
    adServer.waitForFinished();
    daemon.kill();
    daemon.waitForFinished();
    return 0;
}
