#include "platform/ui/webview.h"
#include "support/httptestserver.h"
#include "uitestmain.h"

#include <QSignalSpy>
#include <QWebEngineView>

using namespace platform;
using testsupport::HttpTestResponse;
using testsupport::HttpTestServer;

namespace {

// Records what a web view tells its delegate and answers navigations by scheme.
class RecordingDelegate : public WebViewDelegate {
  public:
    bool webViewShouldStartLoadWithRequestNavigationType(WebView*, const UrlRequest& request,
                                                         int type) override {
        requests.append(request);
        types.append(type);
        events << QStringLiteral("should:") + request.url().toString();
        return allow(request.url());
    }
    void webViewDidStartLoad(WebView*) override { events << QStringLiteral("start"); }
    void webViewDidFinishLoad(WebView*) override { events << QStringLiteral("finish"); }
    void webViewDidFailLoadWithError(WebView*, const Error& error) override {
        events << QStringLiteral("fail");
        errors.append(error);
    }

    std::function<bool(const QUrl&)> allow = [](const QUrl& url) {
        return url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("about");
    };
    QList<UrlRequest> requests;
    QList<int> types;
    QStringList events;
    QList<Error> errors;
};

QString page(const QString& body) {
    return QStringLiteral("<html><body>%1</body></html>").arg(body);
}

}  // namespace

class TestWebView : public QObject {
    Q_OBJECT
  private:
    HttpTestServer server_;

