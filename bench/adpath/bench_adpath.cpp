// The ad path timed from outside the process: the real brindle-sounds program against a
// sorvel-adserver on loopback, each figure next to a baseline measured in the same run by
// bench_adpath_baseline, which only starts the web engine and loads the same ad page into one
// view. A time is taken when the child's line arrives on its output pipe, for the app and the
// baseline alike, from just before the child is started.
//
// Figures (one line each, see bench/figure.h; details of every run go to stderr):
//   launch -> board drawn      process start -> the window's first paint ("board on screen");
//                              baseline: bench_plain_window, a bare Qt Widgets window of the
//                              same size
//   launch -> first ad, cold   fresh profile (XDG dirs in a new temporary folder): the support
//                              script is fetched; baseline: fresh profile, process start -> load
//   launch -> first ad, warm   the same profile again: the script comes from the cache
//   refresh -> next ad         "Refreshing the ad" -> "ad shown" in one process (refresh every
//                              second); baseline: the same view reloading the same ad page
//   idle CPU                   utime + stime of the process and its web engine children over
//                              --idle-seconds with an ad shown and no refresh due
//
//   tracker memory             PSS growth of the app and its helpers over 50 ads whose 20
//                              trackers each answer 8 MiB; baseline: the same with ordinary
//                              trackers
//   PSS after the first ad     the app and its helpers, a second after its first ad; baseline:
//                              the bare view a second after loading the same ad page
//   memory growth              (only with --memory-cycles N) growth of the PSS of the process,
//                              and of its helpers, over N refreshes every 0.2 s after 50 first
//                              (sampled every 100 in the notes); baseline: the bare view
//                              reloading as often
//
// Usage: bench_adpath [--runs N] [--refreshes N] [--idle-runs N] [--idle-seconds S]
//                     [--memory-cycles N] [--only board|launch|refresh|idle|trackers|memory]
#include "bench/figure.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr int kTimeoutMs = 90000;
const QString kAdUnit = QStringLiteral("c3e91d07b4a2f68");  // the app's own ad unit

struct Line {
    double ms = -1;  // since the child was started; -1: no such line
    QString text;
};

