#include "adserver/adserver.h"
#include "adserver/locationcode.h"
#include "rawhttp.h"

#include <QJsonDocument>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

using adserver::AdServer;

namespace {

const QByteArray kScript = "/zelm/sdk-core-v40.js";

// Whether `pattern` matches exactly one header line; "!pattern": none, "2*pattern": two.
bool headerLinesMatch(const RawReply& reply, QString pattern) {
    const int wanted = pattern.startsWith('!') ? 0 : pattern.startsWith("2*") ? 2 : 1;
    const QRegularExpression expression(pattern.remove(QRegularExpression("^(!|2\\*)")));
    const auto found = std::count_if(
        reply.headerLines.begin(), reply.headerLines.end(), [&](const QByteArray& line) {
            return expression.match(QString::fromLatin1(line)).hasMatch();
        });
    return found == wanted;
}

// "*": not empty; else contains it.
bool bodyMatches(const QByteArray& body, const QByteArray& expected) {
    return expected == "*" ? !body.isEmpty() : body.contains(expected);
}

}  // namespace

class TestAdServer : public QObject {
    Q_OBJECT

  private:
    AdServer server_;
    quint16 port_ = 0;

  private slots:
    void initTestCase() {
        QVERIFY2(server_.start(0, QStringLiteral("127.0.0.1"), QFINDTESTDATA("inventory.json")),
                 qPrintable(server_.errorString()));
        port_ = server_.port();
        server_.setRequestFaultsEnabled(true);  // cases steer the server through the request
    }

    // Whatever a case changed is put back, even when it failed half way.
    void cleanup() {
        server_.setRequestFaultsEnabled(true);
        server_.setPeerAddressOverride(QHostAddress());
        server_.setLogToken(QString());
        QVERIFY(server_.setServerNames({}));
        server_.setPathFaults(QStringLiteral("/ad"), {});
        server_.setLimits(adserver::ServerLimits());
    }

