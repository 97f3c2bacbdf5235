#include "platform/ui/scriptablewebview.h"
#include "uitestmain.h"

using namespace platform;

namespace {

class Recorder : public WebViewDelegate {
  public:
    bool webViewShouldStartLoadWithRequestNavigationType(WebView*, const UrlRequest& r,
                                                         int type) override {
        events << QStringLiteral("should:%1:%2").arg(r.url().toString()).arg(type);
        return r.url().scheme() != QLatin1String("qmsg");
    }
    void webViewDidStartLoad(WebView*) override { events << "start"; }
    void webViewDidFinishLoad(WebView*) override { events << "finish"; }
    void webViewDidFailLoadWithError(WebView*, const Error& e) override {
        events << QStringLiteral("fail:%1").arg(e.code());
    }
    QStringList events;
};

}  // namespace

// The double must tell its delegate what the engine would, in the same order and on later turns.
class TestScriptableWebView : public QObject {
    Q_OBJECT
  private slots:
    void loadsAndScriptsGoLikeTheEngine() {
        ScriptableWebView view;
        Recorder delegate;
        view.setDelegate(&delegate);
        view.loadHTMLStringBaseURL("<p>ad</p>", QUrl("http://ads.example/"));
        QVERIFY(delegate.events.isEmpty());
        QTRY_COMPARE(delegate.events,
                     (QStringList{"should:http://ads.example/:5", "start", "finish"}));
        QCOMPARE(view.script()->loadedHTML(), QStringList{"<p>ad</p>"});

        delegate.events.clear();
        QVERIFY(!view.script()->navigate(UrlRequest(QUrl("qmsg://ad/close")), 0));
        QCOMPARE(delegate.events, QStringList{"should:qmsg://ad/close:0"});
        QCOMPARE(view.request().url(), QUrl("http://ads.example/"));

        delegate.events.clear();
        view.script()->setAutoFinish(false);
        view.script()->navigate(UrlRequest(QUrl("http://ads.example/next")), 0);
        QVERIFY(view.isLoading());
        view.stopLoading();
        QCOMPARE(delegate.events, (QStringList{"should:http://ads.example/next:0", "start",
                                               QStringLiteral("fail:%1").arg(-999)}));

        view.script()->setScriptHandler(
            [](const QString& script) { return script == "1+1" ? QVariant(2) : QVariant(); });
        QString answer = "unset";
        view.stringByEvaluatingJavaScriptFromString("1+1", [&](const QString& r) { answer = r; });
        QCOMPARE(answer, QStringLiteral("unset"));
        QTRY_COMPARE(answer, QStringLiteral("2"));
    }
};

SORVEL_UI_TEST_MAIN(TestScriptableWebView)
#include "tst_scriptablewebview.moc"