// A child process whose output lines (stdout and stderr merged) are kept with the time each
// arrived. Reading happens only while the driver waits on it, and the driver does nothing else
// meanwhile, so a line's time is when it reached the pipe.
class Child {
  public:
    Child(const QString& program, const QStringList& arguments, const QProcessEnvironment& env) {
        process_.setProgram(program);
        process_.setArguments(arguments);
        process_.setProcessEnvironment(env);
        process_.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~Child() { stop(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool start() {
        clock_.start();
        process_.start();
        return process_.waitForStarted(10000);
    }
    qint64 pid() const { return process_.processId(); }

    // The next line not yet consumed that matches `pattern`; ms is -1 if the process ends or
    // `timeoutMs` pass first.
    Line waitFor(const QRegularExpression& pattern, int timeoutMs = kTimeoutMs) {
        QElapsedTimer waited;
        waited.start();
        for (;;) {
            while (next_ < lines_.size()) {
                const Line& line = lines_[next_++];
                if (pattern.match(line.text).hasMatch()) {
                    return line;
                }
            }
            const qint64 left = timeoutMs - waited.elapsed();
            if (left <= 0 || process_.state() == QProcess::NotRunning) {
                return {};
            }
            if (!process_.waitForReadyRead(static_cast<int>(left))) {
                read();
                if (next_ >= lines_.size()) {
                    return {};
                }
            }
            read();
        }
    }

    // Reads what arrived until the output has been quiet for `quietMs`, and returns the lines
    // that arrived since the last call (without consuming them for waitFor).
    QStringList drain(int quietMs = 300) {
        while (process_.state() != QProcess::NotRunning && process_.waitForReadyRead(quietMs)) {
            read();
        }
        read();
        QStringList fresh;
        for (; drained_ < lines_.size(); ++drained_) {
            fresh << lines_[drained_].text;
        }
        return fresh;
    }

    bool waitForExit(int ms) {
        const bool done = process_.state() == QProcess::NotRunning || process_.waitForFinished(ms);
        read();
        return done;
    }

    void stop() {
        if (process_.state() == QProcess::NotRunning) {
            return;
        }
        process_.terminate();
        if (!process_.waitForFinished(10000)) {
            process_.kill();
            process_.waitForFinished(5000);
        }
    }

    QString tail(int count) const {
        QStringList texts;
        for (qsizetype i = std::max<qsizetype>(0, lines_.size() - count); i < lines_.size(); ++i) {
            texts << lines_[i].text;
        }
        return texts.join(QLatin1Char('\n'));
    }

  private:
    void read() {
        const QByteArray data = process_.readAll();
        if (data.isEmpty()) {
            return;
        }
        const double ms = static_cast<double>(clock_.nsecsElapsed()) / 1e6;
        partial_ += data;
        qsizetype end;
        while ((end = partial_.indexOf('\n')) >= 0) {
            lines_.append({ms, QString::fromLocal8Bit(partial_.left(end))});
            partial_.remove(0, end + 1);
        }
    }

    QProcess process_;
    QElapsedTimer clock_;
    QByteArray partial_;
    QList<Line> lines_;
    qsizetype next_ = 0;
    qsizetype drained_ = 0;
};

void note(const QString& text) {
    std::fprintf(stderr, "%s\n", qPrintable(text));
    std::fflush(stderr);
}

// The environment of a child whose profile (config, cache, data) lives in `home`.
QProcessEnvironment profileEnvironment(const QString& home) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
        const QString path = home + QLatin1Char('/') + QString::fromLatin1(name).toLower();
        QDir().mkpath(path);
        env.insert(QString::fromLatin1(name), path);
    }
    env.remove(QStringLiteral("SORVEL_AD_SERVER"));
    env.remove(QStringLiteral("SORVEL_SCRIPT_HOST"));
    if (env.value(QStringLiteral("QT_QPA_PLATFORM")).isEmpty() &&
        env.value(QStringLiteral("DISPLAY")).isEmpty() &&
        env.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty()) {
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    }
    return env;
}

// A sorvel-adserver on a free loopback port serving `inventory` (a file next to this source).
// With `logRequests` it prints every request, which scriptDownloads() reads; the driver reads
// that output only when asked, so a server left printing would fill its pipe and stall.
class Server {
  public:
    explicit Server(const QString& inventory, bool logRequests = false)
        : child_(QStringLiteral(BENCH_ADSERVER), arguments(inventory, logRequests),
                 QProcessEnvironment::systemEnvironment()) {}

    bool start() {
        if (!child_.start()) {
            return false;
        }
        const Line line =
            child_.waitFor(QRegularExpression(QStringLiteral("^Listening on ")), 10000);
        const QRegularExpressionMatch m =
            QRegularExpression(QStringLiteral("(http://[^/\\s]+)")).match(line.text);
        if (!m.hasMatch()) {
            note(QStringLiteral("the ad server did not start:\n") + child_.tail(10));
            return false;
        }
        root_ = m.captured(1);
        child_.drain(100);
        return true;
    }
    QString root() const { return root_; }
    QString adPage() const { return root_ + QStringLiteral("/ad?slotname=") + kAdUnit; }

    // How many times the support script was sent in full (not 304) since the last call.
    int scriptDownloads() {
        int count = 0;
        for (const QString& line : child_.drain()) {
            if (line.contains(QLatin1String("\"/zelm/sdk-core-v40.js\"")) &&
                line.contains(QLatin1String("\"status\":200"))) {
                ++count;
            }
        }
        return count;
    }

