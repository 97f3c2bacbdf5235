// The web view's corners that the end-to-end suites cannot reach: navigations from frames and
// scripts, how loads end (refused redirects, HTTP error pages, a stop), cookies across launches
// and the Referer's origin rule. Plain loads, clicks, back and forward are proven end to end.
#include "platform/ui/webview.h"
#include "platform/ui/webviewpaint.h"
#include "platform/urlconnection.h"
#include "support/httptestserver.h"
#include "uitestmain.h"

#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QWebEngineView>

using namespace platform;
using testsupport::HttpTestResponse;
using testsupport::HttpTestServer;

namespace {

// Records what a web view tells its delegate and answers navigations by scheme.
class RecordingDelegate : public WebViewDelegate {
  public:
    explicit RecordingDelegate(WebView& view) { view.setDelegate(this); }
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
    bool ended() const {
        return events.contains(QStringLiteral("finish")) || events.contains(QStringLiteral("fail"));
    }

    std::function<bool(const QUrl&)> allow = [](const QUrl& url) {
        return url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("about");
    };
    QList<UrlRequest> requests;
    QList<int> types;
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

    // "HTTP/path" in a table stands for the test server's URL.
    QString expand(const QString& target) const {
        return target.startsWith(QLatin1String("HTTP")) ? server_.url(target.mid(4)).toString()
                                                        : target;
    }
    bool fetched(const QString& path) const {
        return std::any_of(server_.requests().begin(), server_.requests().end(),
                           [&](const auto& r) { return r.path == path; });
    }

  private slots:
    void initTestCase() {
        QVERIFY(server_.start());
        server_.route(QStringLiteral("/page"), [](const auto&) { return htmlResponse("page"); });
    }

    void init() { server_.clearRequests(); }

    // Another site's page is named by its origin only (the engine's referrer policy, which
    // cancels the request otherwise); a reload has its own type. Plain loads of HTML with a base
    // URL are every ad's, proven end to end.
    void requestWithAReferrerLoadsAndReloads() {
        WebView view;
        RecordingDelegate delegate(view);
        const QUrl url = server_.url(QStringLiteral("/page"));
        UrlRequest request(url);
        request.setValueForHTTPHeaderField("http://referrer.example/ad", "Referer");
        view.loadRequest(request);
        QVERIFY(delegate.events.isEmpty());  // nothing happens during the call
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 15000);
        QCOMPARE(delegate.events, (QStringList{"should:" + url.toString(), "start", "finish"}));
        QCOMPARE(delegate.types, QList<int>{WebViewNavigationTypeOther});
        QCOMPARE(delegate.requests[0].valueForHTTPHeaderField("Referer"),
                 QStringLiteral("http://referrer.example/ad"));
        QVERIFY(!delegate.requests[0].valueForHTTPHeaderField("User-Agent").isEmpty());
        QCOMPARE(server_.requests().value(0).header("Referer"),
                 QByteArray("http://referrer.example/"));
        QCOMPARE(view.request().url(), url);

