#include "platform/urlconnection.h"
#include "support/httptestserver.h"

#include <QTest>

using namespace platform;
using testsupport::HttpTestRequest;
using testsupport::HttpTestResponse;
using testsupport::HttpTestServer;

namespace {

// Records every callback as a line, and can cancel at a chosen point.
struct Recorder : UrlConnectionDelegate {
    QStringList events;
    QList<HttpResponse> redirects;
    HttpResponse response;
    QByteArray body;
    Error error;
    bool done = false;
    QString cancelOn;
    std::function<std::optional<UrlRequest>(const UrlRequest&, const HttpResponse*)> onRedirect;

    std::optional<UrlRequest> connectionWillSendRequest(UrlConnection& c, const UrlRequest& request,
                                                        const HttpResponse* redirect) override {
        events << (redirect ? QString("redirect %1 -> %2")
                                  .arg(redirect->statusCode)
                                  .arg(request.url().toString())
                            : QString("request"));
        if (redirect) {
            redirects << *redirect;
        }
        if (cancelOn == "redirect" && redirect) {
            c.cancel();
        }
        return onRedirect ? onRedirect(request, redirect) : std::optional<UrlRequest>(request);
    }
    void connectionDidReceiveResponse(UrlConnection& c, const HttpResponse& r) override {
        events << QString("response %1").arg(r.statusCode);
        response = r;
        if (cancelOn == "response") {
            c.cancel();
        }
    }
    void connectionDidReceiveData(UrlConnection&, const QByteArray& data) override { body += data; }
    void connectionDidFinishLoading(UrlConnection&) override {
        events << "finish";
        done = true;
    }
    void connectionDidFailWithError(UrlConnection&, const Error& e) override {
        events << QString("fail %1").arg(e.code());
        error = e;
        done = true;
    }
};

HttpTestResponse reply(int status, QByteArray body = {},
                       QList<QPair<QByteArray, QByteArray>> headers = {}) {
    HttpTestResponse r;
    r.status = status;
    r.body = std::move(body);
    r.headers = std::move(headers);
    return r;
}

}  // namespace

class TestUrlConnection : public QObject {
    Q_OBJECT
    HttpTestServer server_;

  private slots:
    void initTestCase() {
        QVERIFY(server_.start());
        server_.route("/ok", [](const HttpTestRequest& r) {
            return reply(200, "hello " + r.header("X-Test"),
                         {{"X-One", "1"}, {"Content-Type", "text/plain"}});
        });
        server_.route("/notmodified", [](const HttpTestRequest&) { return reply(304); });
        server_.route("/missing", [](const HttpTestRequest&) {
            return reply(404, "gone", {{"X-Why", "absent"}});
        });
        for (int i = 1; i <= 3; ++i) {
            server_.route(QString("/hop%1").arg(i), [i](const HttpTestRequest&) {
                const QByteArray next = i < 3 ? "/hop" + QByteArray::number(i + 1) : "/ok";
                return reply(302, {}, {{"Location", next}, {"X-Hop", QByteArray::number(i)}});
            });
        }
        server_.route("/toapp", [](const HttpTestRequest&) {
            return reply(302, "moved", {{"Location", "itms-apps://store.example/app/1"}});
        });
        server_.route("/loop", [](const HttpTestRequest&) {
            return reply(302, {}, {{"Location", "/loop"}});
        });
        server_.route("/dropped", [](const HttpTestRequest&) {
            HttpTestResponse r = reply(200, QByteArray(4000, 'x'));
            r.dropAfterBytes = 100;
            return r;
        });
        server_.route("/slow", [](const HttpTestRequest&) {
            HttpTestResponse r = reply(200, "late");
            r.delayMs = 3000;
            return r;
        });
    }

