// Ads are hostile pages, so the engine's content processes must run in Chromium's sandbox
// wherever it can start: as any user but root (Chromium refuses it as root, which is why root runs
// of the web suites, scripts/headless-env and scripts/run turn it off). Build machines run as
// root, so there the suite starts itself again as an unprivileged user, in the environment a web
// suite gets when it does not run as root, and that run does the checking.
#include "platform/ui/webview.h"
#include "uitestmain.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

using namespace platform;

namespace {

// nobody and nogroup.
constexpr uid_t kUnprivilegedUid = 65534;
constexpr gid_t kUnprivilegedGid = 65534;

QByteArray procFile(qint64 pid, const char* name) {
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A field of /proc/PID/status ("Seccomp", "Seccomp_filters", ...); null when the kernel has no such
// field.
QByteArray statusField(qint64 pid, const char* name) {
    const QByteArray prefix = QByteArray(name) + ':';
    for (const QByteArray& line : procFile(pid, "status").split('\n')) {
        if (line.startsWith(prefix)) {
            return line.mid(prefix.size()).trimmed();
        }
    }
    return {};
}

// The namespace a process lives in, as "user:[4026531837]", or the reason it cannot be read.
QString namespaceOf(qint64 pid, const char* kind) {
    const QByteArray path = "/proc/" + QByteArray::number(pid) + "/ns/" + kind;
    char target[128];
    const ssize_t n = ::readlink(path.constData(), target, sizeof target);
    if (n < 0) {
        return QStringLiteral("unreadable (%1)").arg(QString::fromLocal8Bit(std::strerror(errno)));
    }
    return QString::fromLocal8Bit(target, n);
}

// The parent's id sits after the state, which follows the last ')' (the command name may hold
// spaces and parentheses); 0 when the process is gone.
qint64 parentOf(qint64 pid) {
    const QByteArray stat = procFile(pid, "stat");
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 1).split(' ');
    return fields.size() > 2 ? fields[2].toLongLong() : 0;
}

bool descendsFrom(qint64 pid, qint64 ancestor) {
    for (qint64 p = parentOf(pid); p > 1; p = parentOf(p)) {
        if (p == ancestor) {
            return true;
        }
    }
    return false;
}

// Whether the kernel lets the current (or, with a program to switch, another) user make the
// namespaces the engine's sandbox is built from; an empty string when it does.
QString namespacesRefused(const QStringList& asUser) {
    const QString unshare = QStandardPaths::findExecutable(QStringLiteral("unshare"));
    if (unshare.isEmpty()) {
        return QStringLiteral("unshare (util-linux) is missing: user namespaces cannot be probed");
    }
    QProcess probe;
    probe.setProcessChannelMode(QProcess::MergedChannels);
    QStringList command = asUser;
    command << unshare << QStringLiteral("--user") << QStringLiteral("--map-root-user")
            << QStringLiteral("--pid") << QStringLiteral("--net") << QStringLiteral("--fork")
            << QStringLiteral("true");
    probe.start(command.takeFirst(), command);
    if (!probe.waitForFinished(30000) || probe.exitStatus() != QProcess::NormalExit ||
        probe.exitCode() != 0) {
        return QStringLiteral("uid %1 cannot make the namespaces of the sandbox here: %2")
            .arg(asUser.isEmpty() ? ::geteuid() : kUnprivilegedUid)
            .arg(QString::fromLocal8Bit(probe.readAll()).trimmed());
    }
    return {};
}

class LoadEnd : public WebViewDelegate {
  public:
    explicit LoadEnd(WebView& view) { view.setDelegate(this); }
    void webViewDidFinishLoad(WebView*) override { finished = true; }
    void webViewDidFailLoadWithError(WebView*, const Error&) override { failed = true; }
    bool finished = false;
    bool failed = false;
};

}  // namespace