        delegate.events.clear();
        view.reload();
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 15000);
        QCOMPARE(delegate.events.mid(1), (QStringList{"start", "finish"}));
        QCOMPARE(delegate.types.last(), int(WebViewNavigationTypeReload));
    }

    // Scripts and frames ask like the page; a refused navigation loads nothing, and frame loads
    // add no start or finish of their own.
    void navigationsFromALoadedPageReachTheDelegate_data() {
        QTest::addColumn<QString>("body");    // %1: the target
        QTest::addColumn<QString>("script");  // run once the page is loaded; %1: the target
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("allowed");
        QTest::addColumn<int>("type");
        const QString ad = QStringLiteral("<p>ad</p>");
        const QString assign = QStringLiteral("location.href = '%1';");
        const QString click = QStringLiteral(
            "var a = document.createElement('a'); a.href = '%1'; document.body.appendChild(a);"
            " a.click();");
        const QString frame = QStringLiteral("<iframe src='%1'></iframe>");
        const int other = WebViewNavigationTypeOther;
        // clang-format off
        QTest::newRow("refused http by script") << ad << assign << "HTTP/page" << false << other;
        QTest::newRow("qmsg by scripted click") << ad << click << "qmsg://click?u=x" << false << other;
        QTest::newRow("qmsg frame") << frame << "" << "qmsg:///x" << false << other;
        QTest::newRow("torvin frame") << frame << "" << "torvin://log?string=hi" << false << other;
        QTest::newRow("tel frame") << frame << "" << "tel:+15551234" << false << other;
        QTest::newRow("refused http frame") << frame << "" << "HTTP/page" << false << other;
        QTest::newRow("allowed http frame") << frame << "" << "HTTP/page" << true << other;
        QTest::newRow("link pressed in a frame")
            << QStringLiteral("<iframe style='border:0;width:320px;height:200px' srcdoc=\"<a "
                              "href='%1' style='display:block;width:300px;height:180px'>tap</a>\">"
                              "</iframe>")
            << "" << "qmsg://click?u=2" << false << int(WebViewNavigationTypeLinkClicked);
        // clang-format on
    }
    void navigationsFromALoadedPageReachTheDelegate() {
        QFETCH(QString, body);
        QFETCH(QString, script);
        QFETCH(QString, target);
        QFETCH(bool, allowed);
        QFETCH(int, type);
        target = expand(target);
        const bool press = type == WebViewNavigationTypeLinkClicked;
        WebView view(QRect(0, 0, 320, 200));
        RecordingDelegate delegate(view);
        const auto byScheme = delegate.allow;
        delegate.allow = [&](const QUrl& url) {
            return url == QUrl(target) ? allowed : byScheme(url);
        };
        if (press) {
            view.show();
            QVERIFY(QTest::qWaitForWindowExposed(&view));
        }
        view.loadHTMLStringBaseURL(
            QStringLiteral("<html><body>%1</body></html>").arg(body.arg(target)),
            server_.url(QStringLiteral("/")));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 15000);
        if (press) {
            bool painted = false;
            whenPagePainted(&view, [&](bool drawn) { painted = drawn; });
            QTRY_VERIFY_WITH_TIMEOUT(painted, 10000);
            QTest::mouseClick(view.findChild<QWebEngineView*>()->focusProxy(), Qt::LeftButton, {},
                              QPoint(100, 100));
        }
        if (!script.isEmpty()) {
            view.evaluateJavaScript(script.arg(target));
        }
        const auto asked = [&] {
            for (qsizetype i = 0; i < delegate.requests.size(); ++i) {
                if (delegate.requests[i].url() == QUrl(target)) {
                    return i;
                }
            }
            return qsizetype(-1);
        };
        QTRY_VERIFY_WITH_TIMEOUT(asked() >= 0, 10000);
        QCOMPARE(delegate.types[asked()], type);
        if (!allowed) {
            QTest::qWait(300);  // room for a load that should not happen
        }
        QCOMPARE(delegate.events.filter(QRegularExpression("^(start|finish|fail)$")),
                 (QStringList{"start", "finish"}));
        QCOMPARE(view.request().url(), server_.url(QStringLiteral("/")));  // still the page's
        QCOMPARE(fetched(QStringLiteral("/page")), allowed);
    }

    // A load ends once: a page that arrived finishes whatever its status; a redirect the delegate
    // refuses or the engine cannot load (a click URL answering with another application's
    // address) interrupts it; the network or a stop fails it. The next load goes as usual.
    void eachLoadEndsOnce_data() {
        QTest::addColumn<int>("status");        // 0: nothing listens; -1: stopped while waiting
        QTest::addColumn<QString>("location");  // of a redirect
        QTest::addColumn<bool>("allowed");      // the redirect, by the delegate
        QTest::addColumn<QString>("domain");    // of the error; empty: finished
        QTest::addColumn<qint64>("code");       // 0: any
        const QString web = kWebViewErrorDomain;
        const qint64 interrupted = kWebViewErrorFrameLoadInterrupted;
        // clang-format off
        QTest::newRow("404 with a body") << 404 << "" << false << "" << 0ll;
        QTest::newRow("500 with a body") << 500 << "" << false << "" << 0ll;
        QTest::newRow("connection refused") << 0 << "" << false << kNetworkErrorDomain << 0ll;
        QTest::newRow("stopped") << -1 << "" << false << web << qint64(kWebViewErrorCancelled);
        QTest::newRow("store scheme refused") << 302 << "sorvelstore://app/x" << false << web << interrupted;
        QTest::newRow("tel refused") << 302 << "tel:+15551234" << false << web << interrupted;
        QTest::newRow("message URL refused") << 302 << "qmsg://click?u=1" << false << web << interrupted;
        QTest::newRow("tel allowed, not loadable") << 302 << "tel:+15551234" << true << web << interrupted;
        // clang-format on
    }
    void eachLoadEndsOnce() {
        QFETCH(int, status);
        QFETCH(QString, location);
        QFETCH(bool, allowed);
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
        delegate.allow = [&](const QUrl& u) {
            return u.scheme() == QLatin1String("http") || allowed;
        };
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

        delegate.events.clear();
        view.loadRequest(UrlRequest(server_.url(QStringLiteral("/page"))));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.events.contains(QStringLiteral("finish")), 10000);
        QCOMPARE(delegate.events.mid(1), (QStringList{"start", "finish"}));
    }

    // The page of a hidden view outlives it and, blanked, runs the next hidden view's page in
    // the same content process; a page stuck in a script of its own is never handed on, and
    // its busy process goes.
    void aHiddenViewsPageServesTheNext_data() {
        QTest::addColumn<QString>("script");  // run in the first page before its view goes
        QTest::addColumn<bool>("reused");
        QTest::newRow("done") << "1" << true;
        QTest::newRow("stuck in a loop") << "setTimeout(function(){for(;;){}},0); 1" << false;
    }
    void aHiddenViewsPageServesTheNext() {
        QFETCH(QString, script);
        QFETCH(bool, reused);
        const QUrl base = server_.url(QStringLiteral("/"));
        qint64 firstProcess = 0;
        {
            WebView first;
            RecordingDelegate delegate(first);
            first.loadHTMLStringBaseURL(QStringLiteral("<p>first</p>"), base);
            QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 10000);
            first.loadHTMLStringBaseURL(QStringLiteral("<p>again</p>"), base);  // some history
            QTRY_VERIFY_WITH_TIMEOUT(first.canGoBack(), 10000);
            bool ran = false;
            first.evaluateJavaScript(script, [&](const QVariant&) { ran = true; });
            QTRY_VERIFY_WITH_TIMEOUT(ran, 10000);
            firstProcess = first.contentProcessId();
            QVERIFY(firstProcess != 0);
        }
        if (reused) {
            QTRY_VERIFY_WITH_TIMEOUT(WebView::hasSparePage(), 10000);
        }

        WebView next;
        RecordingDelegate delegate(next);
        next.loadHTMLStringBaseURL(QStringLiteral("<p>next</p>"), base);
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 10000);
        QCOMPARE(delegate.events, (QStringList{"should:" + base.toString(), "start", "finish"}));
        QVERIFY(!next.canGoBack());
        QString text;
        next.stringByEvaluatingJavaScriptFromString("document.body.textContent",
                                                    [&](const QString& r) { text = r; });
        QTRY_COMPARE(text, QStringLiteral("next"));
        QCOMPARE(next.contentProcessId() == firstProcess, reused);
        if (!reused) {
            const QString process = QStringLiteral("/proc/%1").arg(firstProcess);
            QTRY_VERIFY_WITH_TIMEOUT(!QFileInfo::exists(process), 20000);
        }
    }

    // A page made ahead of its first load shows that load as a page made for it would, whether
    // the load comes while the page is still going blank or after.
    void aPreparedViewShowsItsFirstLoadAsAnyOther_data() {
        QTest::addColumn<bool>("waitForProcess");
        QTest::newRow("load at once") << false;
        QTest::newRow("load once the process runs") << true;
    }
    void aPreparedViewShowsItsFirstLoadAsAnyOther() {
        QFETCH(bool, waitForProcess);
        const QUrl base = server_.url(QStringLiteral("/"));
        WebView holder;  // takes the spare page if one waits: the view's own is made afresh
        holder.preparePage();
        WebView view;
        RecordingDelegate delegate(view);
        view.preparePage();
        if (waitForProcess) {
            QTRY_VERIFY_WITH_TIMEOUT(view.contentProcessId() != 0, 10000);
        }
        view.loadHTMLStringBaseURL(QStringLiteral("<p>first</p>"), base);
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 10000);
        QCOMPARE(delegate.events, (QStringList{"should:" + base.toString(), "start", "finish"}));
        QVERIFY(!view.canGoBack());
        QString text;
        view.stringByEvaluatingJavaScriptFromString("document.body.textContent",
                                                    [&](const QString& r) { text = r; });
        QTRY_COMPARE(text, QStringLiteral("first"));
    }

    // One jar for pages and connections; its lasting cookies reach the next launch (a process of
    // its own over this suite's profile, which loads a page and makes a connection).
    void cookiesAreSharedWithConnectionsAndKeptAcrossLaunches_data() {
        QTest::addColumn<QString>("setBy");
        QTest::addColumn<QString>("cookie");
        QTest::addColumn<bool>("kept");
        QTest::newRow("page header, lasting") << "header"
                                              << "p1=a; Max-Age=3600; Path=/" << true;
        QTest::newRow("page script, lasting") << "script"
                                              << "p2=b; max-age=3600; path=/" << true;
        QTest::newRow("page header, session") << "header"
                                              << "p3=c; Path=/" << false;
        QTest::newRow("connection, lasting") << "connection"
                                             << "c1=d; Max-Age=3600; Path=/" << true;
        QTest::newRow("connection, session") << "connection"
                                             << "c2=e; Path=/" << false;
    }
    void cookiesAreSharedWithConnectionsAndKeptAcrossLaunches() {
        QFETCH(QString, setBy);
        QFETCH(QString, cookie);
        QFETCH(bool, kept);
        const QByteArray pair = cookie.section(QLatin1Char(';'), 0, 0).toUtf8();
        server_.route(QStringLiteral("/set"), [=](const auto&) {
            if (setBy == QLatin1String("script")) {
                return htmlResponse("<script>document.cookie = '" + cookie.toUtf8() +
                                    "';</script>");
            }
            HttpTestResponse r = htmlResponse("set");
            r.headers.append({"Set-Cookie", cookie.toUtf8()});
            return r;
        });
        server_.route(QStringLiteral("/echo"), [](const auto&) { return htmlResponse("echo"); });
        struct Connection : UrlConnectionDelegate {
            bool done = false;
            void connectionDidFinishLoading(UrlConnection&) override { done = true; }
            void connectionDidFailWithError(UrlConnection&, const Error&) override { done = true; }
        };
        const auto fetch = [](const QUrl& url) {
            Connection delegate;
            UrlConnection connection{UrlRequest(url), &delegate};
            return QTest::qWaitFor([&] { return delegate.done; }, 10000);
        };
        const auto sent = [&](const QString& query) {
            for (const auto& r : server_.requests()) {
                for (const QByteArray& part : r.header("Cookie").split(';')) {
                    if (r.path == QLatin1String("/echo") && r.query == query &&
                        part.trimmed() == pair) {
                        return true;
                    }
                }
            }
            return false;
        };
        WebView view;
        RecordingDelegate delegate(view);
        const bool byConnection = setBy == QLatin1String("connection");
        if (byConnection) {
            QVERIFY(fetch(server_.url(QStringLiteral("/set"))));
        }
        view.loadRequest(UrlRequest(server_.url(byConnection ? "/echo?page" : "/set")));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.ended(), 10000);
        if (!byConnection) {
            QVERIFY(fetch(server_.url(QStringLiteral("/echo?connection"))));
        }
        QVERIFY(sent(byConnection ? "page" : "connection"));

        server_.clearRequests();
        QProcess launch;
        launch.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        launch.start(QCoreApplication::applicationDirPath() + QStringLiteral("/cookie_probe"),
                     {QCoreApplication::applicationName(),
                      server_.url(QStringLiteral("/echo?page")).toString(),
                      server_.url(QStringLiteral("/echo?connection")).toString()});
        QVERIFY(launch.waitForStarted());
        QTRY_COMPARE_WITH_TIMEOUT(launch.state(), QProcess::NotRunning, 60000);
        QCOMPARE(launch.exitCode(), 0);
        QCOMPARE(sent(QStringLiteral("page")), kept);
        QCOMPARE(sent(QStringLiteral("connection")), kept);
    }
};

SORVEL_UI_TEST_MAIN(TestWebView)
#include "tst_webview.moc"
