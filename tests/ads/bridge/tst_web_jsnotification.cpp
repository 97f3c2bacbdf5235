#include "ads/bridge/PXBNotificationCenter.h"
#include "platform/ui/uitestmain.h"
#include "platform/ui/webview.h"

class TestJSNotification : public QObject {
    Q_OBJECT
  private slots:
    void messagesReachThePageScript() {
        struct Loaded : platform::WebViewDelegate {
            bool finished = false;
            void webViewDidFinishLoad(platform::WebView*) override { finished = true; }
        } delegate;
        platform::WebView view;
        view.setDelegate(&delegate);
        view.loadHTMLStringBaseURL(
            "<script>var got = [];"
            "function ZELM_ReceiveMessage(name, data) {"
            "  got.push([name, arguments.length, data === undefined ? null : data]); }"
            "</script>",
            QUrl("http://localhost/"));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.finished, 15000);

        auto& center = PXBNotificationCenter::defaultCenter();
        center.postJSNotification("onshow", std::nullopt, &view);
        center.postJSNotification("openableURLs", QVariantMap{{"urls", QVariantList{"a:", 2}}},
                                  &view);
        center.postJSNotification("ignored", std::nullopt, nullptr);
        QString got;
        view.stringByEvaluatingJavaScriptFromString("JSON.stringify(got)",
                                                    [&](const QString& result) { got = result; });
        QTRY_VERIFY_WITH_TIMEOUT(!got.isEmpty(), 15000);
        QCOMPARE(got, QString(R"([["onshow",1,null],["openableURLs",2,{"urls":["a:",2]}]])"));
    }
};

SORVEL_UI_TEST_MAIN(TestJSNotification)
#include "tst_web_jsnotification.moc"
