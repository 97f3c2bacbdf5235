// Any URL an ad's page navigates to, through the delegate every ad view has, on a web view whose
// pages go nowhere: messages are acted on (trackers, the opener, the in-ad centre, answers to the
// page), links are sorted by scheme. Whatever the URL, no message and no scheme the engine must
// not load is let through, and each message is posted as exactly one web action. Presenting full
// screens needs a controller and is left out (the end-to-end suites present them); trackers reach
// no server (every connection goes to a proxy that is not there).
//
// Input layout: byte 0 holds the navigation type (bits 0-2) and a prefix (bits 3-4: "" /
// "qmsg:/" / "torvin://" / "mailto:") so that most inputs reach the message readers; the rest
// is the URL's text.
#include "ads/bridge/PXBNotification.h"
#include "ads/bridge/PXBWebViewDelegate.h"
#include "platform/notificationcenter.h"
#include "platform/ui/application.h"
#include "platform/ui/audioplayer.h"
#include "platform/ui/webview.h"

#include <QApplication>
#include <QNetworkProxy>

#include <cstdint>
#include <cstdlib>

namespace {

// A page that never loads, runs no script and answers nothing.
class InertBackend : public platform::WebViewBackend {
  public:
    void loadRequest(const platform::UrlRequest&) override {}
    void loadHTML(const QString&, const QUrl&) override {}
    void evaluateJavaScript(const QString&, std::function<void(const QVariant&)>) override {}
    void evaluateJavaScriptToString(const QString&, std::function<void(const QString&)>) override {}
    bool canGoBack() const override { return false; }
    bool canGoForward() const override { return false; }
    void goBack() override {}
    void goForward() override {}
    void reload() override {}
    void stopLoading() override {}
    QString userAgent() const override { return QStringLiteral("fuzz"); }
};

bool loadedInPlace(const QUrl& url) {
    const QString scheme = url.scheme().toLower();
    return scheme == QLatin1String("http") || scheme == QLatin1String("https") ||
           scheme == QLatin1String("about");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "fuzz_ad_dispatch";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);  // for the life of the process
    platform::WebView::setBackendFactory(
        [](platform::WebView*) { return std::make_unique<InertBackend>(); });
    platform::Application::sharedApplication()->setUrlOpener([](const QUrl&) { return true; });
    platform::setSystemSoundPlayer([](int) {});
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), 1));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    static const char* const prefixes[] = {"", "qmsg:/", "torvin://", "mailto:"};
    const int navigationType = data[0] & 7;
    const QString text = QString::fromLatin1(prefixes[(data[0] >> 3) & 3]) +
                         QString::fromUtf8(reinterpret_cast<const char*>(data + 1),
                                           static_cast<qsizetype>(size - 1));
    const QUrl url(text);
    {
        platform::WebView view;
        PXBWebViewDelegate delegate;
        view.setDelegate(&delegate);
        int actions = 0;
        auto& center = platform::NotificationCenter::defaultCenter();
        center.addObserver(&actions, PXBWebViewDelegateDidReceiveWebAction, &view,
                           [&](const platform::Notification&) { ++actions; });
        const bool message = PXBNotification::isNotificationURL(url);
        const bool loads = view.shouldStartLoad(platform::UrlRequest(url), navigationType);
        if (loads && (message || !loadedInPlace(url))) {
            abort();
        }
        if (message && actions != 1) {
            abort();
        }
        QCoreApplication::processEvents();  // what the delegate put off to the next turn
        center.removeObserver(&actions);
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