  private:
    static QStringList arguments(const QString& inventory, bool logRequests) {
        QStringList list{QStringLiteral("--port"), QStringLiteral("0"),
                         QStringLiteral("--inventory"),
                         QStringLiteral(BENCH_INVENTORY_DIR "/") + inventory};
        if (!logRequests) {
            list << QStringLiteral("-q");
        }
        return list;
    }

    Child child_;
    QString root_;
};

const QRegularExpression kAdShown(QStringLiteral("brindle-sounds: (ad shown|no ad )"));
const QRegularExpression kLoaded(QStringLiteral("^load (finished|failed)"));

bool shown(const Line& line) {
    return line.ms >= 0 && line.text.endsWith(QLatin1String("ad shown"));
}
bool loaded(const Line& line) {
    return line.ms >= 0 && line.text == QLatin1String("load finished");
}

// One launch of the app in the profile `home` until its first ad is shown (ms, or -1). The app
// quits by itself once it has drawn the ad (--screenshot), so its caches are written as usual.
double launchApp(const Server& server, const QString& home) {
    Child app(QStringLiteral(BENCH_APP),
              {QStringLiteral("--ad-server"), server.root(), QStringLiteral("--screenshot"),
               home + QStringLiteral("/shot.png"), QStringLiteral("--screenshot-delay"),
               QStringLiteral("60")},
              profileEnvironment(home));
    if (!app.start()) {
        return -1;
    }
    const Line line = app.waitFor(kAdShown);
    if (!shown(line)) {
        note(QStringLiteral("the app showed no ad:\n") + app.tail(15));
        return -1;
    }
    if (!app.waitForExit(30000)) {
        note(QStringLiteral("the app did not quit after its screenshot"));
    }
    return line.ms;
}

double launchBaseline(const Server& server, const QString& home) {
    Child view(QStringLiteral(BENCH_BASELINE), {server.adPage()}, profileEnvironment(home));
    if (!view.start()) {
        return -1;
    }
    const Line line = view.waitFor(kLoaded);
    if (!loaded(line)) {
        note(QStringLiteral("the baseline did not load the ad page:\n") + view.tail(15));
        return -1;
    }
    view.waitForExit(30000);
    return line.ms;
}

void keep(std::vector<double>& samples, double ms) {
    if (ms >= 0) {
        samples.push_back(ms);
    }
}

// Process start -> the first paint of `program`'s window (the line `drawn` says so), or -1.
double firstPaint(const QString& program, const QStringList& arguments, const QString& home,
                  const QRegularExpression& drawn) {
    Child child(program, arguments, profileEnvironment(home));
    if (!child.start()) {
        return -1;
    }
    const Line line = child.waitFor(drawn);
    if (line.ms < 0) {
        note(program + QStringLiteral(" drew nothing:\n") + child.tail(15));
    }
    child.stop();
    return line.ms;
}

void boardFigure(int runs) {
    Server server(QStringLiteral("steady.json"));
    if (!server.start()) {
        return;
    }
    const QRegularExpression board(QStringLiteral("brindle-sounds: board on screen"));
    const QRegularExpression drawn(QStringLiteral("^drawn$"));
    const QStringList appArguments{QStringLiteral("--ad-server"), server.root(),
                                   QStringLiteral("--new-instance")};
    std::vector<double> app, plain;
    for (int run = -1; run < runs; ++run) {  // run -1 warms the page cache, untimed
        QTemporaryDir appHome;
        QTemporaryDir plainHome;
        const double ours =
            firstPaint(QStringLiteral(BENCH_APP), appArguments, appHome.path(), board);
        const double bare =
            firstPaint(QStringLiteral(BENCH_PLAIN_WINDOW), {}, plainHome.path(), drawn);
        if (run < 0) {
            continue;
        }
        keep(app, ours);
        keep(plain, bare);
        note(QStringLiteral("board run %1: app %2 ms, plain window %3 ms")
                 .arg(run + 1)
                 .arg(ours, 0, 'f', 1)
                 .arg(bare, 0, 'f', 1));
    }
    bench::print(bench::lowerIsBetter("launch -> board drawn (ms)", app, plain, 1.5));
}

void launchFigures(int runs) {
    Server server(QStringLiteral("steady.json"), true);
    if (!server.start()) {
        return;
    }
    // One untimed launch of each first, so that every timed one finds the libraries in the
    // page cache: "cold" is about the profile, not the disk.
    {
        QTemporaryDir scratch;
        launchApp(server, scratch.path());
        launchBaseline(server, scratch.path());
        server.scriptDownloads();
    }
    std::vector<double> appCold, appWarm, viewCold, viewWarm;
    for (int run = 0; run < runs; ++run) {
        QTemporaryDir appHome;
        const double cold = launchApp(server, appHome.path());
        const int coldDownloads = server.scriptDownloads();
        const double warm = launchApp(server, appHome.path());
        const int warmDownloads = server.scriptDownloads();
        // A cold launch must fetch the script and a warm one must not; otherwise the run does
        // not measure what its name says and is left out.
        if (coldDownloads == 1) {
            keep(appCold, cold);
        }
        if (warmDownloads == 0) {
            keep(appWarm, warm);
        }
        QTemporaryDir viewHome;
        const double baseCold = launchBaseline(server, viewHome.path());
        const double baseWarm = launchBaseline(server, viewHome.path());
        keep(viewCold, baseCold);
        keep(viewWarm, baseWarm);
        note(QStringLiteral("launch run %1: app cold %2 ms (script fetched %3x), warm %4 ms "
                            "(fetched %5x); baseline cold %6 ms, warm %7 ms")
                 .arg(run + 1)
                 .arg(cold, 0, 'f', 1)
                 .arg(coldDownloads)
                 .arg(warm, 0, 'f', 1)
                 .arg(warmDownloads)
                 .arg(baseCold, 0, 'f', 1)
                 .arg(baseWarm, 0, 'f', 1));
    }
    bench::print(bench::lowerIsBetter("launch -> first ad, cold (ms)", appCold, viewCold, 1.5));
    bench::print(bench::lowerIsBetter("launch -> first ad, warm (ms)", appWarm, viewWarm, 1.25));
}

// Times `count` cycles of a child, each from its line matching `start` to the next `end` line
// (which `ended` accepts); stops at the first cycle that does not complete.
std::vector<double> timeCycles(Child& child, const QRegularExpression& start,
                               const QRegularExpression& end, bool (*ended)(const Line&), int count,
                               const char* stopped) {
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const Line from = child.waitFor(start);
        const Line to = child.waitFor(end);
        if (from.ms < 0 || !ended(to)) {
            note(QLatin1String(stopped) + QStringLiteral(":\n") + child.tail(15));
            break;
        }
        times.push_back(to.ms - from.ms);
    }
    return times;
}

