// The baseline of the ad path benchmarks: the least a process can do to show an ad page, i.e.
// start the web engine and load one URL into one view, with no ad client in between. It prints
// "load finished" on stderr when each load ends, so the driver times it the way it times the
// app's "ad shown".
//
// Usage: bench_adpath_baseline URL [--reloads N] [--gap SECONDS] [--stay]
//   --reloads N    after the first load, reload the page N times, each --gap seconds after the
//                  load before finished ("reload" is printed as each reload starts)
//   --stay         keep running after the last load (the driver ends the process)
#include "platform/ui/application.h"
#include "platform/ui/webview.h"
#include "platform/urlrequest.h"

#include <QApplication>
#include <QTimer>
#include <QUrl>

#include <cstdio>

namespace {

void say(const char* line) {
    std::fprintf(stderr, "%s\n", line);
    std::fflush(stderr);
}

class Loader : public platform::WebViewDelegate {
  public:
    int reloadsLeft = 0;
    double gapSeconds = 1.0;
    bool stay = false;
    platform::WebView* view = nullptr;

    void webViewDidFinishLoad(platform::WebView*) override {
        say("load finished");
        if (reloadsLeft > 0) {
            --reloadsLeft;
            QTimer::singleShot(static_cast<int>(gapSeconds * 1000), view, [this] {
                say("reload");
                view->reload();
            });
        } else if (!stay) {
            QCoreApplication::exit(0);
        }
    }
    void webViewDidFailLoadWithError(platform::WebView*, const platform::Error& error) override {
        std::fprintf(stderr, "load failed: %s\n", qPrintable(error.localizedDescription()));
        QCoreApplication::exit(1);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    platform::prepareApplication();
    QApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    Loader loader;
    QUrl url;
    for (qsizetype i = 1; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--reloads") && i + 1 < args.size()) {
            loader.reloadsLeft = args[++i].toInt();
        } else if (args[i] == QLatin1String("--gap") && i + 1 < args.size()) {
            loader.gapSeconds = args[++i].toDouble();
        } else if (args[i] == QLatin1String("--stay")) {
            loader.stay = true;
        } else {
            url = QUrl(args[i]);
        }
    }
    if (!url.isValid() || url.isEmpty()) {
        std::fprintf(stderr,
                     "usage: bench_adpath_baseline URL [--reloads N] [--gap SECONDS] "
                     "[--stay]\n");
        return 2;
    }
    platform::WebView view(QRect(0, 0, 320, 50));
    loader.view = &view;
    view.setDelegate(&loader);
    view.show();
    view.loadRequest(platform::UrlRequest(url));
    return QApplication::exec();
}
