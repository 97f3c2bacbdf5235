// The web view's corners that the end-to-end suites cannot reach: how loads end (a refused
// redirect, an HTTP error page, a stop), a stuck page's process, and the Referer's origin rule.
// Loads, reloads, frames, clicks, redirects to other applications, a prepared page's first load
// and the shared cookie jar are proven end to end.
#include "platform/ui/webview.h"
#include "support/httptestserver.h"
#include "uitestmain.h"

#include <QFileInfo>

using namespace platform;
using testsupport::HttpTestResponse;
using testsupport::HttpTestServer;

namespace {

// Records what a web view tells its delegate; lets only web pages load.
class RecordingDelegate : public WebViewDelegate {
  public:
    explicit RecordingDelegate(WebView& view) { view.setDelegate(this); }
    bool webViewShouldStartLoadWithRequestNavigationType(WebView*, const UrlRequest& request,
                                                         int) override {
        events << QStringLiteral("should:") + request.url().toString();
        return request.url().scheme() == QLatin1String("http") ||
               request.url().scheme() == QLatin1String("about");
    }
    void webViewDidStartLoad(WebView*) override { events << QStringLiteral("start"); }
    void webViewDidFinishLoad(WebView*) override { events << QStringLiteral("finish"); }
    void webViewDidFailLoadWithError(WebView*, const Error& error) override {
        events << QStringLiteral("fail");
        errors.append(error);
    }
    bool ended() const {
        return events.contains(QStringLiteral("finish")) || events.contains(QStringLiteral("fail"));
    }

    QStringList events;
    QList<Error> errors;
};

HttpTestResponse htmlResponse(const QByteArray& body, int status = 200) {
    HttpTestResponse r;
    r.status = status;
    r.headers = {{"Content-Type", "text/html"}};
    r.body = "<html><body>" + body + "</body></html>";
    return r;
}

}  // namespace

class TestWebView : public QObject {
    Q_OBJECT
  private:
    HttpTestServer server_;

  private slots:
    void initTestCase() {
        QVERIFY(server_.start());
        server_.route(QStringLiteral("/page"), [](const auto&) { return htmlResponse("page"); });
    }

    void init() { server_.clearRequests(); }

