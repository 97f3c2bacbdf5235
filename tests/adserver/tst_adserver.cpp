#include "adserver/adserver.h"
#include "adserver/locationcode.h"
#include "platform/crypto.h"
#include "rawhttp.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QLocale>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using adserver::AdServer;

namespace {

const QByteArray kKey = QByteArray::fromHex("5b1e0c7a93d24f86a1c03e9b7d52f418");
const QByteArray kOtherKeyHex = "00112233445566778899aabbccddeeff";
const QString kHttpDate = QStringLiteral("ddd, dd MMM yyyy HH:mm:ss");
const QByteArray kScript = "/zelm/sdk-core-v40.js";

// The client's location encodings, written here from the protocol for the server to read.
QString webSafe(const QByteArray& bytes) {
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}
const QString kFixedFields =
    QStringLiteral("role: 6 producer: 24 historical_role: 1 historical_producer: 12 timestamp: ");
QString describedLocation(QString description, double timestamp) {
    description.replace(QLatin1Char('"'), QLatin1Char('\''));
    return QStringLiteral("a+") +
           webSafe((kFixedFields + QStringLiteral("%1 loc: \"%2\"")
                                       .arg(QString::number(timestamp * 1e6, 'f', 0), description))
                       .toUtf8());
}
qint32 saturated(double value) {
    return value >= 2147483647.0 ? 2147483647 : value <= -2147483648.0 ? -2147483647 - 1 : value;
}
QString coordinateLocation(double lat, double lng, double accuracy, double timestamp,
                           const QByteArray& key = kKey) {
    QByteArray text = (kFixedFields + QStringLiteral("%1 latlng <latitude_e7: %2 longitude_e7: "
                                                     "%3> radius: %4")
                                          .arg(QString::number(timestamp * 1e6, 'f', 0))
                                          .arg(saturated(lat * 1e7))
                                          .arg(saturated(lng * 1e7))
                                          .arg(saturated(accuracy * 1000)))
                          .toUtf8();
    const int pad = 16 - text.size() % 16;
    text += QByteArray(pad, char(pad));
    QByteArray iv;
    for (int k = 1; k <= 4; ++k) {
        const quint32 word = quint32(saturated(k * timestamp));
        for (int b = 0; b < 4; ++b) {
            iv += char((word >> (8 * b)) & 0xff);
        }
    }
    return QStringLiteral("e1+") + webSafe(iv + *platform::aes128CbcEncrypt(text, key, iv));
}

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

// "": empty; "*": not empty; "!text": does not contain text; else contains it.
bool bodyMatches(const QByteArray& body, const QByteArray& expected) {
    if (expected == "*") {
        return !body.isEmpty();
    }
    if (expected.startsWith('!')) {
        return !body.contains(expected.mid(1));
    }
    return expected.isEmpty() ? body.isEmpty() : body.contains(expected);
}

}  // namespace

class TestAdServer : public QObject {
    Q_OBJECT

  private:
    QTemporaryDir dir_;
    AdServer server_;
    quint16 port_ = 0;

