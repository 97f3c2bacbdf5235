// Runs the demo pages the application's in-process server shows in a real web engine page and
// checks the in-ad message URLs they navigate to.
#include "adserver/adserver.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>
#include <QWebEnginePage>
#include <QWebEngineSettings>

namespace {

// Records the message navigations ("qmsg", "torvin") that a web view delegate would act on,
// and refuses them as the client does.
class MessagePage : public QWebEnginePage {
  public:
    MessagePage() {
        settings()->setUnknownUrlSchemePolicy(QWebEngineSettings::AllowAllUnknownUrlSchemes);
    }
    QList<QUrl> messages;

  protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType, bool) override {
        if (url.scheme() == QLatin1String("qmsg") || url.scheme() == QLatin1String("torvin")) {
            messages.append(url);
            return false;
        }
        return true;
    }
};

QVariantMap parameters(const QUrl& url) {
    QVariantMap map;
    for (const auto& [key, value] : QUrlQuery(url).queryItems(QUrl::FullyDecoded)) {
        map.insert(key, value);
    }
    return map;
}

QString messageName(const QUrl& url) {
    return url.scheme() == QLatin1String("torvin") ? QStringLiteral("torvin:") + url.host()
                                                   : url.path().mid(1);
}

}  // namespace

class TestAdServerWeb : public QObject {
    Q_OBJECT
    adserver::AdServer demo_;

  private slots:
    void initTestCase() {
        demo_.setRequestFaultsEnabled(true);  // pages pick their creative with "zf_creative"
        QVERIFY2(demo_.start(), qPrintable(demo_.errorString()));
    }

    // The end-to-end suites show the support script's answers and the client's side of these
    // messages; the demo pages' own messages are only seen here.
    void pagesSendMessages_data() {
        QTest::addColumn<QString>("page");
        QTest::addColumn<QString>("action");  // script run after the page has loaded
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QVariantMap>("params");  // of the first message; "*x" means contains x
        const QString landing = demo_.url().resolved(QUrl(QStringLiteral("landing/"))).toString();
        const QString ad = QStringLiteral("/ad?slotname=0a1b2c3d4e5f601&zf_creative=");
        const QString click = QStringLiteral("document.getElementById('%1').click()");
        const QString touch = QStringLiteral(
            "for (const type of ['mousedown', 'mouseup']) document.querySelector('.bubble')"
            ".dispatchEvent(new MouseEvent(type, {bubbles: true, clientX: 140, clientY: 20}));");
        // clang-format off
        QTest::newRow("open in the browser") << ad + "open-actions" << click.arg("browser") << QStringList{"open"} << QVariantMap{{"a", "browser"}, {"u", landing}};
        QTest::newRow("open a web app by URL") << ad + "open-actions" << click.arg("webapp") << QStringList{"open"}
            << QVariantMap{{"a", "webapp"}, {"o", "p"}, {"u", "*/webapp/"}};
        QTest::newRow("open a web app from HTML") << ad + "open-actions" << click.arg("html") << QStringList{"open"}
            << QVariantMap{{"a", "webapp"}, {"html", "*Quick order"}};
        QTest::newRow("open another app") << ad + "open-actions" << click.arg("app") << QStringList{"open"}
            << QVariantMap{{"a", "app"}, {"u", "sorvelstore://app/brindle-roasters"}};
        QTest::newRow("touch and log") << ad + "touch-log" << touch << QStringList{"touch", "log"} << QVariantMap{{"tx", "140"}, {"ty", "20"}};
        QTest::newRow("web app banner") << ad + "webapp" << click.arg("ad") << QStringList{"open"} << QVariantMap{{"a", "webapp"}, {"u", "*/webapp/"}};
        QTest::newRow("asks which URLs open") << ad + "can-open" << "" << QStringList{"canOpenURLs"}
            << QVariantMap{{"urls", "tel:,mailto:,sms:,sorvelstore:"}};
        QTest::newRow("web app closes") << "/webapp/" << click.arg("close") << QStringList{"close"} << QVariantMap();
        // clang-format on
    }
    void pagesSendMessages() {
        QFETCH(QString, page);
        QFETCH(QString, action);
        QFETCH(QStringList, names);
        QFETCH(QVariantMap, params);
        MessagePage web;
        QSignalSpy loaded(&web, &QWebEnginePage::loadFinished);
        web.load(demo_.url().resolved(QUrl(page.mid(1))));
        QVERIFY(loaded.wait(20000));
        QVERIFY(loaded.first().first().toBool());
        if (!action.isEmpty()) {
            web.runJavaScript(action);
        }
        QTRY_VERIFY_WITH_TIMEOUT(web.messages.size() >= names.size(), 10000);
        QStringList seen;
        for (const QUrl& url : std::as_const(web.messages)) {
            seen.append(messageName(url));
        }
        QCOMPARE(seen.mid(0, names.size()), names);
        const QVariantMap sent = parameters(web.messages.first());
        for (auto it = params.begin(); it != params.end(); ++it) {
            const QString expected = it.value().toString();
            const QString actual = sent.value(it.key()).toString();
            if (expected.startsWith(QLatin1Char('*'))) {
                QVERIFY2(actual.contains(expected.mid(1)), qPrintable(it.key() + ": " + actual));
            } else {
                QCOMPARE(actual, expected);
            }
        }
    }
};

#if defined(__SANITIZE_ADDRESS__)
// The web engine's own library trips the sanitizer: a sized delete inside the engine when a page
// goes away, and allocations it (and libraries it unloads) keep until exit. Neither is about this
// code; the server's own leaks are checked by tst_adserver, which runs without the engine.
extern "C" const char* __asan_default_options() {
    return "new_delete_type_mismatch=0:detect_leaks=0";
}
#endif

int main(int argc, char** argv) {
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv);
    TestAdServerWeb test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_adserver_web.moc"