class TestWebSandbox : public QObject {
    Q_OBJECT
  private:
    // As root: the same test function again, as nobody, in a home of its own.
    void runAsUnprivilegedUser() {
        const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
        if (setpriv.isEmpty()) {
            QSKIP("setpriv (util-linux) is missing, so the suite cannot run as a user");
        }
        const QStringList asNobody{setpriv,
                                   QStringLiteral("--reuid=%1").arg(kUnprivilegedUid),
                                   QStringLiteral("--regid=%1").arg(kUnprivilegedGid),
                                   QStringLiteral("--clear-groups"),
                                   QStringLiteral("--inh-caps=-all"),
                                   QStringLiteral("--")};
        if (const QString refused = namespacesRefused(asNobody); !refused.isEmpty()) {
            QSKIP(qPrintable(refused));
        }
        // A tree cloned into root's own home cannot be reached by anyone else; that says
        // nothing about the sandbox.
        if (QProcess::execute(
                asNobody.first(),
                asNobody.mid(1) + QStringList{QStringLiteral("test"), QStringLiteral("-x"),
                                              QCoreApplication::applicationFilePath()}) != 0) {
            QSKIP(
                "the build tree is out of an unprivileged user's reach, so the suite cannot "
                "run as one");
        }

        QTemporaryDir home;
        QVERIFY(home.isValid());
        const QByteArray homePath = QFile::encodeName(home.path());
        QVERIFY(::chown(homePath.constData(), kUnprivilegedUid, kUnprivilegedGid) == 0);
        QVERIFY(::chmod(homePath.constData(), 0700) == 0);

        // Root's run has the sandbox turned off (see tests/CMakeLists.txt); a user's has not.
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("QTWEBENGINE_DISABLE_SANDBOX"));
        QStringList flags = env.value(QStringLiteral("QTWEBENGINE_CHROMIUM_FLAGS"))
                                .split(QLatin1Char(' '), Qt::SkipEmptyParts);
        flags.removeAll(QStringLiteral("--no-sandbox"));
        env.insert(QStringLiteral("QTWEBENGINE_CHROMIUM_FLAGS"), flags.join(QLatin1Char(' ')));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        for (const char* name : {"HOME", "TMPDIR", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME",
                                 "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
            env.insert(QLatin1String(name), home.path());
        }

        QProcess child;
        child.setProcessEnvironment(env);
        child.setWorkingDirectory(home.path());
        child.setProcessChannelMode(QProcess::MergedChannels);
        QStringList command = asNobody;
        const QString function = QString::fromLatin1(QTest::currentTestFunction());
        command << QCoreApplication::applicationFilePath() << function;
        child.start(command.takeFirst(), command);
        const bool ended = child.waitForFinished(240000);
        const QByteArray output = child.readAll();
        const bool passed =
            ended && child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0 &&
            output.contains("PASS   : TestWebSandbox::" + function.toLatin1() + "()");
        if (!passed) {
            // Whole, as test messages are cut short. A user who cannot reach the build tree is
            // told so by setpriv here; a skip there counts as a failure, as this run found the
            // namespaces available.
            std::fprintf(stderr, "--- the run as uid %u ---\n%s\n---\n", kUnprivilegedUid,
                         output.constData());
        }
        QVERIFY2(passed, "the run as an unprivileged user did not pass (its output is above)");
    }

  private slots:
    void contentProcessesAreSandboxedForAUser() {
        if (::geteuid() == 0) {
            runAsUnprivilegedUser();
            return;
        }
        if (const QString refused = namespacesRefused({}); !refused.isEmpty()) {
            QSKIP(qPrintable(refused));
        }
        QVERIFY2(!qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX"),
                 "QTWEBENGINE_DISABLE_SANDBOX is set for a run that is not root's");
        QVERIFY2(!qEnvironmentVariable("QTWEBENGINE_CHROMIUM_FLAGS")
                      .split(QLatin1Char(' '))
                      .contains(QStringLiteral("--no-sandbox")),
                 "QTWEBENGINE_CHROMIUM_FLAGS has --no-sandbox for a run that is not root's");

        WebView view;
        LoadEnd load(view);
        view.loadHTMLStringBaseURL(QStringLiteral("<html><body><p>ad</p></body></html>"), QUrl());
        QTRY_VERIFY_WITH_TIMEOUT(load.finished || load.failed, 60000);
        QVERIFY(load.finished);

        // The engine's own word for the page's process, checked against the process tree: a
        // renderer forked by the zygote keeps the zygote's command line, so "--type=renderer"
        // cannot be looked for.
        const qint64 self = QCoreApplication::applicationPid();
        const qint64 renderer = view.contentProcessId();
        const QByteArray program = procFile(renderer, "cmdline").split('\0').value(0);
        QVERIFY2(
            renderer > 0 && descendsFrom(renderer, self) && program.endsWith("/QtWebEngineProcess"),
            qPrintable(QStringLiteral("the page's content process %1 (%2) is not one of the "
                                      "engine's processes below the suite")
                           .arg(renderer)
                           .arg(QString::fromLocal8Bit(program))));

        // A seccomp filter the suite runs under itself (a container's) is inherited by every
        // descendant: the renderer must have more filters than the suite, not merely one.
        const QByteArray seccomp = statusField(renderer, "Seccomp");
        QVERIFY2(seccomp == "2",
                 qPrintable(QStringLiteral("the renderer has no seccomp filter (Seccomp: %1)")
                                .arg(QString::fromLatin1(seccomp))));
        const QByteArray ownFilters = statusField(self, "Seccomp_filters");
        const QByteArray filters = statusField(renderer, "Seccomp_filters");
        if (!ownFilters.isNull()) {
            QVERIFY2(filters.toInt() > ownFilters.toInt(),
                     qPrintable(
                         QStringLiteral("the renderer runs only the suite's seccomp "
                                        "filters (%1; the suite: %2)")
                             .arg(QString::fromLatin1(filters), QString::fromLatin1(ownFilters))));
        }
        for (const char* kind : {"user", "pid", "net"}) {
            const QString own = namespaceOf(self, kind);
            const QString its = namespaceOf(renderer, kind);
            QVERIFY2(!its.startsWith(QLatin1String("unreadable")) && its != own,
                     qPrintable(QStringLiteral("the renderer has no %1 namespace of its own "
                                               "(%2; the suite's: %3)")
                                    .arg(QLatin1String(kind), its, own)));
        }
    }
};

SORVEL_UI_TEST_MAIN(TestWebSandbox)
#include "tst_websandbox.moc"
