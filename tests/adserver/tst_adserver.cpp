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
#include <QUrlQuery>

#include <cmath>

using adserver::AdServer;

namespace {

const QByteArray kKey = QByteArray::fromHex("5b1e0c7a93d24f86a1c03e9b7d52f418");

// The client's location encodings, written here from the protocol for the server to read.
QString webSafe(const QByteArray& bytes) {
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}
QString describedLocation(QString description, double timestamp) {
    description.replace(QLatin1Char('"'), QLatin1Char('\''));
    const QString text = QStringLiteral(
                             "role: 6 producer: 24 historical_role: 1 "
                             "historical_producer: 12 timestamp: %1 loc: \"%2\"")
                             .arg(QString::number(timestamp * 1e6, 'f', 0), description);
    return QStringLiteral("a+") + webSafe(text.toUtf8());
}
qint32 saturated(double value) {
    return value >= 2147483647.0    ? 2147483647
           : value <= -2147483648.0 ? -2147483647 - 1
                                    : qint32(value);
}
QString coordinateLocation(double lat, double lng, double accuracy, double timestamp,
                           const QByteArray& key, const QString& suffix = QString()) {
    QByteArray text = QStringLiteral(
                          "role: 6 producer: 24 historical_role: 1 "
                          "historical_producer: 12 timestamp: %1 latlng <latitude_e7: "
                          "%2 longitude_e7: %3> radius: %4%5")
                          .arg(QString::number(timestamp * 1e6, 'f', 0))
                          .arg(saturated(lat * 1e7))
                          .arg(saturated(lng * 1e7))
                          .arg(saturated(accuracy * 1000))
                          .arg(suffix)
                          .toUtf8();
    const int pad = 16 - text.size() % 16;
    text += QByteArray(pad, char(pad));
    QByteArray iv;
    for (int k = 1; k <= 4; ++k) {
        const qint32 word = saturated(k * timestamp);
        for (int b = 0; b < 4; ++b) {
            iv += char((quint32(word) >> (8 * b)) & 0xff);
        }
    }
    return QStringLiteral("e1+") + webSafe(iv + *platform::aes128CbcEncrypt(text, key, iv));
}

QByteArray httpDate(const QDateTime& time, bool withZone) {
    return QLocale::c()
        .toString(time.toUTC(), withZone ? QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'")
                                         : QStringLiteral("ddd, dd MMM yyyy HH:mm:ss"))
        .toLatin1();
}

QByteArray enc(const QString& text) {
    return QUrl::toPercentEncoding(text);
}

}  // namespace

class TestAdServer : public QObject {
    Q_OBJECT

  private:
    QTemporaryDir dir_;
    AdServer server_;
    quint16 port_ = 0;
    QByteArray origin_;

    RawReply get(const QByteArray& target, const QByteArray& headers = QByteArray()) {
        return rawGet(port_, target, headers);
    }
    QJsonObject lastEntryFor(const QString& path) {
        const QJsonArray entries = server_.logEntries(0);
        for (qsizetype i = entries.size() - 1; i >= 0; --i) {
            if (entries[i].toObject().value(QStringLiteral("path")).toString() == path) {
                return entries[i].toObject();
            }
        }
        return {};
    }

  private slots:
    void initTestCase() {
        QVERIFY(dir_.isValid());
        const QString inventory = QFINDTESTDATA("inventory.json");
        QVERIFY(!inventory.isEmpty());
        QVERIFY(server_.setLogFile(dir_.filePath(QStringLiteral("requests.jsonl"))));
        QVERIFY2(server_.start(0, QStringLiteral("127.0.0.1"), inventory),
                 qPrintable(server_.errorString()));
        port_ = server_.port();
        QVERIFY(port_ != 0);
        origin_ = "http://127.0.0.1:" + QByteArray::number(port_);
        QCOMPARE(server_.url().toString(), QString::fromLatin1(origin_ + "/"));
        QCOMPARE(server_.scriptUrl().toString(),
                 QString::fromLatin1(origin_ + "/zelm/sdk-core-v40.js"));
    }

