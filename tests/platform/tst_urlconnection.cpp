// A connection ended from inside its own response callback, cancelled or destroyed. Statuses,
// redirects, failures, a cancel in a redirect and one while waiting are proven through the cached
// file and click tracker suites and the end-to-end hostile server; the shared cookie jar by the
// web view suite.
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
};

QTEST_GUILESS_MAIN(TestUrlConnection)
#include "tst_urlconnection.moc"
