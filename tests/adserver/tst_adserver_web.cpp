// Runs the ad server's support script and demo creatives in a real web engine page and checks
// the in-ad message URLs they navigate to.
#include "adserver/adserver.h"
#include "rawhttp.h"

#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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

  private:
    QTemporaryDir dir_;
    adserver::AdServer server_;
    adserver::AdServer demo_;

    // The hidden page as the client composes it: the script, then the call with the JSON.
    QUrl buildAdURL(MessagePage& page, const QByteArray& paramsJson) {
        const QString script =
            QString::fromUtf8(rawGet(server_.port(), "/zelm/sdk-core-v40.js").body);
        const QString html = QStringLiteral("<html><head><script>") + script +
                             QStringLiteral("</script><script>ZELM_buildAdURL(") +
                             QString::fromUtf8(paramsJson) +
                             QStringLiteral(");</script></head><body></body></html>");
        page.setHtml(html, server_.url());
        if (!QTest::qWaitFor([&page] { return !page.messages.isEmpty(); }, 20000)) {
            return {};
        }
        return page.messages.first();
    }

  private slots:
    void initTestCase() {
        QVERIFY(dir_.isValid());
        const QString inventory = QFINDTESTDATA("web-inventory.json");
        QVERIFY(!inventory.isEmpty());
        QVERIFY2(server_.start(0, QStringLiteral("127.0.0.1"), inventory),
                 qPrintable(server_.errorString()));
        QVERIFY2(demo_.start(), qPrintable(demo_.errorString()));
    }

    void scriptAnswers_data() {
        QTest::addColumn<QByteArray>("params");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("type");  // for loadAdURL with a URL
        QTest::addColumn<int>("adStatus");  // status of the ad URL; 0: no URL expected
        QTest::newRow("known unit")
            << QByteArray(R"({"slotname":"bbbbbbbbbbbbbb1","js":"zelm-sdk-i-v4.1.1","preqs":3,)"
                          R"("kw":["coffee","tea & milk"],"extras":{"color":"red","n":[1,2]},)"
                          R"("ad_frame":{"x":0,"y":430.5,"w":320,"h":50},"hl":"en_US"})")
            << "loadAdURL"
            << "html" << 200;
        QTest::newRow("request type from the unit")
            << QByteArray(R"({"slotname":"bbbbbbbbbbbbbb2"})") << "loadAdURL"
            << "plinth" << 200;
        QTest::newRow("malformed unit goes on to be rejected")
            << QByteArray(R"({"slotname":"BBBB"})") << "loadAdURL"
            << "html" << 400;
        QTest::newRow("no slotname")
            << QByteArray(R"({"js":"zelm-sdk-i-v4.1.1","preqs":1})") << "invalidRequest"
            << "" << 0;
        QTest::newRow("empty slotname") << QByteArray(R"({"slotname":""})") << "invalidRequest"
                                        << "" << 0;
        QTest::newRow("unknown unit")
            << QByteArray(R"({"slotname":"0123456789abcde"})") << "unableToServe"
            << "" << 0;
        QTest::newRow("paused unit")
            << QByteArray(R"({"slotname":"bbbbbbbbbbbbbb3"})") << "unableToServe"
            << "" << 0;
        QTest::newRow("unit wants the error path")
            << QByteArray(R"({"slotname":"bbbbbbbbbbbbbb4"})") << "loadAdURL"
            << "" << 0;
        QTest::newRow("request asks for unableToServe")
            << QByteArray(
                   R"({"slotname":"bbbbbbbbbbbbbb1","extras":{"zf_scriptReply":"unableToServe"}})")
            << "unableToServe"
            << "" << 0;
    }
    void scriptAnswers() {
        QFETCH(QByteArray, params);
        QFETCH(QString, message);
        QFETCH(QString, type);
        QFETCH(int, adStatus);
        MessagePage page;
        const QUrl url = buildAdURL(page, params);
        QCOMPARE(url.scheme(), QStringLiteral("qmsg"));
        QCOMPARE(messageName(url), message);
        const QVariantMap reply = parameters(url);
        if (adStatus == 0) {
            QVERIFY(!reply.contains(QStringLiteral("url")));
            // The error path of loadAdURL is the only reply without a URL that says "errors".
            QCOMPARE(reply.contains(QStringLiteral("errors")),
                     message == QLatin1String("loadAdURL"));
            return;
        }
        QCOMPARE(reply.value(QStringLiteral("type")).toString(), type);
        const QUrl adUrl(reply.value(QStringLiteral("url")).toString());
        QCOMPARE(adUrl.adjusted(QUrl::RemoveQuery), server_.adEndpointUrl());
        // Every parameter travels in the ad URL's query: strings and numbers as text, nested
        // dictionaries and arrays as JSON.
        const QVariantMap sent = QJsonDocument::fromJson(params).object().toVariantMap();
        const QVariantMap query = parameters(adUrl);
        QCOMPARE(query.keys(), sent.keys());
        for (auto it = sent.begin(); it != sent.end(); ++it) {
            const QString text = query.value(it.key()).toString();
            if (it.value().typeId() == QMetaType::QVariantMap ||
                it.value().typeId() == QMetaType::QVariantList) {
                QCOMPARE(QJsonDocument::fromJson(text.toUtf8()).toVariant(), it.value());
            } else {
                QCOMPARE(text, it.value().toString());
            }
        }
        const RawReply ad =
            rawGet(server_.port(), adUrl.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority));
        QCOMPARE(ad.status, adStatus);
        if (adStatus == 200) {
            QVERIFY(ad.body.contains("plain"));
        }
    }

    void creativesSendMessages_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("action");  // script run after the page has loaded
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QVariantMap>("params");  // of the first message; "*x" means contains x
        const QString landing = demo_.url().resolved(QUrl(QStringLiteral("landing/"))).toString();
        const QString ad = QStringLiteral("/ad?slotname=0a1b2c3d4e5f601&zf_creative=");
        const QString click = QStringLiteral("document.getElementById('%1').click()");
        QTest::newRow("open in the browser")
            << ad + "open-actions" << click.arg("browser") << QStringList{"open"}
            << QVariantMap{{"a", "browser"}, {"u", landing}};
        QTest::newRow("open a web app by URL")
            << ad + "open-actions" << click.arg("webapp") << QStringList{"open"}
            << QVariantMap{{"a", "webapp"}, {"o", "p"}, {"u", "*/webapp/"}};
        QTest::newRow("open a web app from HTML")
            << ad + "open-actions" << click.arg("html") << QStringList{"open"}
            << QVariantMap{{"a", "webapp"}, {"html", "*Quick booking"}};
        QTest::newRow("open another app")
            << ad + "open-actions" << click.arg("app") << QStringList{"open"}
            << QVariantMap{{"a", "app"}, {"u", "sorvelstore://app/harbor-travel"}};
        QTest::newRow("touch and log")
            << ad + "touch-log"
            << "var b = document.querySelector('.bubble');"
               "b.dispatchEvent(new MouseEvent('mousedown', {bubbles: true, clientX: 140, clientY: "
               "20}));"
               "b.dispatchEvent(new MouseEvent('mouseup', {bubbles: true, clientX: 140, clientY: "
               "20}));"
            << QStringList{"touch", "log"} << QVariantMap{{"tx", "140"}, {"ty", "20"}};
        QTest::newRow("web app banner") << ad + "webapp" << click.arg("ad") << QStringList{"open"}
                                        << QVariantMap{{"a", "webapp"}, {"u", "*/webapp/"}};
        QTest::newRow("asks which URLs open")
            << ad + "can-open"
            << "" << QStringList{"canOpenURLs"}
            << QVariantMap{{"urls", "tel:,mailto:,sms:,sorvelstore:"}};
        QTest::newRow("web app closes")
            << "/webapp/" << click.arg("close") << QStringList{"close"} << QVariantMap();
        QTest::newRow("web app closes, older form")
            << "/webapp/" << click.arg("closeOld") << QStringList{"torvin:closecanvas"}
            << QVariantMap();
    }
    void creativesSendMessages() {
        QFETCH(QString, path);
        QFETCH(QString, action);
        QFETCH(QStringList, names);
        QFETCH(QVariantMap, params);
        MessagePage page;
        QSignalSpy loaded(&page, &QWebEnginePage::loadFinished);
        page.load(demo_.url().resolved(QUrl(path.mid(1))));
        QVERIFY(loaded.wait(20000));
        QVERIFY(loaded.first().first().toBool());
        if (!action.isEmpty()) {
            page.runJavaScript(action);
        }
        QTRY_VERIFY_WITH_TIMEOUT(page.messages.size() >= names.size(), 10000);
        QStringList seen;
        for (const QUrl& url : std::as_const(page.messages)) {
            seen.append(messageName(url));
        }
        QCOMPARE(seen.mid(0, names.size()), names);
        const QVariantMap sent = parameters(page.messages.first());
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

    void pagesReceiveMessages_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("probe");  // script whose result shows the message arrived
        QTest::addColumn<QString>("expected");
        QTest::newRow("web app onshow")
            << "/webapp/"
            << "ZELM_ReceiveMessage('onshow', {version: 'zelm-sdk-i-v4.1.1', device: 'desktop'})"
            << "document.getElementById('events').textContent"
            << "onshow {\"version\":\"zelm-sdk-i-v4.1.1\",\"device\":\"desktop\"}";
        QTest::newRow("web app onhide") << "/webapp/"
                                        << "ZELM_ReceiveMessage('onhide')"
                                        << "document.getElementById('events').textContent"
                                        << "onhide";
        QTest::newRow("openable URLs")
            << "/ad?slotname=0a1b2c3d4e5f601&zf_creative=can-open"
            << "ZELM_ReceiveMessage('openableURLs', {'tel:': true, 'mailto:': true, 'sms:': false})"
            << "document.getElementById('state').textContent"
            << "2 ways to reach us";
    }
    void pagesReceiveMessages() {
        QFETCH(QString, path);
        QFETCH(QString, call);
        QFETCH(QString, probe);
        QFETCH(QString, expected);
        MessagePage page;
        QSignalSpy loaded(&page, &QWebEnginePage::loadFinished);
        page.load(demo_.url().resolved(QUrl(path.mid(1))));
        QVERIFY(loaded.wait(20000));
        const qint64 before = demo_.lastLogSeq();
        page.runJavaScript(call);
        // The page answers pending callbacks even while it is being destroyed, so the result
        // lives in shared storage rather than on this stack frame.
        auto text = std::make_shared<QString>();
        QTRY_VERIFY_WITH_TIMEOUT(
            (page.runJavaScript(probe, [text](const QVariant& v) { *text = v.toString(); }),
             *text == expected),
            10000);
        // The script also reports each received message to the server's log.
        const QString name = call.section(QLatin1Char('\''), 1, 1);
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                const QJsonArray entries = demo_.logEntries(before);
                for (const QJsonValue& entry : entries) {
                    const QJsonObject object = entry.toObject();
                    if (object.value("path").toString() == QLatin1String("/msg") &&
                        object.value("query").toObject().value("name").toString() == name) {
                        return true;
                    }
                }
                return false;
            }(),
            10000);
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
