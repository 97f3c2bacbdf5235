// Ads are hostile pages, so the engine's content processes run in Chromium's sandbox for every user
// but root (who must turn it off). Run as root, the suite runs itself again as nobody, in the
// environment a user's web suite gets, and that run does the checking.
#include "platform/ui/webview.h"
#include "uitestmain.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <unistd.h>

using namespace platform;

namespace {

QByteArray statusField(qint64 pid, const QByteArray& name) {
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    const QByteArray status = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    for (const QByteArray& line : status.split('\n')) {
        if (line.startsWith(name + ':')) {
            return line.mid(name.size() + 1).trimmed();
        }
    }
    return {};
}

// "user:[4026531837]"; empty when unreadable.
QByteArray namespaceOf(qint64 pid, const char* kind) {
    char target[128];
    const QByteArray link = "/proc/" + QByteArray::number(pid) + "/ns/" + kind;
    const ssize_t n = ::readlink(link.constData(), target, sizeof target);
    return QByteArray(target, n > 0 ? n : 0);
}

// Empty when `prefix` (to run as nobody, or none) may make the sandbox's namespaces here and reach
// the suite's file.
QString namespacesRefused(QStringList prefix) {
    prefix << QStandardPaths::findExecutable(QStringLiteral("unshare")) << QStringLiteral("--user")
           << QStringLiteral("--map-root-user") << QStringLiteral("--pid")
           << QStringLiteral("--net") << QStringLiteral("--fork") << QStringLiteral("test")
           << QStringLiteral("-x") << QCoreApplication::applicationFilePath();
    QProcess probe;
    probe.setProcessChannelMode(QProcess::MergedChannels);
    probe.start(prefix.takeFirst(), prefix);
    return probe.waitForFinished(30000) && probe.exitCode() == 0
               ? QString()
               : QStringLiteral("no namespaces for the sandbox here: ") + probe.readAll();
}

}  // namespace

class TestWebSandbox : public QObject {
    Q_OBJECT
  private slots:
    void contentProcessesAreSandboxedForAUser() {
        if (::geteuid() == 0) {
            const QStringList asNobody{QStandardPaths::findExecutable(QStringLiteral("setpriv")),
                                       QStringLiteral("--reuid=65534"),
                                       QStringLiteral("--regid=65534"),
                                       QStringLiteral("--clear-groups"),
                                       QStringLiteral("--inh-caps=-all"),
                                       QStringLiteral("--")};
            if (const QString refused = namespacesRefused(asNobody); !refused.isEmpty()) {
                QSKIP(qPrintable(refused));  // no setpriv either
            }
            QTemporaryDir home;
            QVERIFY(::chown(QFile::encodeName(home.path()).constData(), 65534, 65534) == 0);
            QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
            env.remove(QStringLiteral("QTWEBENGINE_DISABLE_SANDBOX"));
            env.insert(QStringLiteral("QTWEBENGINE_CHROMIUM_FLAGS"),
                       env.value(QStringLiteral("QTWEBENGINE_CHROMIUM_FLAGS"))
                           .remove(QStringLiteral("--no-sandbox")));
            for (const char* name : {"HOME", "TMPDIR", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME",
                                     "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
                env.insert(QLatin1String(name), home.path());
            }
            QProcess child;
            child.setProcessEnvironment(env);
            child.setWorkingDirectory(home.path());
            child.setProcessChannelMode(QProcess::MergedChannels);
            child.start(asNobody.first(), asNobody.mid(1) << QCoreApplication::applicationFilePath()
                                                          << QTest::currentTestFunction());
            QVERIFY(child.waitForFinished(240000));
            const QByteArray output = child.readAll();
            QVERIFY2(child.exitCode() == 0 && output.contains("PASS   : TestWebSandbox::content"),
                     output.constData());
            return;
        }
        if (const QString refused = namespacesRefused({}); !refused.isEmpty()) {
            QSKIP(qPrintable(refused));
        }
        struct : WebViewDelegate {
            bool loaded = false;
            void webViewDidFinishLoad(WebView*) override { loaded = true; }
        } delegate;
        WebView view;
        view.setDelegate(&delegate);
        view.loadHTMLStringBaseURL(QStringLiteral("<p>ad</p>"), QUrl());
        QTRY_VERIFY_WITH_TIMEOUT(delegate.loaded, 60000);
        const qint64 self = QCoreApplication::applicationPid();
        const qint64 renderer = view.contentProcessId();
        // A container's seccomp filter is inherited by every process: the renderer needs one more.
        QCOMPARE(statusField(renderer, "Seccomp"), QByteArray("2"));
        const QByteArray ownFilters = statusField(self, "Seccomp_filters");  // null: no such field
        QVERIFY(ownFilters.isNull() ||
                statusField(renderer, "Seccomp_filters").toInt() > ownFilters.toInt());
        for (const char* kind : {"user", "pid", "net"}) {
            QVERIFY2(!namespaceOf(renderer, kind).isEmpty() &&
                         namespaceOf(renderer, kind) != namespaceOf(self, kind),
                     kind);
        }
    }
};

SORVEL_UI_TEST_MAIN(TestWebSandbox)
#include "tst_websandbox.moc"