    void scriptConditionalGet_data() {
        QTest::addColumn<int>("offsetSeconds");  // If-Modified-Since minus Last-Modified
        QTest::addColumn<bool>("withZone");
        QTest::addColumn<int>("status");
        QTest::newRow("same time, as the client sends it") << 0 << false << 304;
        QTest::newRow("same time with GMT") << 0 << true << 304;
        QTest::newRow("later") << 3600 << false << 304;
        QTest::newRow("one second earlier") << -1 << false << 200;
        QTest::newRow("a day earlier with GMT") << -86400 << true << 200;
    }
    void scriptConditionalGet() {
        QFETCH(int, offsetSeconds);
        QFETCH(bool, withZone);
        QFETCH(int, status);
        const RawReply first = get("/zelm/sdk-core-v40.js");
        QCOMPARE(first.status, 200);
        QVERIFY(first.body.contains("ZELM_buildAdURL"));
        QVERIFY(first.body.contains("ZELM_ReceiveMessage"));
        const QDateTime modified =
            QLocale::c().toDateTime(QString::fromLatin1(first.value("Last-Modified")),
                                    QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"));
        QVERIFY(modified.isValid());
        QDateTime since = modified;
        since.setTimeSpec(Qt::UTC);
        since = since.addSecs(offsetSeconds);
        const RawReply second = get("/zelm/sdk-core-v40.js",
                                    "If-Modified-Since: " + httpDate(since, withZone) + "\r\n");
        QCOMPARE(second.status, status);
        QCOMPARE(second.body.isEmpty(), status == 304);
        QCOMPARE(lastEntryFor(QStringLiteral("/zelm/sdk-core-v40.js"))
                     .value(QStringLiteral("headers"))
                     .toObject()
                     .value(QStringLiteral("If-Modified-Since"))
                     .toString(),
                 QString::fromLatin1(httpDate(since, withZone)));
    }

    void unparsableIfModifiedSinceGetsTheScript() {
        QCOMPARE(get("/zelm/sdk-core-v40.js", "If-Modified-Since: yesterday\r\n").status, 200);
    }

    void adEndpointHeaders_data() {
        QTest::addColumn<QString>("creative");
        QTest::addColumn<QStringList>("tracking");  // prefixes of the impression URLs
        QTest::addColumn<QStringList>("clickTracking");
        QTest::addColumn<QString>("refresh");
        QTest::addColumn<QString>("orientation");
        QTest::addColumn<QString>("timeout");
        const QString o = QStringLiteral("http://127.0.0.1:%1").arg(server_.port());
        QTest::newRow("every header")
            << "full"
            << QStringList{o + "/t/imp?c=full&u=aaaaaaaaaaaaaa1&n=",
                           "http://elsewhere.example/imp?a=1"}
            << QStringList{o + "/t/ctrk?c=full&u=aaaaaaaaaaaaaa1&n=", o + "/t/ctrk?extra=1"}
            << "12.5"
            << "landscape"
            << "7";
        QTest::newRow("none configured") << "bare" << QStringList() << QStringList() << ""
                                         << ""
                                         << "";
    }
    void adEndpointHeaders() {
        QFETCH(QString, creative);
        QFETCH(QStringList, tracking);
        QFETCH(QStringList, clickTracking);
        QFETCH(QString, refresh);
        QFETCH(QString, orientation);
        QFETCH(QString, timeout);
        const RawReply reply =
            get("/ad?slotname=aaaaaaaaaaaaaa1&zf_creative=" + creative.toLatin1());
        QCOMPARE(reply.status, 200);
        const auto checkList = [&reply](const QByteArray& header, const QStringList& expected) {
            QCOMPARE(reply.has(header), !expected.isEmpty());
            const QStringList urls = QString::fromLatin1(reply.value(header)).split(' ');
            if (expected.isEmpty()) {
                return;
            }
            QCOMPARE(urls.size(), expected.size());
            for (int i = 0; i < urls.size(); ++i) {
                QVERIFY2(urls[i].startsWith(expected[i]), qPrintable(urls[i]));
            }
        };
        checkList("X-Zelm-Tracking-Urls", tracking);
        checkList("X-Zelm-Click-Tracking-Urls", clickTracking);
        for (const auto& [name, value] : {std::pair{"X-Zelm-Refresh-Rate", refresh},
                                          {"X-Zelm-Orientation", orientation},
                                          {"X-Zelm-Interstitial-Timeout", timeout}}) {
            QCOMPARE(reply.has(name), !value.isEmpty());
            QCOMPARE(QString::fromLatin1(reply.value(name)), value);
        }
        QVERIFY(reply.value("Content-Type").startsWith("text/html"));
        QVERIFY(!reply.body.contains("{{"));
        QVERIFY(reply.body.contains(creative.toLatin1()));
    }

    void impressionAndClickTrackers() {
        const RawReply ad = get("/ad?slotname=aaaaaaaaaaaaaa1&zf_creative=full");
        const QList<QByteArray> urls = ad.value("X-Zelm-Tracking-Urls").split(' ') +
                                       ad.value("X-Zelm-Click-Tracking-Urls").split(' ');
        for (const QByteArray& url : urls) {
            if (!url.startsWith(origin_)) {
                continue;
            }
            const RawReply ping = get(url.mid(origin_.size()));
            // The "full" creative asks for empty impression answers; the rest get a pixel.
            if (url.contains("/t/imp")) {
                QCOMPARE(ping.status, 204);
                QVERIFY(ping.body.isEmpty());
            } else {
                QCOMPARE(ping.status, 200);
                QVERIFY(ping.body.startsWith("GIF89a"));
            }
        }
        QCOMPARE(lastEntryFor(QStringLiteral("/t/ctrk")).value(QStringLiteral("status")).toInt(),
                 200);
    }

    void rotatesThroughTheUnitsCreatives() {
        QStringList served;
        for (int i = 0; i < 4; ++i) {
            served.append(QString::fromLatin1(
                get("/ad?slotname=aaaaaaaaaaaaaa1").value("X-Sorvel-Creative")));
        }
        QCOMPARE(served[0] == QLatin1String("full") ? served : QStringList(),
                 (QStringList{"full", "bare", "full", "bare"}));
    }

    void adUnitIdentifiers_data() {
        QTest::addColumn<QByteArray>("query");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("filled");
        QTest::newRow("known") << QByteArray("slotname=aaaaaaaaaaaaaa2") << 200 << true;
        QTest::newRow("paused: no fill") << QByteArray("slotname=aaaaaaaaaaaaaa3") << 200 << false;
        QTest::newRow("no creatives: no fill")
            << QByteArray("slotname=aaaaaaaaaaaaaa4") << 200 << false;
        QTest::newRow("unknown: no fill") << QByteArray("slotname=0123456789abcde") << 200 << false;
        QTest::newRow("upper case") << QByteArray("slotname=AAAAAAAAAAAAAA1") << 400 << false;
        QTest::newRow("14 characters") << QByteArray("slotname=aaaaaaaaaaaaaa") << 400 << false;
        QTest::newRow("16 characters") << QByteArray("slotname=aaaaaaaaaaaaaa11") << 400 << false;
        QTest::newRow("not hexadecimal") << QByteArray("slotname=aaaaaaaaaaaaaag") << 400 << false;
        QTest::newRow("missing") << QByteArray("js=1") << 400 << false;
    }
    void adUnitIdentifiers() {
        QFETCH(QByteArray, query);
        QFETCH(int, status);
        QFETCH(bool, filled);
        const RawReply reply = get("/ad?" + query);
        QCOMPARE(reply.status, status);
        if (status == 200) {
            QCOMPARE(!reply.body.trimmed().isEmpty(), filled);
            QCOMPARE(lastEntryFor(QStringLiteral("/ad")).value(QStringLiteral("noFill")).toBool(),
                     !filled);
        }
    }

    void clickRedirects_data() {
        QTest::addColumn<QByteArray>("creative");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("location");
        const QString o = QStringLiteral("http://127.0.0.1:%1").arg(server_.port());
        QTest::newRow("web landing page") << QByteArray("full") << 302 << o + "/landing/menu.html";
        QTest::newRow("store link") << QByteArray("store") << 302 << "sorvelstore://app/x";
        QTest::newRow("unknown creative") << QByteArray("nope") << 404 << "";
    }
    void clickRedirects() {
        QFETCH(QByteArray, creative);
        QFETCH(int, status);
        QFETCH(QString, location);
        const RawReply reply = get("/t/click?c=" + creative + "&u=aaaaaaaaaaaaaa1&n=1");
        QCOMPARE(reply.status, status);
        QCOMPARE(QString::fromLatin1(reply.value("Location")), location);
    }

    void landingPagesLinkToEachOther() {
        const RawReply index = get("/landing/");
        QCOMPARE(index.status, 200);
        for (const QByteArray& link :
             {QByteArray("href=\"menu.html\""), QByteArray("href=\"https://127.0.0.1:"),
              QByteArray("mailto:"), QByteArray("href=\"tel:")}) {
            QVERIFY2(index.body.contains(link), link.constData());
        }
        QCOMPARE(get("/landing/menu.html").status, 200);
        QCOMPARE(get("/landing/visit.html").status, 200);
        QCOMPARE(get("/landing/secure.html").status, 200);
    }

    void faults_data() {
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<int>("status");
        QTest::addColumn<qsizetype>("bodySize");  // -1: any non-empty body
        QTest::addColumn<QByteArray>("check");    // extra check, see below
        QTest::newRow("status, steering headers kept")
            << QByteArray("/ad?slotname=aaaaaaaaaaaaaa1&zf_creative=full&zf_status=500") << 500
            << qsizetype(-1) << QByteArray("refresh");
        QTest::newRow("status from the creative") << QByteArray("/ad?slotname=aaaaaaaaaaaaaa6")
                                                  << 502 << qsizetype(-1) << QByteArray("refresh");
        QTest::newRow("status in the extras")
            << QByteArray("/ad?slotname=aaaaaaaaaaaaaa2&extras=") +
                   enc(QStringLiteral("{\"zf_status\":\"404\",\"color\":\"red\"}"))
            << 404 << qsizetype(-1) << QByteArray();
        QTest::newRow("empty body") << QByteArray("/ad?slotname=aaaaaaaaaaaaaa2&zf_emptyBody=1")
                                    << 200 << qsizetype(0) << QByteArray();
        QTest::newRow("oversized body")
            << QByteArray("/ad?slotname=aaaaaaaaaaaaaa2&zf_oversizeBytes=3000000") << 200
            << qsizetype(3000000) << QByteArray();
        QTest::newRow("malformed header")
            << QByteArray("/ad?slotname=aaaaaaaaaaaaaa2&zf_malformedHeader=true") << 200
            << qsizetype(-1) << QByteArray("malformed");
        QTest::newRow("repeated header")
            << QByteArray("/ad?slotname=aaaaaaaaaaaaaa2&zf_repeatedHeader=1") << 200
            << qsizetype(-1) << QByteArray("repeated");
        QTest::newRow("delay") << QByteArray("/ad?slotname=aaaaaaaaaaaaaa2&zf_delayMs=400") << 200
                               << qsizetype(-1) << QByteArray("delay");
        QTest::newRow("dropped connection") << QByteArray("/ad?slotname=aaaaaaaaaaaaaa2&zf_drop=1")
                                            << 0 << qsizetype(0) << QByteArray();
        QTest::newRow("out-of-range switches ignored")
            << QByteArray(
                   "/ad?slotname=aaaaaaaaaaaaaa2&zf_status=99&zf_oversizeBytes=-5&"
                   "zf_delayMs=x")
            << 200 << qsizetype(-1) << QByteArray();
        QTest::newRow("on the script") << QByteArray("/zelm/sdk-core-v40.js?zf_status=503") << 503
                                       << qsizetype(-1) << QByteArray();
    }
    void faults() {
        QFETCH(QByteArray, target);
        QFETCH(int, status);
        QFETCH(qsizetype, bodySize);
        QFETCH(QByteArray, check);
        QElapsedTimer clock;
        clock.start();
        const RawReply reply = get(target);
        QCOMPARE(reply.status, status);
        if (bodySize >= 0) {
            QCOMPARE(reply.body.size(), bodySize);
        } else {
            QVERIFY(!reply.body.isEmpty());
        }
        if (check == "refresh") {
            QVERIFY(reply.has("X-Zelm-Refresh-Rate"));
        } else if (check == "malformed") {
            QVERIFY(std::any_of(reply.headerLines.begin(), reply.headerLines.end(),
                                [](const QByteArray& line) { return !line.contains(':'); }));
        } else if (check == "repeated") {
            QCOMPARE(reply.values("X-Zelm-Tracking-Urls").size(), 2);
        } else if (check == "delay") {
            QVERIFY(clock.elapsed() >= 400);
        }
    }

    void pathFaultsFromTheApi() {
        server_.setPathFaults(QStringLiteral("/zelm/sdk-core-v40.js"),
                              QJsonObject{{QStringLiteral("status"), 500}});
        QCOMPARE(get("/zelm/sdk-core-v40.js").status, 500);
        server_.setPathFaults(QStringLiteral("/zelm/sdk-core-v40.js"), {});
        QCOMPARE(get("/zelm/sdk-core-v40.js").status, 200);
    }

    void redirectChain() {
        RawReply reply = get("/ad?slotname=aaaaaaaaaaaaaa1&zf_redirects=3&zf_creative=full");
        int hops = 0;
        while (reply.status == 302 && hops < 10) {
            ++hops;
            const QByteArray location = reply.value("Location");
            QVERIFY(location.startsWith(origin_));
            if (location.contains("/r?")) {
                QVERIFY(reply.has("X-Zelm-Tracking-Urls") || hops == 1);
            }
            reply = get(location.mid(origin_.size()));
        }
        QCOMPARE(hops, 4);  // the ad endpoint, then three hops back to it
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.value("X-Sorvel-Creative"), QByteArray("full"));
    }