  private slots:
    void initTestCase() {
        QVERIFY(dir_.isValid());
        QVERIFY(server_.setLogFile(dir_.filePath(QStringLiteral("requests.jsonl"))));
        QVERIFY2(server_.start(0, QStringLiteral("127.0.0.1"), QFINDTESTDATA("inventory.json")),
                 qPrintable(server_.errorString()));
        port_ = server_.port();
        // Most cases steer the server through the request, as the client's tests do.
        server_.setRequestFaultsEnabled(true);
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

    // What the end-to-end suites do not reach: conditional GET, the steering headers as
    // configured, identifier checks, fault switches the client cannot tell apart, and requests
    // no client sends. The server has to keep serving after each.
    void answers_data() {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<int>("status");
        // Header line patterns, each matching exactly one line; "!": no line, "2*": two lines.
        QTest::addColumn<QStringList>("headers");
        QTest::addColumn<QByteArray>("body");  // contained in it; "": empty; "*": not empty
        const auto get = [this](const QByteArray& target, const QByteArray& headers = {}) {
            return getRequest(port_, target, headers);
        };
        const RawReply script = rawGet(port_, kScript);
        QDateTime modified = QLocale::c().toDateTime(
            QString::fromLatin1(script.value("Last-Modified")), kHttpDate + " 'GMT'");
        QVERIFY(modified.isValid());
        modified.setTimeSpec(Qt::UTC);
        const auto since = [&](int offset, const char* zone = "") {
            return get(kScript,
                       "If-Modified-Since: " +
                           QLocale::c().toString(modified.addSecs(offset), kHttpDate).toLatin1() +
                           zone + "\r\n");
        };
        const QString o =
            QRegularExpression::escape(QStringLiteral("http://127.0.0.1:%1").arg(port_));
        const QString tag =
            QRegularExpression::escape(QStringLiteral("c=full&u=aaaaaaaaaaaaaa1&n=")) + "\\d+";
        const QStringList none;
        const QByteArray any = "*";
        const QByteArray ad = "/ad?slotname=aaaaaaaaaaaaaa2&";
        // clang-format off
        QTest::newRow("script, same time as the client sends it") << since(0) << 304 << none << QByteArray();
        QTest::newRow("script, same time with GMT") << since(0, " GMT") << 304 << none << QByteArray();
        QTest::newRow("script, later time") << since(3600) << 304 << none << QByteArray();
        QTest::newRow("script, one second earlier") << since(-1) << 200 << none << QByteArray("ZELM_buildAdURL");
        QTest::newRow("script, unparsable time") << get(kScript, "If-Modified-Since: yesterday\r\n") << 200 << none << QByteArray("ZELM_buildAdURL");
        QTest::newRow("every steering header") << get("/ad?slotname=aaaaaaaaaaaaaa1&zf_creative=full") << 200
            << QStringList{"^X-Zelm-Refresh-Rate: 12\\.5$", "^X-Zelm-Orientation: landscape$", "^X-Zelm-Interstitial-Timeout: 7$",
                           "^X-Zelm-Tracking-Urls: " + o + "/t/imp\\?" + tag + "&empty=1 http://elsewhere\\.example/imp\\?a=1$",
                           "^X-Zelm-Click-Tracking-Urls: " + o + "/t/ctrk\\?" + tag + " " + o + "/t/ctrk\\?extra=1$",
                           "^Content-Type: text/html"}
            << QByteArray("<p>full aaaaaaaaaaaaaa1 <a href=\"http://127.0.0.1:" + QByteArray::number(port_) + "/t/click?c=full&amp;u=");
        QTest::newRow("no steering header configured") << get("/ad?slotname=aaaaaaaaaaaaaa1&zf_creative=bare") << 200
            << QStringList{"!^X-Zelm-"} << QByteArray("<p>bare</p>");
        QTest::newRow("paused unit: no fill") << get("/ad?slotname=aaaaaaaaaaaaaa3") << 200 << none << QByteArray();
        QTest::newRow("unknown unit: no fill") << get("/ad?slotname=0123456789abcde") << 200 << none << QByteArray();
        QTest::newRow("unit in upper case") << get("/ad?slotname=AAAAAAAAAAAAAA1") << 400 << none << any;
        QTest::newRow("unit of 14 characters") << get("/ad?slotname=aaaaaaaaaaaaaa") << 400 << none << any;
        QTest::newRow("unit of 16 characters") << get("/ad?slotname=aaaaaaaaaaaaaa11") << 400 << none << any;
        QTest::newRow("unit not hexadecimal") << get("/ad?slotname=aaaaaaaaaaaaaag") << 400 << none << any;
        QTest::newRow("unit missing") << get("/ad?js=1") << 400 << none << any;
        QTest::newRow("impression") << get("/t/imp?c=store&u=aaaaaaaaaaaaaa2&n=1") << 200 << none << QByteArray("GIF89a");
        QTest::newRow("click on an unknown creative") << get("/t/click?c=nope&u=aaaaaaaaaaaaaa1&n=1") << 404 << QStringList{"!^Location:"} << any;
        QTest::newRow("fault status keeps the steering headers") << get("/ad?slotname=aaaaaaaaaaaaaa1&zf_creative=full&zf_status=500") << 500
            << QStringList{"^X-Zelm-Refresh-Rate: 12\\.5$"} << any;
        QTest::newRow("fault status from the creative") << get("/ad?slotname=aaaaaaaaaaaaaa6") << 502
            << QStringList{"^X-Zelm-Refresh-Rate: 9$"} << any;
        QTest::newRow("fault: header line without colon") << get(ad + "zf_malformedHeader=true") << 200 << QStringList{"^[^:]+$"} << QByteArray("<p>store");
        QTest::newRow("fault: repeated headers") << get(ad + "zf_repeatedHeader=1") << 200 << QStringList{"2*^X-Zelm-Tracking-Urls: "} << QByteArray("<p>store");
        QTest::newRow("fault on a path the server does not serve") << get("/landing/never.html?zf_status=503") << 503 << none << any;
        QTest::newRow("fault switches out of range ignored") << get(ad + "zf_status=99&zf_oversizeBytes=-5&zf_delayMs=x") << 200 << none << QByteArray("<p>store</p>");
        QTest::newRow("garbage") << QByteArray("\x01\x02 nonsense\r\n\r\n") << 400 << none << any;
        QTest::newRow("no version") << QByteArray("GET /ad\r\n\r\n") << 400 << none << any;
        QTest::newRow("relative target") << QByteArray("GET ad HTTP/1.1\r\n\r\n") << 400 << none << any;
        QTest::newRow("header without colon") << QByteArray("GET / HTTP/1.1\r\nOops\r\n\r\n") << 400 << none << any;
        QTest::newRow("huge header") << QByteArray("GET / HTTP/1.1\r\nX: " + QByteArray(40000, 'a') + "\r\n\r\n") << 431 << none << any;
        QTest::newRow("huge target") << QByteArray("GET /" + QByteArray(40000, 'a') + " HTTP/1.1\r\n\r\n") << 431 << none << any;
        QTest::newRow("huge body") << QByteArray("GET / HTTP/1.1\r\nContent-Length: 100000000\r\n\r\n") << 413 << none << any;
        QTest::newRow("bad length") << QByteArray("GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n") << 400 << none << any;
        QTest::newRow("chunked") << QByteArray("GET / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n") << 501 << none << any;
        QTest::newRow("post") << QByteArray("POST /log HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}") << 405 << none << any;
        QTest::newRow("broken escapes and pairs") << QByteArray("GET /ad?%ZZ=%&&&=&slotname=%C3%28&uule=e1%2B%%%&uule=a+ HTTP/1.1\r\n\r\n") << 400 << none << any;
        QTest::newRow("bare new lines") << QByteArray("GET /ad?slotname=aaaaaaaaaaaaaa2 HTTP/1.0\n\n") << 200 << none << QByteArray("<p>store");
        QTest::newRow("absolute form") << QByteArray("GET http://127.0.0.1:" + QByteArray::number(port_) + "/landing/ HTTP/1.1\r\n\r\n") << 200 << none << any;
        QTest::newRow("carriage return in the target") << QByteArray("GET /ad?slotname=aaaaaaaaaaaaaa2&x=\rLocation:x HTTP/1.1\r\n\r\n") << 400 << QStringList{"!^Location:"} << any;
        // clang-format on
    }
    void answers() {
        QFETCH(QByteArray, request);
        QFETCH(int, status);
        QFETCH(QStringList, headers);
        QFETCH(QByteArray, body);
        const RawReply reply = rawExchange(port_, request);
        QCOMPARE(reply.status, status);
        for (const QString& pattern : headers) {
            QVERIFY2(headerLinesMatch(reply, pattern),
                     qPrintable(pattern + " in\n" + reply.headerLines.join('\n')));
        }
        QVERIFY2(bodyMatches(reply.body, body), reply.body.left(300).constData());
        QCOMPARE(rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa2").status, 200);
    }

    // A request's own fault switches count only where the server allows them; the operator's
    // (inventory, setPathFaults) hold either way.
    void requestSwitches_data() {
        QTest::addColumn<bool>("allowed");
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<int>("status");
        QTest::addColumn<QStringList>("headers");  // as in answers()
        QTest::addColumn<QByteArray>("body");      // as in answers(); "!x": does not contain x
        const QByteArray ad = "/ad?slotname=aaaaaaaaaaaaaa2&";
        const QByteArray markup = "zf_body=" + QUrl::toPercentEncoding("<script>alert(1)</script>");
        const QByteArray extras = "extras=" + QUrl::toPercentEncoding(R"({"zf_status":"503"})");
        const QByteArray forgedHop = "/ad?slotname=aaaaaaaaaaaaaa6&zf_hop=1&zf_creative=store";
        const QStringList none;
        // clang-format off
        QTest::newRow("status, not allowed: ignored") << false << ad + "zf_status=500" << 200 << none << QByteArray("<p>store</p>");
        QTest::newRow("status, allowed") << true << ad + "zf_status=500" << 500 << none << QByteArray("status 500");
        QTest::newRow("markup body, not allowed: not echoed") << false << ad + markup << 200 << none << QByteArray("!<script>");
        QTest::newRow("location, not allowed: no redirect") << false << ad + "zf_status=302&zf_location=http://elsewhere.example/" << 200 << QStringList{"!^Location:"} << QByteArray("<p>store</p>");
        QTest::newRow("location, allowed") << true << ad + "zf_status=302&zf_location=http://elsewhere.example/" << 302 << QStringList{"^Location: http://elsewhere\\.example/$"} << QByteArray("*");
        QTest::newRow("in extras, not allowed") << false << ad + extras << 200 << none << QByteArray("<p>store</p>");
        // A last redirect hop names its creative, under a mark only the server can make.
        QTest::newRow("made-up hop mark, not allowed: creative's own fault") << false << forgedHop << 502 << none << QByteArray("status 502");
        QTest::newRow("made-up hop mark, allowed: creative switched") << true << forgedHop << 200 << none << QByteArray("<p>store</p>");
        QTest::newRow("made-up redirect loop, not allowed") << false << QByteArray("/r?loop=1") << 404 << QStringList{"!^Location:"} << QByteArray("*");
        QTest::newRow("operator's fault, not allowed: applied") << false << QByteArray("/ad?slotname=aaaaaaaaaaaaaa6") << 502 << none << QByteArray("*");
        QTest::newRow("script, not allowed: answers as the unit says") << false << kScript << 200 << none << QByteArray("var REQUEST_FAULTS = false;");
        QTest::newRow("script, allowed: answers as the request says") << true << kScript << 200 << none << QByteArray("var REQUEST_FAULTS = true;");
        // clang-format on
    }
    void requestSwitches() {
        QFETCH(bool, allowed);
        QFETCH(QByteArray, target);
        QFETCH(int, status);
        QFETCH(QStringList, headers);
        QFETCH(QByteArray, body);
        server_.setRequestFaultsEnabled(allowed);
        QCOMPARE(server_.requestFaultsEnabled(), allowed);
        const RawReply reply = rawGet(port_, target);
        QCOMPARE(reply.status, status);
        for (const QString& pattern : headers) {
            QVERIFY2(headerLinesMatch(reply, pattern),
                     qPrintable(pattern + " in\n" + reply.headerLines.join('\n')));
        }
        QVERIFY2(bodyMatches(reply.body, body), reply.body.left(300).constData());
    }

    // Redirect faults the operator sets run their whole course without request switches: the
    // hops carry the server's own marks, which a changed hop loses.
    void operatorRedirects_data() {
        QTest::addColumn<bool>("requestFaults");
        QTest::addColumn<QJsonObject>("faults");
        QTest::addColumn<int>("hops");  // 302s before the ad; -1: still redirecting after 8
        QTest::newRow("chain") << false << QJsonObject{{"redirects", 3}} << 3;
        QTest::newRow("loop") << false << QJsonObject{{"redirectLoop", true}} << -1;
    }
    void operatorRedirects() {
        QFETCH(bool, requestFaults);
        QFETCH(QJsonObject, faults);
        QFETCH(int, hops);
        server_.setRequestFaultsEnabled(requestFaults);
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
        if (!requestFaults) {
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
        QTest::newRow("off loopback, empty token, none configured") << elsewhere << "" << QByteArray("Authorization: Bearer \r\n") << QByteArray("&token=") << 403;
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
        QCOMPARE(AdServer::isLoopback(QHostAddress(peer.isEmpty() ? "127.0.0.1" : peer)),
                 status == 200 && token.isEmpty());
    }

    // Requests name one of the server's own names or get 400; pages name the server as it
    // spells itself, never as the request did.
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
        const QByteArray own = "http://127.0.0.1:" + p;
        // clang-format off
        QTest::newRow("own address") << host("127.0.0.1:" + p) << 200 << own << QByteArray();
        QTest::newRow("localhost") << host("localhost:" + p) << 200 << "http://localhost:" + p << QByteArray();
        QTest::newRow("configured name") << host("ads.test:" + p) << 200 << "http://ads.test:" + p << QByteArray();
        QTest::newRow("configured name with its own port") << host("proxy.test:8443") << 200 << QByteArray("http://proxy.test:8443") << QByteArray();
        QTest::newRow("configured name, other port") << host("ads.test:1") << 400 << QByteArray() << QByteArray("ads.test");
        QTest::newRow("other name") << host("rebound.example:" + p) << 400 << QByteArray() << QByteArray("rebound");
        QTest::newRow("own address, other port") << host("127.0.0.1:1") << 400 << QByteArray() << QByteArray();
        QTest::newRow("IPv6 loopback, not listened on") << host("[::1]:" + p) << 400 << QByteArray() << QByteArray("::1");
        QTest::newRow("markup") << host("<b>x</b>") << 400 << QByteArray() << QByteArray("<b>");
        QTest::newRow("user info") << host("127.0.0.1:" + p + "@rebound.example") << 400 << QByteArray() << QByteArray("rebound");
        QTest::newRow("empty") << host("") << 400 << QByteArray() << QByteArray();
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

    void serverNamesAreChecked_data() {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("names and addresses")
            << QStringList{"ads.test", "[2001:db8::1]:80", "10.0.0.2"} << true;
        QTest::newRow("scheme") << QStringList{"ads.test", "http://ads.test"} << false;
        QTest::newRow("path") << QStringList{"ads.test/x"} << false;
        QTest::newRow("port 0") << QStringList{"ads.test:0"} << false;
        QTest::newRow("IPv6 without brackets") << QStringList{"2001:db8::1"} << false;
        QTest::newRow("empty") << QStringList{""} << false;
    }
    void serverNamesAreChecked() {
        QFETCH(QStringList, names);
        QFETCH(bool, accepted);
        QVERIFY(server_.setServerNames({QStringLiteral("kept.test")}));
        QCOMPARE(server_.setServerNames(names), accepted);
        const QString p = QStringLiteral(":%1").arg(port_);
        const QStringList served = server_.serverNames();
        QCOMPARE(served.mid(0, 2), (QStringList{"127.0.0.1" + p, "localhost" + p}));
        QCOMPARE(served.contains("kept.test" + p), !accepted);
    }

    // Padding is capped, counted in Content-Length and sent in full (or half, when truncated).
    void oversize_data() {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<qint64>("length");    // announced
        QTest::addColumn<qint64>("received");  // body bytes
        QTest::addColumn<QByteArray>("start");
        QTest::addColumn<QByteArray>("end");
        const QByteArray ad = "/ad?slotname=aaaaaaaaaaaaaa2&zf_oversizeBytes=";
        const qint64 cap = 8 * 1024 * 1024;
        // clang-format off
        QTest::newRow("capped, HTML in a comment") << getRequest(port_, ad + "67108864") << cap << cap << QByteArray("<p>store</p><!--  ") << QByteArray("  -->");
        QTest::newRow("just over the body") << getRequest(port_, ad + "19") << qint64(19) << qint64(19) << QByteArray("<p>store</p><!---->") << QByteArray();
        QTest::newRow("not HTML: blanks") << getRequest(port_, "/t/imp?c=x&zf_oversizeBytes=100000") << qint64(100000) << qint64(100000) << QByteArray("GIF89a") << QByteArray("    ");
        QTest::newRow("truncated half way") << getRequest(port_, ad + "1000000&zf_truncate=1") << qint64(1000000) << qint64(500000) << QByteArray("<p>store</p><!--") << QByteArray("    ");
        QTest::newRow("body replaces the padding") << getRequest(port_, ad + "1000000&zf_body=x") << qint64(1) << qint64(1) << QByteArray("x") << QByteArray();
        QTest::newRow("HEAD") << "HEAD" + getRequest(port_, ad + "5000").mid(3) << qint64(5000) << qint64(0) << QByteArray() << QByteArray();
        // clang-format on
    }
    void oversize() {
        QFETCH(QByteArray, request);
        QFETCH(qint64, length);
        QFETCH(qint64, received);
        QFETCH(QByteArray, start);
        QFETCH(QByteArray, end);
        const RawReply reply = rawExchange(port_, request);
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.value("Content-Length").toLongLong(), length);
        QCOMPARE(reply.body.size(), received);
        QVERIFY(reply.body.startsWith(start));
        QVERIFY(reply.body.endsWith(end));
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

    // Every location the log decodes or refuses, read back from the log endpoint.
    void locationsInTheLog_data() {
        QTest::addColumn<QString>("uule");
        QTest::addColumn<QByteArray>("keyHex");     // the server's key; empty: the shared default
        QTest::addColumn<QJsonObject>("expected");  // fields of the decoded location
        const QString good = coordinateLocation(1.5, 2.5, 3, 1600000000.0);
        const auto refused = [](const char* error) {
            return *error ? QJsonObject{{"ok", false}, {"error", error}}
                          : QJsonObject{{"ok", false}};
        };
        // clang-format off
        QTest::newRow("described place") << describedLocation(QStringLiteral("Caf\u00e9 \"Paris\" 7e"), 1300000000.0) << QByteArray()
            << QJsonObject{{"form", "a+"}, {"ok", true}, {"description", QStringLiteral("Caf\u00e9 'Paris' 7e")}, {"timestamp", 1300000000.0}};
        QTest::newRow("coordinates") << coordinateLocation(48.8584, -2.2945, 35, 1700000000.0) << QByteArray()
            << QJsonObject{{"form", "e1+"}, {"ok", true}, {"latitude", 48.8584}, {"longitude", -2.2945}, {"accuracy", 35.0}, {"timestamp", 1700000000.0}};
        QTest::newRow("coordinates under another key") << coordinateLocation(-33.8568, 151.2153, 5, 1700000000.0, QByteArray::fromHex(kOtherKeyHex)) << kOtherKeyHex
            << QJsonObject{{"form", "e1+"}, {"ok", true}, {"latitude", -33.8568}, {"longitude", 151.2153}, {"accuracy", 5.0}, {"timestamp", 1700000000.0}};
        // Its text is 160 bytes long, so the padding is a whole block.
        QTest::newRow("whole padding block") << coordinateLocation(12.25, 13.5, 1, 1600000000.0) << QByteArray()
            << QJsonObject{{"ok", true}, {"latitude", 12.25}, {"longitude", 13.5}, {"accuracy", 1.0}};
        QTest::newRow("wrong key") << coordinateLocation(10.5, 20.5, 1, 1700000000.0) << kOtherKeyHex << QJsonObject{{"form", "e1+"}, {"ok", false}};
        QTest::newRow("unknown prefix") << "b+aGVsbG8" << QByteArray() << refused("unknown form");
        QTest::newRow("not base 64") << "a+h\u00e9llo!" << QByteArray() << refused("not web-safe base 64");
        QTest::newRow("standard alphabet") << "a+ab/c" << QByteArray() << refused("not web-safe base 64");
        QTest::newRow("truncated cipher") << good.left(good.size() - 5) << QByteArray() << refused("");
        QTest::newRow("only the vector") << "e1+" + webSafe(QByteArray(16, 'x')) << QByteArray() << refused("cipher text is not whole blocks");
        QTest::newRow("described without loc") << "a+" + webSafe("timestamp: 5") << QByteArray() << refused("no loc field");
        QTest::newRow("empty") << QString() << QByteArray() << refused("unknown form");
        // clang-format on
    }
    void locationsInTheLog() {
        QFETCH(QString, uule);
        QFETCH(QByteArray, keyHex);
        QFETCH(QJsonObject, expected);
        QVERIFY(server_.setLocationKeyHex(keyHex.isEmpty() ? kKey.toHex() : keyHex));
        const qint64 before = server_.lastLogSeq();
        const QByteArray target =
            "/ad?slotname=aaaaaaaaaaaaaa2&uule=" + QUrl::toPercentEncoding(uule);
        QCOMPARE(rawGet(port_, target).status, 200);
        server_.setLocationKeyHex(QString::fromLatin1(kKey.toHex()));
        const RawReply logReply = rawGet(port_, "/log?since=" + QByteArray::number(before));
        QCOMPARE(logReply.status, 200);
        const QJsonObject log = QJsonDocument::fromJson(logReply.body).object();
        QCOMPARE(log.value("last").toInteger(), server_.lastLogSeq());
        const QJsonArray entries = log.value("entries").toArray();
        QCOMPARE(entries.size(), 1);
        const QJsonObject entry = entries.first().toObject();
        QCOMPARE(entry.value("path").toString(), QStringLiteral("/ad"));
        QCOMPARE(entry.value("status").toInt(), 200);
        QCOMPARE(entry["query"]["uule"].toString(), uule);
        const QJsonObject decoded = entry.value("uule").toObject();
        for (auto it = expected.begin(); it != expected.end(); ++it) {
            if (it.value().isDouble()) {
                QVERIFY2(
                    std::abs(decoded.value(it.key()).toDouble() - it.value().toDouble()) < 1e-6,
                    qPrintable(it.key()));
            } else {
                QCOMPARE(decoded.value(it.key()), it.value());
            }
        }
    }

    void logFileHoldsOneJsonLinePerRequest() {
        QFile file(dir_.filePath(QStringLiteral("requests.jsonl")));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = file.readAll().trimmed().split('\n');
        QCOMPARE(lines.size(), server_.logEntries(0).size());
        for (const QByteArray& line : lines) {
            QVERIFY(QJsonDocument::fromJson(line).isObject());
        }
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
            QVERIFY(!adserver::decodeLocation(QString::fromLatin1(noise), kKey).ok);
        }
        QCOMPARE(rawGet(port_, "/ad?slotname=aaaaaaaaaaaaaa2").status, 200);
    }

    void locationKeyFromTheEnvironment_data() {
        QTest::addColumn<QByteArray>("environment");
        QTest::addColumn<QByteArray>("key");
        QTest::newRow("unset") << QByteArray() << kKey;
        QTest::newRow("valid") << kOtherKeyHex.toUpper() << QByteArray::fromHex(kOtherKeyHex);
        QTest::newRow("too short") << QByteArray("0011223344556677") << kKey;
        QTest::newRow("not hexadecimal") << QByteArray("zz112233445566778899aabbccddeeff") << kKey;
    }
    void locationKeyFromTheEnvironment() {
        QFETCH(QByteArray, environment);
        QFETCH(QByteArray, key);
        if (!environment.isNull()) {
            qputenv("SORVEL_LOCATION_KEY", environment);
        }
        AdServer server;
        qunsetenv("SORVEL_LOCATION_KEY");
        QCOMPARE(server.locationKey(), key);
        QVERIFY(!server.setLocationKeyHex(QStringLiteral("1234")));
        QCOMPARE(server.locationKey(), key);
    }

    void connectionLimitAndTimeout() {
        const adserver::ServerLimits saved = server_.limits();
        adserver::ServerLimits limits = saved;
        limits.maxConnections = 2;
        limits.requestTimeoutMs = 300;
        server_.setLimits(limits);
        QTcpSocket idle[2];
        for (QTcpSocket& socket : idle) {
            socket.connectToHost(QHostAddress::LocalHost, port_);
            QVERIFY(socket.waitForConnected(2000));
            socket.write("GET / HT");  // an unfinished request holds the connection
        }
        QTest::qWait(50);
        QCOMPARE(rawGet(port_, "/").status, 503);
        // Unfinished requests are answered 408 and closed once the time-out passes.
        for (QTcpSocket& socket : idle) {
            QTRY_VERIFY_WITH_TIMEOUT(
                socket.state() == QAbstractSocket::UnconnectedState || socket.bytesAvailable() > 0,
                5000);
            QVERIFY(socket.readAll().startsWith("HTTP/1.1 408"));
        }
        QTRY_COMPARE_WITH_TIMEOUT(rawGet(port_, "/").status, 200, 5000);
        server_.setLimits(saved);
    }

    void badInventoriesAreRefused_data() {
        QTest::addColumn<QByteArray>("json");
        // clang-format off
        QTest::newRow("not JSON") << QByteArray("{");
        QTest::newRow("array") << QByteArray("[]");
        QTest::newRow("unknown creative") << QByteArray(R"({"adUnits":[{"id":"aaaaaaaaaaaaaa1","creatives":["x"]}]})");
        QTest::newRow("duplicate unit") << QByteArray(R"({"adUnits":[{"id":"aaaaaaaaaaaaaa1"},{"id":"aaaaaaaaaaaaaa1"}]})");
        QTest::newRow("missing html file") << QByteArray(R"({"creatives":[{"id":"a","htmlFile":"nowhere.html"}]})");
        QTest::newRow("unknown script reply") << QByteArray(R"({"adUnits":[{"id":"aaaaaaaaaaaaaa1","scriptReply":"maybe"}]})");
        // clang-format on
    }
    void badInventoriesAreRefused() {
        QFETCH(QByteArray, json);
        QFile file(dir_.filePath(QStringLiteral("bad.json")));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(json);
        file.close();
        AdServer other;
        QVERIFY(!other.start(0, QStringLiteral("127.0.0.1"), file.fileName()));
        QVERIFY(!other.errorString().isEmpty() && !other.isListening());
    }
};

QTEST_GUILESS_MAIN(TestAdServer)
#include "tst_adserver.moc"
