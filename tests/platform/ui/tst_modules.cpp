// A program on the shared platform library loads its heavy parts as modules that lie beside that
// library, each when it is first needed and not before: FFmpeg with the decoder at the first
// sound, Qt Multimedia with the audio stack when asked for an output, the web engine at a web
// view's first page. The sound board draws its first frame before any of them, and before the
// system's network information and the image plugins; its first ad brings no FFmpeg and no
// libcrypto. (The static platform, which the other suites link, has them all linked in.)
#include "platform/ui/audioplayer.h"
#include "platform/ui/webview.h"
#include "uitestmain.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

using namespace platform;

namespace {

bool mapped(const char* library) {
    QFile maps(QStringLiteral("/proc/self/maps"));
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains(library);
}

// Lets web pages load and records the rest, which it refuses.
class Delegate : public WebViewDelegate {
  public:
    explicit Delegate(WebView& view) { view.setDelegate(this); }
    bool webViewShouldStartLoadWithRequestNavigationType(WebView*, const UrlRequest& request,
                                                         int) override {
        const bool web = request.url().scheme() == QLatin1String("http") ||
                         request.url().scheme() == QLatin1String("about");
        if (!web) {
            refused << request.url().toString();
        }
        return web;
    }
    void webViewDidFinishLoad(WebView*) override { finished = true; }
    void webViewDidFailLoadWithError(WebView*, const Error& error) override {
        failure = error.localizedDescription();
    }

    bool finished = false;
    QString failure;
    QStringList refused;
};

// Runs the sound board in a profile of its own, with `env` added, until its screenshot (taken
// after the first ad, or `wait` seconds without one): what it wrote on its standard output and
// error, or nothing when it did not end by itself with code 0.
QString runBoard(const QList<std::pair<QString, QString>>& env, int wait) {
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
        environment.insert(QLatin1String(name), home.filePath(QLatin1String(name)));
    }
    for (const auto& [name, value] : env) {
        environment.insert(name, value);
    }
    QProcess app;
    app.setProcessEnvironment(environment);
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start(QStringLiteral(APP_PROGRAM),
              {QStringLiteral("--new-instance"), QStringLiteral("--screenshot"),
               home.filePath(QStringLiteral("board.png")), QStringLiteral("--screenshot-delay"),
               QString::number(wait)});
    if (!app.waitForFinished(90000) || app.exitStatus() != QProcess::NormalExit ||
        app.exitCode() != 0) {
        qWarning().noquote() << app.readAll().right(2000);
        return {};
    }
    return QString::fromLocal8Bit(app.readAll());
}

}  // namespace

class TestModules : public QObject {
    Q_OBJECT
  private slots:
    void theDecoderComesWithTheFirstSound() {
        QVERIFY(!mapped("libavcodec"));
        const DecodedAudio clip = decodeAudioFile(QStringLiteral(SOUND_FILE));
        QVERIFY2(clip.error.isEmpty(), qPrintable(clip.error));
        QVERIFY(clip.sampleRate > 0 && !clip.samples.isEmpty());
        QVERIFY(mapped("libavcodec"));
        // The module decodes, and refuses, as the linked decoder does.
        const DecodedAudio text = decodeAudioFile(QStringLiteral(TEXT_FILE));
        QVERIFY2(text.error.startsWith(QStringLiteral("Not an audio file")),
                 qPrintable(text.error));
    }

    // A view is made, set up and shown without the engine (a banner before its first ad); its
    // first page brings it, and the message schemes reach the delegate as with the linked one.
    void theEngineComesWithTheFirstPage() {
        WebView view(QRect(0, 0, 320, 50));
        Delegate delegate(view);
        view.setScalesPageToFit(true);
        view.setOpaque(false);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QVERIFY(!mapped("libQt6WebEngineCore"));

        view.loadHTMLStringBaseURL(QStringLiteral("<p>ad</p>"),
                                   QUrl(QStringLiteral("http://127.0.0.1/")));
        QTRY_VERIFY2_WITH_TIMEOUT(delegate.finished, qPrintable(delegate.failure), 15000);
        QVERIFY(mapped("libQt6WebEngineCore"));
        view.evaluateJavaScript(QStringLiteral("location.href = 'qmsg://open/path?a=1'"));
        QTRY_COMPARE_WITH_TIMEOUT(delegate.refused, QStringList{"qmsg://open/path?a=1"}, 15000);
    }

    // The loader's own account (LD_DEBUG) and the board's line share standard error, in order.
    void theBoardIsDrawnBeforeTheHeavyPartsLoad() {
        const QString out = runBoard({{QStringLiteral("LD_DEBUG"), QStringLiteral("files")}}, 50);
        const qsizetype board = out.indexOf(QStringLiteral("brindle-sounds: board on screen"));
        QVERIFY2(board >= 0, qPrintable(out.right(2000)));
        QVERIFY2(out.contains(QStringLiteral("brindle-sounds: ad shown")),
                 qPrintable(out.right(2000)));
        for (const char* part : {"libsorvel-webengine.so", "libQt6WebEngineCore",
                                 "libQt6Multimedia", "networkinformation/", "imageformats/"}) {
            // A library is in once the loader maps it ("generating link map"); asking whether
            // one is there already names it too.
            const QRegularExpression loaded(
                QStringLiteral("file=\\S*%1\\S* \\[\\d+\\];\\s+generating link map")
                    .arg(QRegularExpression::escape(QLatin1String(part))));
            QVERIFY2(out.indexOf(loaded) > board, part);
        }
        QVERIFY(!out.contains(QStringLiteral("libavcodec")));
        // Nor the cipher's library: the board gives its ads no location to encrypt.
        QVERIFY(!out.contains(QStringLiteral("libcrypto")));
    }

    // The libraries without their modules (a broken install) still draw the board, and say which
    // module is missing when the first page would need it.
    void theBoardRunsWithoutItsModules() {
        QTemporaryDir libraries;
        for (const QString& library :
             {QStringLiteral(ADS_LIBRARY), QStringLiteral(PLATFORM_LIBRARY)}) {
            QVERIFY(QFile::copy(library, libraries.filePath(QFileInfo(library).fileName())));
        }
        const QString out = runBoard({{QStringLiteral("LD_LIBRARY_PATH"), libraries.path()}}, 1);
        QVERIFY(out.contains(QStringLiteral("brindle-sounds: board on screen")));
        QVERIFY2(
            out.contains(QStringLiteral("No web pages: libsorvel-webengine.so cannot be loaded")),
            qPrintable(out));
    }
};

SORVEL_UI_TEST_MAIN(TestModules)
#include "tst_modules.moc"