    void redirectLoopNeverEnds() {
        RawReply reply = get("/ad?slotname=aaaaaaaaaaaaaa2&zf_redirectLoop=1");
        QSet<QByteArray> seen;
        for (int i = 0; i < 8; ++i) {
            QCOMPARE(reply.status, 302);
            const QByteArray location = reply.value("Location");
            seen.insert(location);
            reply = get(location.mid(origin_.size()));
        }
        QVERIFY(seen.size() <= 3);  // the first hop, then two addresses taking turns
    }

    void logDecodesParametersAndLocations_data() {
        QTest::addColumn<QString>("uule");
        QTest::addColumn<QString>("keyHex");  // the server's key; empty: the shared default
        QTest::addColumn<QJsonObject>("expected");
        QTest::newRow("described place")
            << describedLocation(QStringLiteral("Caf\u00e9 \"Paris\" 7e"), 1300000000.0)
            << QString()
            << QJsonObject{{"form", "a+"},
                           {"ok", true},
                           {"description", QStringLiteral("Caf\u00e9 'Paris' 7e")},
                           {"timestamp", 1300000000.0}};
        QTest::newRow("coordinates")
            << coordinateLocation(48.8584, -2.2945, 35, 1700000000.0, kKey) << QString()
            << QJsonObject{{"form", "e1+"},        {"ok", true},       {"latitude", 48.8584},
                           {"longitude", -2.2945}, {"accuracy", 35.0}, {"timestamp", 1700000000.0}};
        QTest::newRow("coordinates under another key")
            << coordinateLocation(-33.8568, 151.2153, 5, 1700000000.0,
                                  QByteArray::fromHex("00112233445566778899aabbccddeeff"))
            << QStringLiteral("00112233445566778899aabbccddeeff")
            << QJsonObject{{"form", "e1+"},         {"ok", true},      {"latitude", -33.8568},
                           {"longitude", 151.2153}, {"accuracy", 5.0}, {"timestamp", 1700000000.0}};
        QTest::newRow("wrong key") << coordinateLocation(10.5, 20.5, 1, 1700000000.0, kKey)
                                   << QStringLiteral("00112233445566778899aabbccddeeff")
                                   << QJsonObject{{"form", "e1+"}, {"ok", false}};
    }
    void logDecodesParametersAndLocations() {
        QFETCH(QString, uule);
        QFETCH(QString, keyHex);
        QFETCH(QJsonObject, expected);
        QVERIFY(server_.setLocationKeyHex(keyHex.isEmpty() ? QString::fromLatin1(kKey.toHex())
                                                           : keyHex));
        const qint64 before = server_.lastLogSeq();
        const QString extras = QStringLiteral("{\"team\":\"r&d\",\"n\":[1,2]}");
        const QByteArray target = "/ad?slotname=aaaaaaaaaaaaaa2&kw=" + enc("[\"coffee\",\"tea\"]") +
                                  "&extras=" + enc(extras) + "&uule=" + enc(uule) + "&preqs=3";
        QCOMPARE(get(target, "Referer: http://app.example/\r\nUser-Agent: TestAgent/1\r\n").status,
                 200);
        const RawReply logReply = get("/log?since=" + QByteArray::number(before));
        QCOMPARE(logReply.status, 200);
        const QJsonArray entries =
            QJsonDocument::fromJson(logReply.body).object().value("entries").toArray();
        QCOMPARE(entries.size(), 1);
        const QJsonObject entry = entries.first().toObject();
        QCOMPARE(entry.value("path").toString(), QStringLiteral("/ad"));
        QCOMPARE(entry.value("status").toInt(), 200);
        const QJsonObject query = entry.value("query").toObject();
        QCOMPARE(query.value("extras").toString(), extras);
        QCOMPARE(query.value("kw").toString(), QStringLiteral("[\"coffee\",\"tea\"]"));
        QCOMPARE(query.value("uule").toString(), uule);
        QCOMPARE(query.value("preqs").toString(), QStringLiteral("3"));
        const QJsonObject headers = entry.value("headers").toObject();
        QCOMPARE(headers.value("Referer").toString(), QStringLiteral("http://app.example/"));
        QCOMPARE(headers.value("User-Agent").toString(), QStringLiteral("TestAgent/1"));
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
        server_.setLocationKeyHex(QString::fromLatin1(kKey.toHex()));
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

    void decodeLocation_data() {
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("error");
        const QString good = coordinateLocation(1.5, 2.5, 3, 1600000000.0, kKey);
        // Its text is 160 bytes long, so the padding is a whole block.
        const QString wholeBlock = coordinateLocation(12.25, 13.5, 1, 1600000000.0, kKey);
        QTest::newRow("coordinates") << good << true << QString();
        QTest::newRow("whole padding block") << wholeBlock << true << QString();
        QTest::newRow("Paris") << describedLocation(QStringLiteral("Paris"), 1300000000.0) << true
                               << QString();
        QTest::newRow("unknown prefix")
            << QStringLiteral("b+aGVsbG8") << false << QStringLiteral("unknown form");
        QTest::newRow("not base 64")
            << QStringLiteral("a+h\u00e9llo!") << false << QStringLiteral("not web-safe base 64");
        QTest::newRow("standard alphabet")
            << QStringLiteral("a+ab/c") << false << QStringLiteral("not web-safe base 64");
        QTest::newRow("truncated cipher") << good.left(good.size() - 5) << false << QString();
        QTest::newRow("only the vector")
            << QStringLiteral("e1+") + webSafe(QByteArray(16, 'x')) << false
            << QStringLiteral("cipher text is not whole blocks");
        QTest::newRow("described without loc") << QStringLiteral("a+") + webSafe("timestamp: 5")
                                               << false << QStringLiteral("no loc field");
        QTest::newRow("empty") << QString() << false << QStringLiteral("unknown form");
    }
    void decodeLocation() {
        QFETCH(QString, value);
        QFETCH(bool, ok);
        QFETCH(QString, error);
        const adserver::DecodedLocation location = adserver::decodeLocation(value, kKey);
        QCOMPARE(location.ok, ok);
        if (!error.isEmpty()) {
            QCOMPARE(location.error, error);
        }
        if (ok && location.form == QLatin1String("a+")) {
            QVERIFY(location.text.endsWith(QStringLiteral("loc: \"Paris\"")));
            QCOMPARE(location.timestampMicros, Q_INT64_C(1300000000000000));
        }
    }

    void malformedRequests_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("status");
        QTest::newRow("garbage") << QByteArray("\x01\x02 nonsense\r\n\r\n") << 400;
        QTest::newRow("no version") << QByteArray("GET /ad\r\n\r\n") << 400;
        QTest::newRow("relative target") << QByteArray("GET ad HTTP/1.1\r\n\r\n") << 400;
        QTest::newRow("header without colon")
            << QByteArray("GET / HTTP/1.1\r\nOops\r\n\r\n") << 400;
        QTest::newRow("huge header")
            << QByteArray("GET / HTTP/1.1\r\nX: " + QByteArray(40000, 'a') + "\r\n\r\n") << 431;
        QTest::newRow("huge target")
            << QByteArray("GET /" + QByteArray(40000, 'a') + " HTTP/1.1\r\n\r\n") << 431;
        QTest::newRow("huge body")
            << QByteArray("GET / HTTP/1.1\r\nContent-Length: 100000000\r\n\r\n") << 413;
        QTest::newRow("bad length")
            << QByteArray("GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n") << 400;
        QTest::newRow("chunked") << QByteArray(
                                        "GET / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n")
                                 << 501;
        QTest::newRow("post") << QByteArray("POST /log HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}")
                              << 405;
        QTest::newRow("broken escapes and pairs")
            << QByteArray(
                   "GET /ad?%ZZ=%&&&=&slotname=%C3%28&uule=e1%2B%%%&uule=a+ HTTP/1.1\r\n\r\n")
            << 400;
        QTest::newRow("bare new lines")
            << QByteArray("GET /ad?slotname=aaaaaaaaaaaaaa2 HTTP/1.0\n\n") << 200;
        QTest::newRow("absolute form")
            << QByteArray("GET http://x/landing/ HTTP/1.1\r\n\r\n") << 200;
    }
    void malformedRequests() {
        QFETCH(QByteArray, bytes);
        QFETCH(int, status);
        QCOMPARE(rawExchange(port_, bytes).status, status);
        QCOMPARE(get("/ad?slotname=aaaaaaaaaaaaaa2").status, 200);  // still serving
    }