    void statusesBodiesAndHeaders_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("header");
        QTest::addColumn<QString>("headerValue");
        QTest::newRow("200") << "/ok" << QStringList{"request", "response 200", "finish"}
                             << QByteArray("hello sent") << "x-one" << QString("1");
        QTest::newRow("304") << "/notmodified" << QStringList{"request", "response 304", "finish"}
                             << QByteArray() << "Content-Length" << QString("0");
        QTest::newRow("404") << "/missing" << QStringList{"request", "response 404", "finish"}
                             << QByteArray("gone") << "X-Why" << QString("absent");
    }
    void statusesBodiesAndHeaders() {
        QFETCH(QString, path);
        QFETCH(QStringList, events);
        QFETCH(QByteArray, body);
        QFETCH(QString, header);
        QFETCH(QString, headerValue);
        Recorder rec;
        UrlRequest request(server_.url(path));
        request.setValueForHTTPHeaderField("sent", "X-Test");
        UrlConnection connection(request, &rec);
        QCOMPARE(rec.events.size(), 0);  // nothing happens during construction
        QTRY_VERIFY(rec.done);
        QCOMPARE(rec.events, events);
        QCOMPARE(rec.body, body);
        QCOMPARE(rec.response.valueForHeader(header), headerValue);
    }

    void oneCallbackPerRedirectHopWithItsHeaders() {
        Recorder rec;
        UrlConnection connection(UrlRequest(server_.url("/hop1")), &rec);
        QTRY_VERIFY(rec.done);
        QCOMPARE(rec.events.size(), 6);
        QCOMPARE(rec.events[1], "redirect 302 -> " + server_.url("/hop2").toString());
        QCOMPARE(rec.events[3], "redirect 302 -> " + server_.url("/ok").toString());
        QCOMPARE(rec.events.mid(4), (QStringList{"response 200", "finish"}));
        QCOMPARE(rec.redirects.size(), 3);
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(rec.redirects[i].valueForHeader("X-Hop"), QString::number(i + 1));
            QCOMPARE(rec.redirects[i].url, server_.url(QString("/hop%1").arg(i + 1)));
        }
    }

    void redirectToAnotherSchemeIsOfferedToTheDelegate() {
        Recorder rec;
        rec.onRedirect = [](const UrlRequest& r,
                            const HttpResponse* redirect) -> std::optional<UrlRequest> {
            if (redirect && r.url().scheme() == "itms-apps") {
                return std::nullopt;  // keep the redirect response as the answer
            }
            return r;
        };
        UrlConnection connection(UrlRequest(server_.url("/toapp")), &rec);
        QTRY_VERIFY(rec.done);
        QCOMPARE(rec.events,
                 (QStringList{"request", "redirect 302 -> itms-apps://store.example/app/1",
                              "response 302", "finish"}));

        Recorder follow;  // followed, it fails as an unsupported URL
        UrlConnection second(UrlRequest(server_.url("/toapp")), &follow);
        QTRY_VERIFY(follow.done);
        QCOMPARE(follow.error.code(), UrlConnection::kErrorUnsupportedURL);
    }

    void cancelInsideRedirectStopsEverything() {
        Recorder rec;
        rec.cancelOn = "redirect";
        UrlConnection connection(UrlRequest(server_.url("/hop1")), &rec);
        QTRY_COMPARE(rec.events.size(), 2);
        QTest::qWait(100);
        QCOMPARE(rec.events.size(), 2);
        QVERIFY(!rec.done);
    }

    void failures_data() {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<int>("code");
        QTest::newRow("refused")
            << QUrl(QString("http://127.0.0.1:%1/").arg(testsupport::unusedPort()))
            << int(UrlConnection::kErrorCannotConnectToHost);
        QTest::newRow("dropped mid-body")
            << server_.url("/dropped") << int(UrlConnection::kErrorNetworkConnectionLost);
        QTest::newRow("redirect loop")
            << server_.url("/loop") << int(UrlConnection::kErrorHTTPTooManyRedirects);
        QTest::newRow("not http") << QUrl("ftp://example.invalid/x")
                                  << int(UrlConnection::kErrorUnsupportedURL);
    }
    void failures() {
        QFETCH(QUrl, url);
        QFETCH(int, code);
        Recorder rec;
        UrlConnection connection{UrlRequest(url), &rec};
        QTRY_VERIFY_WITH_TIMEOUT(rec.done, 10000);
        QVERIFY2(rec.events.last().startsWith("fail"), qPrintable(rec.events.join(", ")));
        QCOMPARE(rec.error.domain(), kNetworkErrorDomain);
        QCOMPARE(rec.error.code(), code);
    }

    void slowResponseCancelled() {
        Recorder rec;
        auto connection = std::make_unique<UrlConnection>(UrlRequest(server_.url("/slow")), &rec);
        QTRY_COMPARE(rec.events.size(), 1);
        connection->cancel();
        QTest::qWait(200);
        QCOMPARE(rec.events, QStringList{"request"});
        connection.reset();  // destroying after cancel is quiet too
    }

    void delegateMayDestroyTheConnectionInACallback() {
        struct Destroyer : Recorder {
            std::unique_ptr<UrlConnection> owned;
            void connectionDidReceiveResponse(UrlConnection& c, const HttpResponse& r) override {
                Recorder::connectionDidReceiveResponse(c, r);
                owned.reset();
            }
        } rec;
        rec.owned = std::make_unique<UrlConnection>(UrlRequest(server_.url("/ok")), &rec);
        QTRY_VERIFY(!rec.owned);
        QTest::qWait(50);
        QCOMPARE(rec.events, (QStringList{"request", "response 200"}));
    }

    void cookiesAreKeptBetweenConnections() {
        server_.route("/setcookie", [](const HttpTestRequest&) {
            return reply(200, "", {{"Set-Cookie", "session=abc; Path=/"}});
        });
        server_.route("/readcookie",
                      [](const HttpTestRequest& r) { return reply(200, r.header("Cookie")); });
        Recorder first;
        UrlConnection a(UrlRequest(server_.url("/setcookie")), &first);
        QTRY_VERIFY(first.done);
        Recorder second;
        UrlConnection b(UrlRequest(server_.url("/readcookie")), &second);
        QTRY_VERIFY(second.done);
        QCOMPARE(second.body, QByteArray("session=abc"));
    }
};

QTEST_GUILESS_MAIN(TestUrlConnection)
#include "tst_urlconnection.moc"
