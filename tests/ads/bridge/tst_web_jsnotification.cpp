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

#if defined(__SANITIZE_ADDRESS__)
// The web engine's own library trips the sanitizer (a sized delete inside the engine, and
// allocations it keeps until exit); neither is about this code, whose leaks the suites without
// the engine check.
extern "C" const char* __asan_default_options() {
    return "new_delete_type_mismatch=0:detect_leaks=0";
}
#endif

SORVEL_UI_TEST_MAIN(TestJSNotification)
#include "tst_web_jsnotification.moc"