    void survivesRandomRequests() {
        // Random bytes after a plausible start, and random queries on every endpoint.
        QRandomGenerator random(20240611);
        const QByteArray starts[] = {"GET /ad?",
                                     "GET /log?since=",
                                     "GET /t/click?c=",
                                     "GET /r?",
                                     "GET /zelm/sdk-core-v40.js?",
                                     "HEAD /landing/?",
                                     ""};
        for (int i = 0; i < 150; ++i) {
            QByteArray noise(random.bounded(1, 300), Qt::Uninitialized);
            for (char& c : noise) {
                c = char(random.bounded(256));
            }
            const QByteArray& start = starts[i % std::size(starts)];
            const QByteArray bytes = i % 2
                                         ? start + noise + "\r\n\r\n"
                                         : start + noise.toPercentEncoding() + " HTTP/1.1\r\n\r\n";
            const RawReply reply = rawExchange(port_, bytes);
            QVERIFY2(reply.status >= 200 && reply.status < 600, bytes.toHex().constData());
            QVERIFY(adserver::decodeLocation(QString::fromLatin1(noise), kKey).ok == false);
        }
        QCOMPARE(get("/ad?slotname=aaaaaaaaaaaaaa2").status, 200);
    }

    void locationKeyFromTheEnvironment_data() {
        QTest::addColumn<QByteArray>("environment");
        QTest::addColumn<QByteArray>("key");
        QTest::newRow("unset") << QByteArray() << kKey;
        QTest::newRow("valid") << QByteArray("00112233445566778899AABBCCDDEEFF")
                               << QByteArray::fromHex("00112233445566778899aabbccddeeff");
        QTest::newRow("too short") << QByteArray("0011223344556677") << kKey;
        QTest::newRow("not hexadecimal") << QByteArray("zz112233445566778899aabbccddeeff") << kKey;
    }
    void locationKeyFromTheEnvironment() {
        QFETCH(QByteArray, environment);
        QFETCH(QByteArray, key);
        if (environment.isNull()) {
            qunsetenv("SORVEL_LOCATION_KEY");
        } else {
            qputenv("SORVEL_LOCATION_KEY", environment);
        }
        AdServer server;
        QCOMPARE(server.locationKey(), key);
        QVERIFY(!server.setLocationKeyHex(QStringLiteral("1234")));
        QCOMPARE(server.locationKey(), key);
        qunsetenv("SORVEL_LOCATION_KEY");
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
        QCOMPARE(get("/").status, 503);
        // Unfinished requests are answered 408 and closed once the time-out passes.
        for (QTcpSocket& socket : idle) {
            QTRY_VERIFY_WITH_TIMEOUT(
                socket.state() == QAbstractSocket::UnconnectedState || socket.bytesAvailable() > 0,
                5000);
            QVERIFY(socket.readAll().startsWith("HTTP/1.1 408"));
        }
        QTRY_COMPARE_WITH_TIMEOUT(get("/").status, 200, 5000);
        server_.setLimits(saved);
    }