    // Loads `html` with the server's root as base and waits until it has finished.
    void loadAndWait(WebView& view, RecordingDelegate& delegate, const QString& html) {
        view.loadHTMLStringBaseURL(html, server_.url(QStringLiteral("/")));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("finish")), 15000);
    }

  private slots:
    void initTestCase() {
        QVERIFY(server_.start());
        server_.route(QStringLiteral("/page"), [](const auto&) {
            HttpTestResponse r;
            r.headers = {{"Content-Type", "text/html"}};
            r.body = "<html><body>page</body></html>";
            return r;
        });
        server_.route(QStringLiteral("/other"), [](const auto&) {
            HttpTestResponse r;
            r.headers = {{"Content-Type", "text/html"}};
            r.body = "<html><body>other</body></html>";
            return r;
        });
    }

    void init() { server_.clearRequests(); }

    void htmlStringShowsItsBaseUrlAndFinishes_data() {
        QTest::addColumn<bool>("withBase");
        QTest::newRow("base URL") << true;
        QTest::newRow("no base URL") << false;
    }
    void htmlStringShowsItsBaseUrlAndFinishes() {
        QFETCH(bool, withBase);
        WebView view;
        RecordingDelegate delegate;
        view.setDelegate(&delegate);
        const QUrl base = withBase ? server_.url(QStringLiteral("/ad/")) : QUrl();
        view.loadHTMLStringBaseURL(page(QStringLiteral("hello")), base);
        QVERIFY(delegate.events.isEmpty());  // nothing happens during the call
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("finish")), 15000);
        const QUrl shown = withBase ? base : QUrl(QStringLiteral("about:blank"));
        QCOMPARE(delegate.events,
                 (QStringList{QStringLiteral("should:") + shown.toString(), "start", "finish"}));
        QCOMPARE(delegate.types, QList<int>{WebViewNavigationTypeOther});
        QVERIFY(!delegate.requests[0].valueForHTTPHeaderField("User-Agent").isEmpty());
        QCOMPARE(view.request().url(), shown);
        QVERIFY(!view.isLoading());
    }

    void scriptNavigationsReachTheDelegateAndRefusedOnesLoadNothing_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("target");
        QTest::addColumn<int>("type");
        const QString assign = QStringLiteral("location.href = '%1';");
        const QString click = QStringLiteral(
            "var a = document.createElement('a'); a.href = '%1'; document.body.appendChild(a);"
            " a.click();");
        QTest::newRow("qmsg by script") << assign << "qmsg://loadAdURL?url=x" << 5;
        QTest::newRow("torvin by script") << assign << "torvin://log?string=hi" << 5;
        QTest::newRow("tel by script") << assign << "tel:+15551234" << 5;
        QTest::newRow("mailto by script") << assign << "mailto:ads@example.com?subject=Hi" << 5;
        QTest::newRow("made-up scheme") << assign << "zorbl:thing" << 5;
        QTest::newRow("http by script") << assign << "HTTP/page" << 5;
        QTest::newRow("qmsg by scripted click") << click << "qmsg://click?u=x" << 5;
        QTest::newRow("tel by scripted click") << click << "tel:5551234" << 5;
        QTest::newRow("http by scripted click") << click << "HTTP/page" << 5;
        QTest::newRow("window.open") << QStringLiteral("window.open('%1');") << "HTTP/page" << 5;
    }
    void scriptNavigationsReachTheDelegateAndRefusedOnesLoadNothing() {
        QFETCH(QString, script);
        QFETCH(QString, target);
        QFETCH(int, type);
        if (target.startsWith("HTTP")) {
            target = server_.url(target.mid(4)).toString();
        }
        WebView view;
        RecordingDelegate delegate;
        view.setDelegate(&delegate);
        loadAndWait(view, delegate, page("<p>ad</p>"));
        delegate.allow = [](const QUrl&) { return false; };
        delegate.events.clear();
        delegate.types.clear();
        delegate.requests.clear();

        view.evaluateJavaScript(script.arg(target));
        QTRY_COMPARE_WITH_TIMEOUT(delegate.requests.size(), 1, 10000);
        QCOMPARE(delegate.requests[0].url(), QUrl(target));
        QCOMPARE(delegate.types[0], type);
        QTest::qWait(300);
        QCOMPARE(delegate.events, QStringList{QStringLiteral("should:") + QUrl(target).toString()});
        for (const auto& r : server_.requests()) {
            QVERIFY2(r.path != QLatin1String("/page"), "a refused navigation was fetched");
        }
        QString body;
        view.stringByEvaluatingJavaScriptFromString("document.body.textContent",
                                                    [&](const QString& r) { body = r; });
        QTRY_COMPARE(body, QStringLiteral("ad"));
    }

    void userClickIsALinkClickAndReachesTheTouchHook() {
        WebView view(QRect(0, 0, 320, 200));
        RecordingDelegate delegate;
        view.setDelegate(&delegate);
        QList<QEvent::Type> touches;
        view.setTouchHook([&](QEvent::Type type) { touches.append(type); });
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        loadAndWait(view, delegate,
                    page(QStringLiteral("<a href='qmsg://click?u=1' style='display:block;"
                                        "width:320px;height:200px'>tap</a>")));
        delegate.requests.clear();
        delegate.types.clear();
        QWidget* target = view.findChild<QWebEngineView*>()->focusProxy();
        QVERIFY(target != nullptr);
        QTest::mouseClick(target, Qt::LeftButton, {}, QPoint(100, 100));
        QTRY_COMPARE_WITH_TIMEOUT(delegate.requests.size(), 1, 10000);
        QCOMPARE(delegate.requests[0].url(), QUrl("qmsg://click?u=1"));
        QCOMPARE(delegate.types[0], int(WebViewNavigationTypeLinkClicked));
        QVERIFY(touches.contains(QEvent::MouseButtonPress));
    }

    void loadRequestSendsItsRefererAndShowsItToTheDelegate() {
        WebView view;
        RecordingDelegate delegate;
        view.setDelegate(&delegate);
        UrlRequest request(server_.url(QStringLiteral("/page")));
        request.setValueForHTTPHeaderField("http://referrer.example/ad", "Referer");
        view.loadRequest(request);
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("finish")), 15000);
        QCOMPARE(delegate.events,
                 (QStringList{"should:" + request.url().toString(), "start", "finish"}));
        QCOMPARE(delegate.types, QList<int>{WebViewNavigationTypeOther});
        QCOMPARE(delegate.requests[0].valueForHTTPHeaderField("Referer"),
                 QStringLiteral("http://referrer.example/ad"));
        QCOMPARE(server_.requests().value(0).header("Referer"),
                 QByteArray("http://referrer.example/ad"));
        QCOMPARE(view.request().url(), request.url());
    }

    void backForwardAndReloadHaveTheirTypes() {
        WebView view;
        RecordingDelegate delegate;
        view.setDelegate(&delegate);
        view.loadRequest(UrlRequest(server_.url(QStringLiteral("/page"))));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("finish")), 15000);
        delegate.events.clear();
        // (Entries that scripts add without a user gesture are skipped by the engine's back.)
        view.loadRequest(UrlRequest(server_.url(QStringLiteral("/other"))));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("finish")), 15000);
        QTRY_VERIFY(view.canGoBack());
        QVERIFY(!view.canGoForward());

        delegate.types.clear();
        view.goBack();
        QTRY_COMPARE_WITH_TIMEOUT(delegate.types, QList<int>{WebViewNavigationTypeBackForward},
                                  10000);
        QTRY_VERIFY(view.canGoForward());
        delegate.types.clear();
        delegate.events.clear();
        view.reload();
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("finish")), 15000);
        QCOMPARE(delegate.types, QList<int>{WebViewNavigationTypeReload});
    }

    void hiddenViewRunsScriptsAndReturnsValues() {
        WebView view;  // never shown
        RecordingDelegate delegate;
        view.setDelegate(&delegate);
        view.loadHTMLStringBaseURL(
            QStringLiteral("<html><head><script>var built = 6 * 7;"
                           "location.href = 'qmsg://ad/built?url=' + built;</script></head>"
                           "<body></body></html>"),
            server_.url(QStringLiteral("/")));
        QTRY_VERIFY_WITH_TIMEOUT(
            delegate.events.contains(QStringLiteral("should:qmsg://ad/built?url=42")), 15000);
        QVERIFY(!view.isVisible());

        QString text;
        QVariant value;
        bool called = false;
        view.stringByEvaluatingJavaScriptFromString(QStringLiteral("built + 1"),
                                                    [&](const QString& r) { text = r; });
        view.evaluateJavaScript(QStringLiteral("({a: built})"), [&](const QVariant& r) {
            value = r;
            called = true;
        });
        view.stringByEvaluatingJavaScriptFromString(
            QStringLiteral("undefined"),
            [&](const QString& r) { text += QStringLiteral("|") + r; });
        QVERIFY(text.isEmpty());  // never during the call
        QTRY_VERIFY(called);
        QTRY_COMPARE(text, QStringLiteral("43|"));
        QCOMPARE(value.toMap().value("a").toInt(), 42);
    }

    void stopLoadingReportsACancelledLoad() {
        server_.route(QStringLiteral("/slow"), [](const auto&) {
            HttpTestResponse r;
            r.delayMs = 3000;
            r.body = "late";
            return r;
        });
        WebView view;
        RecordingDelegate delegate;
        view.setDelegate(&delegate);
        view.loadRequest(UrlRequest(server_.url(QStringLiteral("/slow"))));
        QTRY_VERIFY_WITH_TIMEOUT(view.isLoading(), 10000);
        view.stopLoading();
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("fail")), 10000);
        QVERIFY(!view.isLoading());
        QCOMPARE(delegate.errors.value(0).code(), qint64(kWebViewErrorCancelled));
    }
};

SORVEL_UI_TEST_MAIN(TestWebView)
#include "tst_webview.moc"
