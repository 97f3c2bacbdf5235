// A connection ended from inside its own response callback, cancelled or destroyed; which hosts
// are the local network; how long a connection may go. Statuses, redirects and their cap,
// failures, a cancel in a redirect and one while waiting are proven through the cached file and
// click tracker suites and the end-to-end suites; one jar for pages and connections, and another
// site's cookies dropped at the next launch, end to end.
#include "platform/cookiestorage.h"
#include "platform/netaddress.h"
#include "platform/urlconnection.h"
#include "support/httptestserver.h"

#include <QTemporaryDir>
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

    // A load slower than its whole time fails as timed out. (One kept off the local network fails
    // before it connects, and one that redirects without end stops after ten hops: both proven
    // end to end, by a public ad's tracker and by the ad server's redirect hops.)
    void aLoadSlowerThanItsWholeTimeTimesOut() {
        struct Outcome : UrlConnectionDelegate {
            int code = -1;
            void connectionDidFinishLoading(UrlConnection&) override { code = 0; }
            void connectionDidFailWithError(UrlConnection&, const Error& e) override {
                code = e.code();
            }
        } outcome;
        const qsizetype before = server_.requests().size();
        UrlRequest request(server_.url("/slow"));
        request.setMaximumDuration(0.3);
        UrlConnection connection(request, &outcome);
        QTRY_VERIFY(outcome.code != -1);
        QCOMPARE(outcome.code, int(UrlConnection::kErrorTimedOut));
        QCOMPARE(server_.requests().size() - before, 1);
    }

    // Dated cookies are written for the next launch; session cookies are not.
    void onlyDatedCookiesOutlastTheLaunch() {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("Cookies"));
        HttpCookieStorage(file).setCookiesFromUrl(
            QNetworkCookie::parseCookies("dated=1; Max-Age=3600\nsession=1"),
            QUrl(QStringLiteral("http://127.0.0.1/")));
        const QList<QNetworkCookie> kept = HttpCookieStorage(file).cookies();
        QCOMPARE(kept.size(), 1);
        QCOMPARE(kept.value(0).name(), QByteArray("dated"));
    }
};

QTEST_GUILESS_MAIN(TestUrlConnection)
#include "tst_urlconnection.moc"