    void demoInventoryServesEveryUnit() {
        AdServer demo;
        QVERIFY2(demo.start(), qPrintable(demo.errorString()));
        QVERIFY(demo.adUnitIDs().contains(demo.defaultAdUnitID()));
        QSet<QByteArray> creatives;
        for (const QString& unit : demo.adUnitIDs()) {
            for (int i = 0; i < 8; ++i) {
                const RawReply reply = rawGet(demo.port(), "/ad?slotname=" + unit.toLatin1());
                QVERIFY(reply.status == 200 || reply.status >= 500);
                QVERIFY2(!reply.body.contains("{{"), qPrintable(unit));
                if (reply.status == 200 && !reply.body.isEmpty()) {
                    QVERIFY(reply.body.contains("width:320px;height:50px"));
                    creatives.insert(reply.value("X-Sorvel-Creative"));
                }
            }
        }
        QVERIFY(creatives.size() >= 7);
        const RawReply webApp = rawGet(demo.port(), "/webapp/");
        QCOMPARE(webApp.status, 200);
        QVERIFY(webApp.body.contains("ZELM_ReceiveMessage"));
    }

    void badInventoriesAreRefused_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("not JSON") << QByteArray("{");
        QTest::newRow("array") << QByteArray("[]");
        QTest::newRow("unknown creative")
            << QByteArray(R"({"adUnits":[{"id":"aaaaaaaaaaaaaa1","creatives":["x"]}]})");
        QTest::newRow("duplicate unit")
            << QByteArray(R"({"adUnits":[{"id":"aaaaaaaaaaaaaa1"},{"id":"aaaaaaaaaaaaaa1"}]})");
        QTest::newRow("missing html file")
            << QByteArray(R"({"creatives":[{"id":"a","htmlFile":"nowhere.html"}]})");
        QTest::newRow("unknown script reply")
            << QByteArray(R"({"adUnits":[{"id":"aaaaaaaaaaaaaa1","scriptReply":"maybe"}]})");
    }
    void badInventoriesAreRefused() {
        QFETCH(QByteArray, json);
        QFile file(dir_.filePath(QStringLiteral("bad.json")));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(json);
        file.close();
        AdServer other;
        QVERIFY(!other.start(0, QStringLiteral("127.0.0.1"), file.fileName()));
        QVERIFY(!other.errorString().isEmpty());
        QVERIFY(!other.isListening());
    }
};

QTEST_GUILESS_MAIN(TestAdServer)
#include "tst_adserver.moc"