void refreshFigure(int refreshes) {
    Server server(QStringLiteral("refresh.json"));
    if (!server.start()) {
        return;
    }
    std::vector<double> ours, baseline;
    {
        QTemporaryDir home;
        Child app(QStringLiteral(BENCH_APP),
                  {QStringLiteral("--ad-server"), server.root(), QStringLiteral("--verbose")},
                  profileEnvironment(home.path()));
        if (app.start() && shown(app.waitFor(kAdShown))) {
            ours = timeCycles(app, QRegularExpression(QStringLiteral("<Sorvel> Refreshing the ad")),
                              kAdShown, shown, refreshes, "the app stopped refreshing");
        } else {
            note(QStringLiteral("the app showed no ad:\n") + app.tail(15));
        }
    }
    {
        QTemporaryDir home;
        Child view(QStringLiteral(BENCH_BASELINE),
                   {server.adPage(), QStringLiteral("--reloads"), QString::number(refreshes),
                    QStringLiteral("--gap"), QStringLiteral("1")},
                   profileEnvironment(home.path()));
        if (view.start() && loaded(view.waitFor(kLoaded))) {
            baseline = timeCycles(view, QRegularExpression(QStringLiteral("^reload$")), kLoaded,
                                  loaded, refreshes, "the baseline stopped reloading");
        }
    }
    QStringList a, b;
    for (double v : ours) {
        a << QString::number(v, 'f', 1);
    }
    for (double v : baseline) {
        b << QString::number(v, 'f', 1);
    }
    note(QStringLiteral("refresh: app %1 ms; baseline %2 ms").arg(a.join(' '), b.join(' ')));
    bench::print(bench::lowerIsBetter("refresh -> next ad (ms)", ours, baseline, 1.5));
}