    // Requests no client sends are refused, and the server keeps serving after each. A request's
    // own fault switches count only where the server allows them (the application's in-process
    // server does not); the operator's (inventory, setPathFaults) hold either way. Where they are
    // allowed, the end-to-end suites show their effect on the client; the malformed headers they
    // make are checked here, as either reading of them is right for the client.
    void answers_data() {
        QTest::addColumn<bool>("requestFaults");
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<int>("status");
        // Header line patterns, each matching exactly one line; "!": no line, "2*": two lines.
        QTest::addColumn<QStringList>("headers");
        QTest::addColumn<QByteArray>("body");  // contained in it; "*": not empty
        const auto get = [this](const QByteArray& target) { return getRequest(port_, target); };
        const QByteArray ad = "/ad?slotname=aaaaaaaaaaaaaa2&";
        const QByteArray store = "<p>store</p>";
        const QByteArray extras = "extras=" + QUrl::toPercentEncoding(R"({"zf_status":"503"})");
        const QStringList none;
        const QStringList noLocation{"!^Location:"};
        const QByteArray any = "*";
        // clang-format off
        QTest::newRow("fault: header line without colon") << true << get(ad + "zf_malformedHeader=true") << 200 << QStringList{"^[^:]+$"} << store;
        QTest::newRow("fault: repeated headers") << true << get(ad + "zf_repeatedHeader=1") << 200 << QStringList{"2*^X-Zelm-Tracking-Urls: "} << store;
        QTest::newRow("fault switches out of range ignored") << true << get(ad + "zf_status=99&zf_oversizeBytes=-5&zf_delayMs=x") << 200 << none << store;
        QTest::newRow("status, not allowed: ignored") << false << get(ad + "zf_status=500") << 200 << none << store;
        QTest::newRow("in extras, not allowed") << false << get(ad + extras) << 200 << none << store;
        // A last redirect hop names its creative, under a mark only the server can make.
        QTest::newRow("made-up hop mark, not allowed: creative's own fault") << false << get("/ad?slotname=aaaaaaaaaaaaaa6&zf_hop=1&zf_creative=store") << 502 << none << QByteArray("status 502");
        QTest::newRow("made-up redirect loop, not allowed") << false << get("/r?loop=1") << 404 << noLocation << any;
        QTest::newRow("operator's fault, not allowed: applied") << false << get("/ad?slotname=aaaaaaaaaaaaaa6") << 502 << none << any;
        QTest::newRow("script, not allowed: answers as the unit says") << false << get(kScript) << 200 << none << QByteArray("var REQUEST_FAULTS = false;");
        QTest::newRow("no version") << true << QByteArray("GET /ad\r\n\r\n") << 400 << none << any;
        QTest::newRow("relative target") << true << QByteArray("GET ad HTTP/1.1\r\n\r\n") << 400 << none << any;
        QTest::newRow("header without colon") << true << QByteArray("GET / HTTP/1.1\r\nOops\r\n\r\n") << 400 << none << any;
        QTest::newRow("huge header") << true << QByteArray("GET / HTTP/1.1\r\nX: " + QByteArray(40000, 'a') + "\r\n\r\n") << 431 << none << any;
        QTest::newRow("huge body") << true << QByteArray("GET / HTTP/1.1\r\nContent-Length: 100000000\r\n\r\n") << 413 << none << any;
        QTest::newRow("bad length") << true << QByteArray("GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n") << 400 << none << any;
        QTest::newRow("chunked") << true << QByteArray("GET / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n") << 501 << none << any;
        QTest::newRow("post") << true << QByteArray("POST /log HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}") << 405 << none << any;
        QTest::newRow("broken escapes and pairs") << true << QByteArray("GET /ad?%ZZ=%&&&=&slotname=%C3%28&uule=e1%2B%%%&uule=a+ HTTP/1.1\r\n\r\n") << 400 << none << any;
        QTest::newRow("carriage return in the target") << true << QByteArray("GET /ad?slotname=aaaaaaaaaaaaaa2&x=\rLocation:x HTTP/1.1\r\n\r\n") << 400 << noLocation << any;
        // clang-format on
    }
    void answers() {
        QFETCH(bool, requestFaults);
        QFETCH(QByteArray, request);
        QFETCH(int, status);
        QFETCH(QStringList, headers);
        QFETCH(QByteArray, body);
        server_.setRequestFaultsEnabled(requestFaults);
        const RawReply reply = rawExchange(port_, request);
        QCOMPARE(reply.status, status);
        for (const QString& pattern : headers) {
            QVERIFY2(headerLinesMatch(reply, pattern),
                     qPrintable(pattern + " in\n" + reply.headerLines.join('\n')));
        }
        QVERIFY2(bodyMatches(reply.body, body), reply.body.left(300).constData());
        QCOMPARE(rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa2").status, 200);
    }

    // Redirect faults the operator sets run their whole course without request switches: the
    // hops carry the server's own marks, which a changed hop loses.
    void operatorRedirects_data() {
        QTest::addColumn<QJsonObject>("faults");
        QTest::addColumn<int>("hops");  // 302s before the ad; -1: still redirecting after 8
        QTest::newRow("chain") << QJsonObject{{"redirects", 3}} << 3;
        QTest::newRow("loop") << QJsonObject{{"redirectLoop", true}} << -1;
    }
    void operatorRedirects() {
        QFETCH(QJsonObject, faults);
        QFETCH(int, hops);
        server_.setRequestFaultsEnabled(false);
        server_.setPathFaults(QStringLiteral("/ad"), faults);
        const QByteArray origin = "http://127.0.0.1:" + QByteArray::number(port_);
        RawReply reply = rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa1");
        // The creative picked first, as the first hop's tracking URL names it.
        const QRegularExpressionMatch picked =
            QRegularExpression("[?&]c=(\\w+)")
                .match(QString::fromLatin1(reply.value("X-Zelm-Tracking-Urls")));
        QVERIFY(picked.hasMatch());
        QByteArray lastHop;
        int seen = 0;
        while (reply.status == 302 && seen < 8) {
            const QByteArray location = reply.value("Location");
            QVERIFY2(location.startsWith(origin + "/"), location.constData());
            lastHop = location.mid(origin.size());
            reply = rawGet(port_, lastHop);
            ++seen;
        }
        if (hops < 0) {
            QCOMPARE(reply.status, 302);
        } else {
            QCOMPARE(seen, hops);
            QCOMPARE(reply.status, 200);
            QCOMPARE(reply.value("X-Sorvel-Creative"), picked.captured(1).toLatin1());
        }
        // Retraced with one letter of its mark changed, the last hop is refused or redirects
        // again; it never serves the named creative.
        const qsizetype mark = std::max(lastHop.indexOf("sig="), lastHop.indexOf("zf_hop="));
        QVERIFY(mark > 0);
        QByteArray changed = lastHop;
        const qsizetype at = changed.indexOf('=', mark) + 1;
        changed[at] = changed[at] == 'a' ? 'b' : 'a';
        const RawReply refused = rawGet(port_, changed);
        QVERIFY2(refused.status == 404 || refused.status == 302,
                 qPrintable(QString::number(refused.status)));
    }

    // The log holds what clients sent: for loopback, or for whoever shows its token.
    void logAccess_data() {
        QTest::addColumn<QString>("peer");        // as the server sees it; "": the real one
        QTest::addColumn<QString>("token");       // configured
        QTest::addColumn<QByteArray>("headers");  // sent
        QTest::addColumn<QByteArray>("query");    // sent
        QTest::addColumn<int>("status");
        const QString token = QStringLiteral("7f3c-log-\u00e9t\u00e9");
        const QByteArray bearer = "Authorization: Bearer " + token.toUtf8() + "\r\n";
        const QString elsewhere = QStringLiteral("192.0.2.7");
        // clang-format off
        QTest::newRow("loopback") << "" << "" << QByteArray() << QByteArray() << 200;
        QTest::newRow("IPv6 loopback") << "::1" << "" << QByteArray() << QByteArray() << 200;
        QTest::newRow("IPv4-mapped loopback") << "::ffff:127.0.0.1" << "" << QByteArray() << QByteArray() << 200;
        QTest::newRow("off loopback") << elsewhere << "" << QByteArray() << QByteArray() << 403;
        QTest::newRow("IPv6, off loopback") << "2001:db8::1" << "" << QByteArray() << QByteArray() << 403;
        QTest::newRow("off loopback, token in a header") << elsewhere << token << bearer << QByteArray() << 200;
        QTest::newRow("off loopback, token in the query") << elsewhere << token << QByteArray() << "&token=" + QUrl::toPercentEncoding(token) << 200;
        QTest::newRow("off loopback, wrong token") << elsewhere << token << QByteArray(bearer).replace("7f3c", "7f3d") << QByteArray() << 403;
        // clang-format on
    }
    void logAccess() {
        QFETCH(QString, peer);
        QFETCH(QString, token);
        QFETCH(QByteArray, headers);
        QFETCH(QByteArray, query);
        QFETCH(int, status);
        QCOMPARE(rawGet(port_, "/t/imp?c=secret-place").status, 200);
        server_.setLogToken(token);
        server_.setPeerAddressOverride(QHostAddress(peer));
        const RawReply reply =
            rawExchange(port_, getRequest(port_, "/log?since=0" + query, headers));
        QCOMPARE(reply.status, status);
        QCOMPARE(reply.body.contains("secret-place"), status == 200);
        if (status == 200) {
            QCOMPARE(reply.value("X-Content-Type-Options"), QByteArray("nosniff"));
        }
    }

    // Requests name one of the server's own names or get 400; pages name the server as it
    // spells itself, never as the request did. (Its own address is every end-to-end request's.)
    void hostNames_data() {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("origin");    // in the script, when served
        QTest::addColumn<QByteArray>("notShown");  // in no header line nor the body
        const QByteArray p = QByteArray::number(port_);
        const auto get = [](const QByteArray& hostLines, const QByteArray& version = "HTTP/1.1") {
            return "GET " + kScript + " " + version + "\r\n" + hostLines + "\r\n";
        };
        const auto host = [&get](const QByteArray& name) { return get("Host: " + name + "\r\n"); };
        // clang-format off
        QTest::newRow("localhost") << host("localhost:" + p) << 200 << "http://localhost:" + p << QByteArray();
        QTest::newRow("configured name") << host("ads.test:" + p) << 200 << "http://ads.test:" + p << QByteArray();
        QTest::newRow("configured name with its own port") << host("proxy.test:8443") << 200 << QByteArray("http://proxy.test:8443") << QByteArray();
        QTest::newRow("configured name, other port") << host("ads.test:1") << 400 << QByteArray() << QByteArray("ads.test");
        QTest::newRow("other name") << host("rebound.example:" + p) << 400 << QByteArray() << QByteArray("rebound");
        QTest::newRow("IPv6 loopback, not listened on") << host("[::1]:" + p) << 400 << QByteArray() << QByteArray("::1");
        QTest::newRow("markup") << host("<b>x</b>") << 400 << QByteArray() << QByteArray("<b>");
        QTest::newRow("user info") << host("127.0.0.1:" + p + "@rebound.example") << 400 << QByteArray() << QByteArray("rebound");
        QTest::newRow("two Host lines") << get("Host: 127.0.0.1:" + p + "\r\nHost: rebound.example\r\n") << 400 << QByteArray() << QByteArray("rebound");
        QTest::newRow("none, HTTP/1.1") << get("") << 400 << QByteArray() << QByteArray();
        QTest::newRow("absolute target names another host") << "GET http://rebound.example:" + p + kScript + " HTTP/1.1\r\nHost: 127.0.0.1:" + p + "\r\n\r\n" << 400 << QByteArray() << QByteArray("rebound");
        // clang-format on
    }
    void hostNames() {
        QFETCH(QByteArray, request);
        QFETCH(int, status);
        QFETCH(QByteArray, origin);
        QFETCH(QByteArray, notShown);
        QVERIFY(server_.setServerNames(
            {QStringLiteral("ADS.test"), QStringLiteral("proxy.test:8443")}));
        const qint64 before = server_.lastLogSeq();
        const RawReply reply = rawExchange(port_, request);
        QCOMPARE(reply.status, status);
        if (!origin.isEmpty()) {
            QVERIFY2(reply.body.contains("var SERVED_FROM = \"" + origin + "\";"),
                     reply.body.left(400).constData());
        }
        if (!notShown.isEmpty()) {
            QVERIFY(!reply.body.contains(notShown));
            QVERIFY(!reply.headerLines.join('\n').contains(notShown));
        }
        const QJsonArray logged = server_.logEntries(before);
        QCOMPARE(logged.size(), 1);
        QCOMPARE(logged[0]["misdirected"].toBool(), status == 400);
        if (status == 400 && !notShown.isEmpty()) {
            QVERIFY(!QJsonDocument(logged[0].toObject()).toJson().contains(notShown));
        }
    }

    // Padding asked for is capped, and counted in Content-Length.
    void oversizeIsCapped() {
        const qint64 cap = 8 * 1024 * 1024;
        const RawReply reply =
            rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa2&zf_oversizeBytes=67108864");
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.value("Content-Length").toLongLong(), cap);
        QCOMPARE(reply.body.size(), cap);
    }

