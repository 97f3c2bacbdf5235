// A connection ended from inside its own response callback, cancelled or destroyed; what a
// connection may reach, and how long and how far it may go. Statuses,
// redirects, failures, a cancel in a redirect and one while waiting are proven through the cached
// file and click tracker suites and the end-to-end hostile server; the shared cookie jar by the
// web view suite.
#include "platform/netaddress.h"
#include "platform/urlconnection.h"
#include "support/httptestserver.h"

#include <QTest>

using namespace platform;
using testsupport::HttpTestRequest;
using testsupport::HttpTestResponse;
using testsupport::HttpTestServer;

namespace {

// Records every callback as a line; ends the connection when the response arrives.
struct Recorder : UrlConnectionDelegate {
    QStringList events;
    std::unique_ptr<UrlConnection> owned;  // destroyed then; else cancelled

    void connectionDidReceiveResponse(UrlConnection& c, const HttpResponse& r) override {
        events << QStringLiteral("response %1").arg(r.statusCode);
        owned ? owned.reset() : c.cancel();
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
        server_.route("/slow", [](const HttpTestRequest&) {
            HttpTestResponse r;
            r.delayMs = 5000;
            return r;
        });
        server_.route("/loop", [this](const HttpTestRequest&) {
            HttpTestResponse r;
            r.status = 302;
            r.headers.append({"Location", server_.url("/loop").toString().toUtf8()});
            return r;
        });
    }

    // Nothing is heard after the end, and nothing crashes.
    void endedInTheResponseTellsNothingMore_data() {
        QTest::addColumn<bool>("destroy");
        QTest::newRow("cancelled") << false;
        QTest::newRow("destroyed") << true;
    }
    void endedInTheResponseTellsNothingMore() {
        QFETCH(bool, destroy);
        Recorder rec;
        auto connection = std::make_unique<UrlConnection>(UrlRequest(server_.url("/ok")), &rec);
        QCOMPARE(rec.events.size(), 0);  // nothing happens during construction
        if (destroy) {
            rec.owned = std::move(connection);
        }
        QTRY_COMPARE(rec.events, QStringList{"response 200"});
        QTest::qWait(200);  // room for callbacks that should not come
        QCOMPARE(rec.events, QStringList{"response 200"});
        QVERIFY(!rec.owned);
    }

    void localNetworkAddresses_data() {
        QTest::addColumn<QString>("host");
        QTest::addColumn<bool>("local");
        // clang-format off
        for (const char* host : {"127.0.0.1", "127.9.9.9", "localhost", "LOCALHOST.", "app.localhost", "[::1]", "::1",
                                 "10.1.2.3", "172.16.0.1", "172.31.255.255", "192.168.0.10", "169.254.169.254", "100.64.0.1",
                                 "0.0.0.0", "224.0.0.251", "255.255.255.255", "fe80::1", "fd12:3456::1", "::ffff:192.168.1.1", "::"}) {
            QTest::newRow(host) << QString(host) << true;
        }
        for (const char* host : {"8.8.8.8", "172.32.0.1", "100.128.0.1", "192.169.0.1", "2001:4860::8888", "::ffff:8.8.8.8",
                                 "example.com", "localhost.example.com"}) {
            QTest::newRow(host) << QString(host) << false;
        }
        // clang-format on
    }
    void localNetworkAddresses() {
        QFETCH(QString, host);
        QFETCH(bool, local);
        QCOMPARE(isLocalNetworkHost(host), local);
    }

    // A load that may not reach the local network fails before it connects; one that keeps
    // going, or keeps redirecting, fails too.
    void limits_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("allowsLocal");
        QTest::addColumn<double>("maximumDuration");
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("requestsSeen");
        const int noError = 0;
        // clang-format off
        QTest::newRow("allowed: answered") << "/ok" << true << 0.0 << noError << 1;
        QTest::newRow("local refused before connecting") << "/ok" << false << 0.0 << int(UrlConnection::kErrorLocalNetworkRefused) << 0;
        QTest::newRow("slower than its whole time: timed out") << "/slow" << true << 0.3 << int(UrlConnection::kErrorTimedOut) << 1;
        QTest::newRow("endless redirects: stopped after ten hops") << "/loop" << true << 0.0 << int(UrlConnection::kErrorHTTPTooManyRedirects) << UrlConnection::kMaximumRedirects + 1;
        // clang-format on
    }
    void limits() {
        QFETCH(QString, path);
        QFETCH(bool, allowsLocal);
        QFETCH(double, maximumDuration);
        QFETCH(int, code);
        QFETCH(int, requestsSeen);
        struct Outcome : UrlConnectionDelegate {
            int code = -1;
            void connectionDidFinishLoading(UrlConnection&) override { code = 0; }
            void connectionDidFailWithError(UrlConnection&, const Error& e) override {
                code = e.code();
            }
        } outcome;
        const qsizetype before = server_.requests().size();
        UrlRequest request(server_.url(path));
        request.setAllowsLocalNetwork(allowsLocal);
        request.setMaximumDuration(maximumDuration);
        UrlConnection connection(request, &outcome);
        QTRY_VERIFY(outcome.code != -1);
        QCOMPARE(outcome.code, code);
        QCOMPARE(server_.requests().size() - before, requestsSeen);
    }
};

QTEST_GUILESS_MAIN(TestUrlConnection)
#include "tst_urlconnection.moc"