// utime + stime (clock ticks) of `root` and every process below it, by process id.
QHash<qint64, qint64> treeTicks(qint64 root) {
    struct Stat {
        qint64 parent;
        qint64 ticks;
    };
    QHash<qint64, Stat> all;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric) {
            continue;
        }
        QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        const QByteArray text = file.readAll();
        // The command name may hold spaces and parentheses; the fields follow the last ')'.
        const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        if (fields.size() < 13) {
            continue;
        }
        all.insert(pid,
                   {fields[1].toLongLong(), fields[11].toLongLong() + fields[12].toLongLong()});
    }
    QHash<qint64, qint64> tree;
    QList<qint64> pending{root};
    while (!pending.isEmpty()) {
        const qint64 pid = pending.takeFirst();
        if (!all.contains(pid) || tree.contains(pid)) {
            continue;
        }
        tree.insert(pid, all[pid].ticks);
        for (auto it = all.cbegin(); it != all.cend(); ++it) {
            if (it.value().parent == pid) {
                pending.append(it.key());
            }
        }
    }
    return tree;
}

// Percent of one core the tree below `pid` used over `seconds`; processes that started in
// between count from zero.
double idlePercent(qint64 pid, double seconds, int* processes) {
    const QHash<qint64, qint64> before = treeTicks(pid);
    QElapsedTimer clock;
    clock.start();
    QThread::msleep(static_cast<unsigned long>(seconds * 1000));
    const QHash<qint64, qint64> after = treeTicks(pid);
    const double elapsed = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    qint64 ticks = 0;
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        ticks += it.value() - before.value(it.key(), 0);
    }
    *processes = static_cast<int>(after.size());
    return 100.0 * static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK)) / elapsed;
}

// Proportional set size (MB) of one process: shared pages count once over all processes.
double pssMegabytes(qint64 pid) {
    QFile file(QStringLiteral("/proc/%1/smaps_rollup").arg(pid));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0.0;
    }
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith("Pss:")) {
            return static_cast<double>(line.mid(4).trimmed().split(' ').value(0).toLongLong()) /
                   1024.0;
        }
    }
    return 0.0;
}

// The PSS of a process, and of every process below it (the web engine's helpers).
struct MemorySample {
    double process = 0.0;
    double helpers = 0.0;
};

MemorySample sampleMemory(qint64 root) {
    MemorySample sample;
    for (const qint64 pid : treeTicks(root).keys()) {
        (pid == root ? sample.process : sample.helpers) += pssMegabytes(pid);
    }
    return sample;
}