    // Another site's page is named by its origin only (the engine's referrer policy, which
    // cancels the request otherwise): the browser's click URL carries the ad's.
    void aReferrerOfAnotherSiteIsSentAsItsOrigin() {
        WebView view;
        RecordingDelegate delegate(view);
        UrlRequest request(server_.url(QStringLiteral("/page")));
        request.setValueForHTTPHeaderField("http://referrer.example/ad", "Referer");
        view.loadRequest(request);
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 15000);
        QCOMPARE(delegate.events.last(), QStringLiteral("finish"));
        QCOMPARE(server_.requests().value(0).header("Referer"),
                 QByteArray("http://referrer.example/"));
    }

    // A load ends once: a page that arrived finishes whatever its status; a redirect the delegate
    // refuses interrupts it; the network or a stop fails it. (That the next load goes as usual is
    // every hostile end-to-end row's closing check.)
    void eachLoadEndsOnce_data() {
        QTest::addColumn<int>("status");        // 0: nothing listens; -1: stopped while waiting
        QTest::addColumn<QString>("location");  // of a refused redirect
        QTest::addColumn<QString>("domain");    // of the error; empty: finished
        QTest::addColumn<qint64>("code");       // 0: any
        // clang-format off
        QTest::newRow("404 with a body") << 404 << "" << "" << 0ll;
        QTest::newRow("connection refused") << 0 << "" << kNetworkErrorDomain << 0ll;
        QTest::newRow("stopped") << -1 << "" << kWebViewErrorDomain << qint64(kWebViewErrorCancelled);
        QTest::newRow("message URL refused") << 302 << "qmsg://click?u=1" << kWebViewErrorDomain
            << qint64(kWebViewErrorFrameLoadInterrupted);
        // clang-format on
    }
    void eachLoadEndsOnce() {
        QFETCH(int, status);
        QFETCH(QString, location);
        QFETCH(QString, domain);
        QFETCH(qint64, code);
        server_.route(QStringLiteral("/end"), [=](const auto&) {
            HttpTestResponse r = htmlResponse("sorry", status < 0 ? 200 : status);
            r.delayMs = status < 0 ? 3000 : 0;
            if (!location.isEmpty()) {
                r.headers = {{"Location", location.toUtf8()}};
            }
            return r;
        });
        const QUrl url =
            status == 0
                ? QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(testsupport::unusedPort()))
                : server_.url(QStringLiteral("/end"));
        WebView view;
        RecordingDelegate delegate(view);
        view.loadRequest(UrlRequest(url));
        if (status < 0) {
            QTRY_VERIFY_WITH_TIMEOUT(view.isLoading(), 10000);
            view.stopLoading();
        }
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 10000);
        QStringList events{"should:" + url.toString(), "start"};
        if (!location.isEmpty()) {
            events << "should:" + QUrl(location).toString();
        }
        QCOMPARE(delegate.events, events << (domain.isEmpty() ? "finish" : "fail"));
        QVERIFY(!view.isLoading());
        if (!domain.isEmpty()) {
            QCOMPARE(delegate.errors.value(0).domain(), domain);
            QVERIFY(code == 0 || delegate.errors.value(0).code() == code);
        } else {
            QString body;
            view.stringByEvaluatingJavaScriptFromString("document.body.textContent",
                                                        [&](const QString& r) { body = r; });
            QTRY_COMPARE(body, QStringLiteral("sorry"));
        }
    }

    // A page wider than a view that scales pages to fit is zoomed out to the view's width, on a
    // screen of any scale (the suite runs again with QT_SCALE_FACTOR=2): the page's viewport is
    // then as wide as the page.
    void aWidePageIsZoomedOutToTheViewsWidth() {
        server_.route(QStringLiteral("/wide"), [](const auto&) {
            return htmlResponse(
                "<style>body{margin:0}</style><div style='width:640px;height:40px'>"
                "</div>");
        });
        WebView view;
        RecordingDelegate delegate(view);
        view.setScalesPageToFit(true);
        view.resize(320, 200);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        view.loadRequest(UrlRequest(server_.url(QStringLiteral("/wide"))));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 15000);
        // An answer may come after the view has gone (its page lives on for the next view).
        const auto viewport = std::make_shared<QString>();
        const auto measure = [&] {
            view.stringByEvaluatingJavaScriptFromString(
                "String(innerWidth)", [viewport](const QString& width) { *viewport = width; });
            return *viewport;
        };
        QTRY_COMPARE_WITH_TIMEOUT(measure(), QStringLiteral("640"), 10000);
    }

    // The page of a hidden view is kept, blanked, for the next one, unless it is stuck in a script
    // of its own: that one is never handed on, and its busy process goes.
    void aStuckPageIsNotHandedToTheNextView() {
        const QUrl base = server_.url(QStringLiteral("/"));
        qint64 stuckProcess = 0;
        {
            WebView first;
            RecordingDelegate delegate(first);
            first.loadHTMLStringBaseURL(QStringLiteral("<p>first</p>"), base);
            QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 10000);
            bool ran = false;
            first.evaluateJavaScript(QStringLiteral("setTimeout(function(){for(;;){}},0); 1"),
                                     [&](const QVariant&) { ran = true; });
            QTRY_VERIFY_WITH_TIMEOUT(ran, 10000);
            stuckProcess = first.contentProcessId();
            QVERIFY(stuckProcess != 0);
        }
        WebView next;
        RecordingDelegate delegate(next);
        next.loadHTMLStringBaseURL(QStringLiteral("<p>next</p>"), base);
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 10000);
        QCOMPARE(delegate.events, (QStringList{"should:" + base.toString(), "start", "finish"}));
        QVERIFY(next.contentProcessId() != stuckProcess);
        QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(QStringLiteral("/proc/%1").arg(stuckProcess)),
                                 20000);
    }
};

SORVEL_UI_TEST_MAIN(TestWebView)
#include "tst_webview.moc"