    // Padding being sent counts against a budget shared by all connections, and is given back
    // when its connection goes away.
    void oversizeInFlightIsBounded() {
        adserver::ServerLimits limits;
        limits.maxOversizeInFlight = 8 * 1024 * 1024;
        server_.setLimits(limits);
        const QByteArray big = "/ad?slotname=aaaaaaaaaaaaaa2&zf_oversizeBytes=8388608";
        QTcpSocket stalled;  // asks for the whole budget and reads nothing
        stalled.setReadBufferSize(1024);
        stalled.connectToHost(QHostAddress::LocalHost, port_);
        QVERIFY(stalled.waitForConnected(2000));
        stalled.write(getRequest(port_, big));
        QTRY_VERIFY(stalled.bytesAvailable() > 0);
        const RawReply refused = rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa2&zf_oversizeBytes=100");
        QCOMPARE(refused.status, 503);
        QCOMPARE(refused.value("Retry-After"), QByteArray("1"));
        QCOMPARE(rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa2").status, 200);  // no padding
        stalled.abort();
        QTRY_COMPARE(rawGet(port_, big).body.size(), 8 * 1024 * 1024);
    }

    void survivesRandomRequests() {
        // Random bytes after a plausible start, raw or escaped, on every endpoint.
        QRandomGenerator random(20240611);
        const QByteArray starts[] = {
            "GET /ad?", "GET /log?since=", "GET /t/click?c=", "GET /r?", "HEAD /landing/?", ""};
        for (int i = 0; i < 150; ++i) {
            QByteArray noise(random.bounded(1, 300), Qt::Uninitialized);
            for (char& c : noise) {
                c = char(random.bounded(256));
            }
            const QByteArray& start = starts[i % std::size(starts)];
            const RawReply reply =
                rawExchange(port_, i % 2 ? start + noise + "\r\n\r\n"
                                         : start + noise.toPercentEncoding() + " HTTP/1.1\r\n\r\n");
            QVERIFY(reply.status >= 200 && reply.status < 600);
            QVERIFY(!adserver::decodeLocation(QString::fromLatin1(noise),
                                              AdServer::defaultLocationKey())
                         .ok);
        }
        QCOMPARE(rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa2").status, 200);
    }

    void connectionLimitAndTimeout() {
        adserver::ServerLimits limits;
        limits.maxConnections = 2;
        limits.requestTimeoutMs = 300;
        server_.setLimits(limits);
        QTcpSocket idle[2];
        for (QTcpSocket& socket : idle) {
            socket.connectToHost(QHostAddress::LocalHost, port_);
            QVERIFY(socket.waitForConnected(2000));
            socket.write("GET / HT");  // an unfinished request holds the connection
        }
        QTRY_COMPARE(rawGet(port_, "/").status, 503);
        // Unfinished requests are answered 408 and closed once the time-out passes.
        for (QTcpSocket& socket : idle) {
            QTRY_VERIFY_WITH_TIMEOUT(
                socket.state() == QAbstractSocket::UnconnectedState || socket.bytesAvailable() > 0,
                5000);
            QVERIFY(socket.readAll().startsWith("HTTP/1.1 408"));
        }
        QTRY_COMPARE_WITH_TIMEOUT(rawGet(port_, "/").status, 200, 5000);
    }
};

QTEST_GUILESS_MAIN(TestAdServer)
#include "tst_adserver.moc"