// The whole app (process and helpers) once its first ad is shown, against the bare view once it
// has loaded the same ad page; each sampled after a settling second, three runs each.
void firstAdMemoryFigure() {
    Server server(QStringLiteral("steady.json"));
    if (!server.start()) {
        return;
    }
    std::vector<double> app, bare;
    for (int run = 0; run < 3; ++run) {
        QTemporaryDir appHome;
        Child ours(QStringLiteral(BENCH_APP),
                   {QStringLiteral("--ad-server"), server.root(), QStringLiteral("--new-instance")},
                   profileEnvironment(appHome.path()));
        if (ours.start() && shown(ours.waitFor(kAdShown))) {
            QThread::msleep(1000);
            const MemorySample sample = sampleMemory(ours.pid());
            app.push_back(sample.process + sample.helpers);
            note(QStringLiteral("first ad memory run %1: app %2 + %3 MB")
                     .arg(run + 1)
                     .arg(sample.process, 0, 'f', 1)
                     .arg(sample.helpers, 0, 'f', 1));
        } else {
            note(QStringLiteral("the app showed no ad:\n") + ours.tail(15));
        }
        ours.stop();
        QTemporaryDir viewHome;
        Child view(QStringLiteral(BENCH_BASELINE), {server.adPage(), QStringLiteral("--stay")},
                   profileEnvironment(viewHome.path()));
        if (view.start() && loaded(view.waitFor(kLoaded))) {
            QThread::msleep(1000);
            const MemorySample sample = sampleMemory(view.pid());
            bare.push_back(sample.process + sample.helpers);
            note(QStringLiteral("first ad memory run %1: bare view %2 + %3 MB")
                     .arg(run + 1)
                     .arg(sample.process, 0, 'f', 1)
                     .arg(sample.helpers, 0, 'f', 1));
        }
        view.stop();
    }
    bench::print(bench::lowerIsBetter("PSS after the first ad (MB)", app, bare, 1.1));
}

// Memory over `cycles` refreshes every 0.2 s: the process and its helpers sampled after the 50th
// and every 100 after; the figures are their growth from the first sample to the last. Baseline:
// the bare view reloading as often. One run each: it takes minutes.
void memoryFigure(int cycles) {
    Server server(QStringLiteral("memory.json"));
    if (!server.start()) {
        return;
    }
    constexpr int kWarmUp = 50;
    constexpr int kEvery = 100;
    // Follows one child through its cycles; `next` waits for the next cycle to end.
    const auto follow = [&](const char* who, Child& child, const std::function<bool()>& next) {
        QList<MemorySample> samples;
        for (int cycle = 1; cycle <= kWarmUp + cycles; ++cycle) {
            if (!next()) {
                note(QStringLiteral("%1 stopped at cycle %2:\n%3")
                         .arg(QLatin1String(who))
                         .arg(cycle)
                         .arg(child.tail(15)));
                return QList<MemorySample>();
            }
            if (cycle >= kWarmUp && (cycle - kWarmUp) % kEvery == 0) {
                samples.append(sampleMemory(child.pid()));
            }
        }
        QString trace;
        for (const MemorySample& m : samples) {
            trace += QStringLiteral(" %1+%2").arg(m.process, 0, 'f', 1).arg(m.helpers, 0, 'f', 1);
        }
        note(QStringLiteral("memory: %1, process+helpers MB every %2 cycles:%3")
                 .arg(QLatin1String(who))
                 .arg(kEvery)
                 .arg(trace));
        return samples;
    };
    QList<MemorySample> ours, bare;
    {
        QTemporaryDir home;
        Child app(QStringLiteral(BENCH_APP), {QStringLiteral("--ad-server"), server.root()},
                  profileEnvironment(home.path()));
        if (app.start()) {
            ours = follow("app", app, [&] { return shown(app.waitFor(kAdShown)); });
        }
    }
    {
        QTemporaryDir home;
        Child view(QStringLiteral(BENCH_BASELINE),
                   {server.adPage(), QStringLiteral("--reloads"), QString::number(kWarmUp + cycles),
                    QStringLiteral("--gap"), QStringLiteral("0.2"), QStringLiteral("--stay")},
                   profileEnvironment(home.path()));
        if (view.start() && loaded(view.waitFor(kLoaded))) {
            bare = follow("bare view", view, [&] { return loaded(view.waitFor(kLoaded)); });
        }
    }
    const auto growth = [](const QList<MemorySample>& samples, double MemorySample::*part) {
        return samples.size() < 2
                   ? std::vector<double>()
                   : std::vector<double>{samples.last().*part - samples.first().*part};
    };
    for (const auto& [part, label] : {std::pair{&MemorySample::process, "process"},
                                      std::pair{&MemorySample::helpers, "helper processes"}}) {
        const std::vector<double> mine = growth(ours, part);
        const std::vector<double> theirs = growth(bare, part);
        bench::Figure f;
        f.name = QStringLiteral("memory growth over %1 refreshes, %2 (MB PSS)")
                     .arg(cycles)
                     .arg(QLatin1String(label))
                     .toStdString();
        f.median = bench::median(mine);
        f.baseline = bench::median(theirs);
        f.ratio = f.baseline != 0 ? f.median / f.baseline : 0.0;
        f.target = "<= 2 MB";
        f.pass = !mine.empty() && f.median <= 2.0;
        f.runs = static_cast<int>(mine.size());
        bench::print(f);
        if (!mine.empty()) {
            note(QStringLiteral("memory: %1 grew %2 bytes per refresh")
                     .arg(QLatin1String(label))
                     .arg(qint64(f.median * 1024 * 1024 / cycles)));
        }
    }
}

