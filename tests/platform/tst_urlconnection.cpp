// How a connection ends early: cancelled in a callback or while waiting, destroyed by its
// delegate. Statuses, redirects and failures are proven through the cached file and click
// tracker suites and the end-to-end hostile server; the shared cookie jar by the web view suite.
#include "platform/urlconnection.h"
#include "support/httptestserver.h"

#include <QTest>

using namespace platform;
using testsupport::HttpTestRequest;
using testsupport::HttpTestResponse;
using testsupport::HttpTestServer;

namespace {

// Records every callback as a line; ends the connection at a chosen point.
struct Recorder : UrlConnectionDelegate {
    QStringList events;
    QString endOn;                         // "redirect" or "response"
    std::unique_ptr<UrlConnection> owned;  // destroyed instead of cancelled when set

    void end(UrlConnection& c) { owned ? owned.reset() : c.cancel(); }
    std::optional<UrlRequest> connectionWillSendRequest(UrlConnection& c, const UrlRequest& request,
                                                        const HttpResponse* redirect) override {
        events << (redirect ? QStringLiteral("redirect") : QStringLiteral("request"));
        if (redirect != nullptr && endOn == QLatin1String("redirect")) {
            end(c);
        }
        return request;
    }
    void connectionDidReceiveResponse(UrlConnection& c, const HttpResponse& r) override {
        events << QStringLiteral("response %1").arg(r.statusCode);
        if (endOn == QLatin1String("response")) {
            end(c);
        }
    }
    void connectionDidReceiveData(UrlConnection&, const QByteArray&) override { events << "data"; }
    void connectionDidFinishLoading(UrlConnection&) override { events << "finish"; }
    void connectionDidFailWithError(UrlConnection&, const Error&) override { events << "fail"; }
};

}  // namespace

class TestUrlConnection : public QObject {
    Q_OBJECT
    HttpTestServer server_;

  private slots:
    void initTestCase() {
        QVERIFY(server_.start());
        server_.route("/ok", [](const HttpTestRequest&) {
            HttpTestResponse r;
            r.body = "hello";
            return r;
        });
        server_.route("/hop", [](const HttpTestRequest&) {
            HttpTestResponse r;
            r.status = 302;
            r.headers = {{"Location", "/ok"}};
            return r;
        });
        server_.route("/slow", [](const HttpTestRequest&) {
            HttpTestResponse r;
            r.body = "late";
            r.delayMs = 3000;
            return r;
        });
    }

    // Nothing is heard after the end, and nothing crashes.
    void endedEarlyTellsNothingMore_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("endOn");  // "": cancelled from outside once asked
        QTest::addColumn<bool>("destroy");   // else only cancelled
        QTest::addColumn<QStringList>("events");
        QTest::newRow("cancelled in a redirect")
            << "/hop"
            << "redirect" << false << QStringList{"request", "redirect"};
        QTest::newRow("cancelled in a response")
            << "/ok"
            << "response" << false << QStringList{"request", "response 200"};
        QTest::newRow("destroyed in a response")
            << "/ok"
            << "response" << true << QStringList{"request", "response 200"};
        QTest::newRow("cancelled while the server waits, then destroyed")
            << "/slow"
            << "" << true << QStringList{"request"};
    }
    void endedEarlyTellsNothingMore() {
        QFETCH(QString, path);
        QFETCH(QString, endOn);
        QFETCH(bool, destroy);
        QFETCH(QStringList, events);
        Recorder rec;
        rec.endOn = endOn;
        auto connection = std::make_unique<UrlConnection>(UrlRequest(server_.url(path)), &rec);
        QCOMPARE(rec.events.size(), 0);  // nothing happens during construction
        const bool byDelegate = destroy && !endOn.isEmpty();
        if (byDelegate) {
            rec.owned = std::move(connection);
        }
        QTRY_COMPARE(rec.events, events);
        if (endOn.isEmpty()) {
            connection->cancel();
            connection.reset();
        }
        QTest::qWait(200);  // room for callbacks that should not come
        QCOMPARE(rec.events, events);
        QVERIFY(!rec.owned);  // gone when it was the delegate's
    }
};

QTEST_GUILESS_MAIN(TestUrlConnection)
#include "tst_urlconnection.moc"
