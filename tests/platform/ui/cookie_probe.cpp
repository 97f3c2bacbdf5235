// Helper for the web view's cookie test: a later launch over the same profile. Loads argv[2] in a
// web view and fetches argv[3] with a URL connection, as application argv[1], then exits (0 once
// both have ended, 1 on time-out).
#include "platform/ui/application.h"
#include "platform/ui/webview.h"
#include "platform/urlconnection.h"

#include <QApplication>
#include <QTimer>

namespace {

struct Probe : platform::WebViewDelegate, platform::UrlConnectionDelegate {
    int pending = 2;
    void done() {
        if (--pending == 0) {
            QCoreApplication::exit(0);
        }
    }
    void webViewDidFinishLoad(platform::WebView*) override { done(); }
    void webViewDidFailLoadWithError(platform::WebView*, const platform::Error&) override {
        done();
    }
    void connectionDidFinishLoading(platform::UrlConnection&) override { done(); }
    void connectionDidFailWithError(platform::UrlConnection&, const platform::Error&) override {
        done();
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    platform::prepareApplication();
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QString::fromLocal8Bit(argv[1]));
    Probe probe;
    platform::WebView view;
    view.setDelegate(&probe);
    view.loadRequest(platform::UrlRequest(QUrl(QString::fromLocal8Bit(argv[2]))));
    platform::UrlConnection connection(platform::UrlRequest(QUrl(QString::fromLocal8Bit(argv[3]))),
                                       &probe);
    QTimer::singleShot(30000, [] { QCoreApplication::exit(1); });
    const int code = QApplication::exec();
    view.setDelegate(nullptr);
    return code;
}