void idleFigure(int runs, double seconds) {
    Server server(QStringLiteral("steady.json"));
    if (!server.start()) {
        return;
    }
    // Measuring starts this long after the ad is reported, once its first frames are drawn.
    constexpr unsigned long kSettleMs = 2000;
    std::vector<double> ours, baseline;
    for (int run = 0; run < runs; ++run) {
        QTemporaryDir appHome;
        Child app(QStringLiteral(BENCH_APP), {QStringLiteral("--ad-server"), server.root()},
                  profileEnvironment(appHome.path()));
        if (app.start() && shown(app.waitFor(kAdShown))) {
            QThread::msleep(kSettleMs);
            int processes = 0;
            ours.push_back(idlePercent(app.pid(), seconds, &processes));
            note(QStringLiteral("idle run %1: app %2 % of a core over %3 s (%4 processes)")
                     .arg(run + 1)
                     .arg(ours.back(), 0, 'f', 3)
                     .arg(seconds)
                     .arg(processes));
        } else {
            note(QStringLiteral("the app showed no ad:\n") + app.tail(15));
        }
        app.stop();

        QTemporaryDir viewHome;
        Child view(QStringLiteral(BENCH_BASELINE), {server.adPage(), QStringLiteral("--stay")},
                   profileEnvironment(viewHome.path()));
        if (view.start() && loaded(view.waitFor(kLoaded))) {
            QThread::msleep(kSettleMs);
            int processes = 0;
            baseline.push_back(idlePercent(view.pid(), seconds, &processes));
            note(QStringLiteral("idle run %1: baseline %2 % of a core over %3 s (%4 processes)")
                     .arg(run + 1)
                     .arg(baseline.back(), 0, 'f', 3)
                     .arg(seconds)
                     .arg(processes));
        }
        view.stop();
    }
    bench::Figure f;
    f.name = QStringLiteral("idle CPU, ad shown, %1 s (% of one core)").arg(seconds).toStdString();
    f.median = bench::median(ours);
    f.baseline = bench::median(baseline);
    f.ratio = f.baseline > 0 ? f.median / f.baseline : 0.0;
    f.target = "< 1";
    f.pass = !ours.empty() && f.median < 1.0;
    f.runs = static_cast<int>(ours.size());
    bench::print(f);
}

// The PSS of the app and its helpers over 50 ads every 0.2 s whose 20 impression trackers each
// answer with an 8 MiB body (the most the reference server sends), against the same 50 ads with
// ordinary trackers. A client that kept tracker bodies would grow by 8 GB here.
void trackerMemoryFigure() {
    constexpr int kAds = 50;
    const auto growthOver = [](const QString& inventory, const char* who) {
        std::vector<double> growth;
        Server server(inventory);
        QTemporaryDir home;
        if (!server.start()) {
            return growth;
        }
        Child app(QStringLiteral(BENCH_APP), {QStringLiteral("--ad-server"), server.root()},
                  profileEnvironment(home.path()));
        if (!app.start() || !shown(app.waitFor(kAdShown))) {
            note(QStringLiteral("trackers: %1 showed no ad:\n%2")
                     .arg(QLatin1String(who), app.tail(15)));
            return growth;
        }
        const MemorySample first = sampleMemory(app.pid());
        int ads = 1;
        while (ads < kAds && shown(app.waitFor(kAdShown))) {
            ++ads;
        }
        const MemorySample last = sampleMemory(app.pid());
        note(QStringLiteral("trackers: %1, %2 ads, process+helpers MB %3+%4 -> %5+%6")
                 .arg(QLatin1String(who))
                 .arg(ads)
                 .arg(first.process, 0, 'f', 1)
                 .arg(first.helpers, 0, 'f', 1)
                 .arg(last.process, 0, 'f', 1)
                 .arg(last.helpers, 0, 'f', 1));
        if (ads == kAds) {
            growth.push_back(last.process + last.helpers - first.process - first.helpers);
        }
        return growth;
    };
    const std::vector<double> heavy = growthOver(QStringLiteral("trackers.json"), "8 MiB trackers");
    const std::vector<double> plain = growthOver(QStringLiteral("memory.json"), "plain trackers");
    bench::Figure f;
    f.name = QStringLiteral("memory growth over %1 ads with 20 trackers of 8 MiB each (MB PSS)")
                 .arg(kAds)
                 .toStdString();
    f.median = bench::median(heavy);
    f.baseline = bench::median(plain);
    f.ratio = f.baseline != 0 ? f.median / f.baseline : 0.0;
    f.target = "<= 50 MB";
    f.pass = !heavy.empty() && f.median <= 50.0;
    f.runs = static_cast<int>(heavy.size());
    bench::print(f);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    int runs = 5;
    int refreshes = 15;
    int idleRuns = 1;
    int memoryCycles = 0;
    double idleSeconds = 30;
    QString only;
    const QStringList args = QCoreApplication::arguments();
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        if (arg == QLatin1String("--runs") && hasValue) {
            runs = args[++i].toInt();
        } else if (arg == QLatin1String("--refreshes") && hasValue) {
            refreshes = args[++i].toInt();
        } else if (arg == QLatin1String("--idle-runs") && hasValue) {
            idleRuns = args[++i].toInt();
        } else if (arg == QLatin1String("--idle-seconds") && hasValue) {
            idleSeconds = args[++i].toDouble();
        } else if (arg == QLatin1String("--memory-cycles") && hasValue) {
            memoryCycles = args[++i].toInt();
        } else if (arg == QLatin1String("--only") && hasValue) {
            only = args[++i];
        } else {
            std::fprintf(stderr,
                         "usage: bench_adpath [--runs N] [--refreshes N] [--idle-runs N] "
                         "[--idle-seconds S] [--memory-cycles N] [--only "
                         "board|launch|refresh|idle|trackers|memory]\n");
            return 2;
        }
    }
    if (only.isEmpty() || only == QLatin1String("board")) {
        boardFigure(runs);
    }
    if (only.isEmpty() || only == QLatin1String("launch")) {
        launchFigures(runs);
    }
    if (only.isEmpty() || only == QLatin1String("refresh")) {
        refreshFigure(refreshes);
    }
    if (only.isEmpty() || only == QLatin1String("idle")) {
        idleFigure(idleRuns, idleSeconds);
    }
    if (only.isEmpty() || only == QLatin1String("memory")) {
        firstAdMemoryFigure();
    }
    if (only.isEmpty() || only == QLatin1String("trackers")) {
        trackerMemoryFigure();
    }
    if (memoryCycles > 0 && (only.isEmpty() || only == QLatin1String("memory"))) {
        memoryFigure(memoryCycles);
    }
    return 0;
}
