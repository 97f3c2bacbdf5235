// What an ad can ask of the machine and of the user is bounded: a tracker's endless body is never
// read, the local network is out of a public ad's reach, a page's log is marked, escaped and
// rationed, and other sites' cookies are gone at the next launch. Each scenario makes the ad's
// page send what a hostile script would, then checks what reached the network and the log.
#include "hostilesuite.h"

#include "platform/cookiestorage.h"
#include "platform/netaddress.h"
#include "support/httptestserver.h"

#include <QTcpServer>
#include <QTcpSocket>

namespace {

using e2e::kWait;

// Answers every connection with a 200 whose body never ends, and counts what it sent.
class EndlessServer : public QObject {
  public:
    explicit EndlessServer(const QHostAddress& address) {
        server_.listen(address);
        connect(&server_, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection()) {
                ++connections;
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    socket->readAll();
                    if (!socket->property("answered").toBool()) {
                        socket->setProperty("answered", true);
                        socket->write("HTTP/1.1 200 OK\r\nContent-Type: image/gif\r\n\r\n");
                        feed(socket);
                    }
                });
                connect(socket, &QTcpSocket::bytesWritten, socket, [this, socket] {
                    if (socket->bytesToWrite() < kChunk) {
                        feed(socket);
                    }
                });
                connect(socket, &QTcpSocket::disconnected, socket, [this, socket] {
                    ++closedByClient;
                    socket->deleteLater();
                });
            }
        });
    }

    QUrl url(const QString& path) const {
        return QUrl(QStringLiteral("http://%1:%2%3")
                        .arg(server_.serverAddress().toString())
                        .arg(server_.serverPort())
                        .arg(path));
    }

    bool isListening() const { return server_.isListening(); }

    int connections = 0;
    int closedByClient = 0;
    qint64 sent = 0;

  private:
    static constexpr qint64 kChunk = 64 * 1024;
    void feed(QTcpSocket* socket) {
        if (socket->state() == QAbstractSocket::ConnectedState) {
            sent += socket->write(QByteArray(kChunk, 'x'));
        }
    }
    QTcpServer server_;
};

}  // namespace

class TestLimitsEndToEnd : public QObject, e2e::HostileSuite {
    Q_OBJECT

    // The shown ad's page sends `message` ("httpTrack?u=...", "log?string=...") as its script
    // would.
    void pageSends(const QString& message) {
        e2e::Harness::evaluate(h.webView(),
                               QStringLiteral("location.href='qmsg:///%1'; 1").arg(message));
    }
    void showPlainAd() {
        QVERIFY2(h.showAd(e2e::kHostileUnit, e2e::fault("creative", "plain")), h.trail());
    }
    static QString encoded(const QUrl& url) {
        return QString::fromLatin1(QUrl::toPercentEncoding(url.toString()));
    }

  private slots:
    void initTestCase() { start(); }
    void cleanupTestCase() { stop(); }
    void cleanup() {
        platform::setAddressLocalityForTesting(QHostAddress::LocalHost, std::nullopt);
        reset(this);
    }

    void trackerWithAnEndlessBodyIsLetGoAtItsHead() {
        EndlessServer endless(QHostAddress::LocalHost);
        QVERIFY(endless.isListening());
        showPlainAd();
        pageSends("httpTrack?u=" + encoded(endless.url("/pixel")));
        QTRY_COMPARE_WITH_TIMEOUT(endless.closedByClient, 1, kWait);
        // What the server pushed before the client hung up sits in socket buffers at most; a
        // client that read the body would have taken it all, without end.
        QVERIFY2(endless.sent < 16 * 1024 * 1024, qPrintable(QString::number(endless.sent)));
        QCOMPARE(endless.connections, 1);
        aGoodAdStillShows();
    }

    void localNetworkIsOutOfAPublicAdsReach() {
        // The ad server at 127.0.0.1 stands for one on the internet; 127.0.0.3 stays what every
        // loopback address is, the local network. Nothing here leaves loopback even if the
        // refusal breaks.
        platform::setAddressLocalityForTesting(QHostAddress::LocalHost, false);
        EndlessServer local(QHostAddress(QStringLiteral("127.0.0.3")));
        QVERIFY(local.isListening());
        showPlainAd();
        pageSends("httpTrack?u=" + encoded(local.url("/router")));
        QTRY_VERIFY_WITH_TIMEOUT(e2e::logHas(QStringLiteral("the local network is out of bounds")),
                                 kWait);
        // The refusal came before any connection; the public server's own tracker still goes.
        const qint64 mark = h.server.lastLogSeq();
        pageSends("httpTrack?u=" + encoded(h.server.url().resolved(QUrl("/t/imp?public=1"))));
        QTRY_COMPARE_WITH_TIMEOUT(h.requestsTo(QStringLiteral("/t/imp"), mark).size(), 1, kWait);
        // Nor does the page itself reach there.
        e2e::Harness::evaluate(
            h.webView(),
            QStringLiteral("new Image().src='%1'; 1").arg(local.url("/printer").toString()));
        QTRY_VERIFY_WITH_TIMEOUT(e2e::logHas(QStringLiteral("out of bounds for a page from")),
                                 kWait);
        QCOMPARE(local.connections, 0);
        aGoodAdStillShows();
    }

    void pageLogIsMarkedEscapedCutAndRationed() {
        showPlainAd();
        const qsizetype before = e2e::logLines().size();
        const QString forged = QStringLiteral("\x1b[31mred\n<Sorvel> forged line");
        pageSends("log?string=" + QString::fromLatin1(QUrl::toPercentEncoding(forged)));
        pageSends("log?string=" + QString(5000, QLatin1Char('a')));
        // A burst far beyond the ration, as the page's script can send it.
        e2e::Harness::evaluate(
            h.webView(),
            QStringLiteral("var n=0;(function burst(){for(var k=0;k<20&&n<200;k++,n++){"
                           "location.href='qmsg:///log?string=flood'+n;}"
                           "if(n<200){setTimeout(burst,1);}else{setTimeout(function(){"
                           "location.href='qmsg:///log?string=last';},50);}})();1"));
        QTRY_VERIFY_WITH_TIMEOUT(e2e::logHas(QStringLiteral("the page's log is cut off")), kWait);

        const QStringList lines = e2e::logLines().mid(before);
        QStringList fromAd;
        for (const QString& line : lines) {
            QVERIFY2(!line.contains(QChar(0x1b)), qPrintable(line));
            QVERIFY2(!line.startsWith(QLatin1String("<Sorvel> forged")), qPrintable(line));
            if (line.contains(QLatin1String("[ad log]"))) {
                fromAd << line;
            }
        }
        QVERIFY(fromAd.contains(
            QStringLiteral("<Sorvel> [ad log] \\x1b[31mred\\x0a<Sorvel> forged line")));
        const auto longest = std::max_element(
            fromAd.cbegin(), fromAd.cend(),
            [](const QString& a, const QString& b) { return a.size() < b.size(); });
        QVERIFY2(longest->size() < 1100, qPrintable(QString::number(longest->size())));
        QVERIFY2(fromAd.size() <= 21, qPrintable(fromAd.join('\n')));  // the ration, the notice
        aGoodAdStillShows();
    }

    void otherSitesCookiesDoNotOutlastTheLaunch() {
        // "localhost" is another site than the ad server's 127.0.0.1.
        testsupport::HttpTestServer other;
        QVERIFY(other.start());
        // Each answer sets a cookie of its name; the frame's page one more of its own.
        for (const QByteArray name : {"tracker", "frame"}) {
            other.route("/" + name, [name](const testsupport::HttpTestRequest&) {
                testsupport::HttpTestResponse r;
                r.headers = {{"Content-Type", "text/html"},
                             {"Set-Cookie", name + "=1; Max-Age=3600; Path=/"}};
                r.body = "<p>frame</p><script>document.cookie='framejs=1; max-age=3600'</script>";
                return r;
            });
        }
        const QString otherRoot = QStringLiteral("http://localhost:%1").arg(other.port());
        showPlainAd();
        e2e::Harness::evaluate(
            h.webView(), QStringLiteral("document.cookie='own=1; max-age=3600';"
                                        "var f=document.createElement('iframe');f.src='%1/frame';"
                                        "document.body.appendChild(f);1")
                             .arg(otherRoot));
        pageSends("httpTrack?u=" + encoded(QUrl(otherRoot + "/tracker")));

        platform::HttpCookieStorage* jar = platform::HttpCookieStorage::sharedStorage();
        auto has = [](const QList<QNetworkCookie>& cookies, const QByteArray& name) {
            return std::any_of(cookies.cbegin(), cookies.cend(),
                               [&](const QNetworkCookie& c) { return c.name() == name; });
        };
        QTRY_VERIFY_WITH_TIMEOUT(has(jar->cookies(), "own") && has(jar->cookies(), "tracker"),
                                 kWait);
        QTRY_VERIFY_WITH_TIMEOUT(other.requests().size() >= 2, kWait);

        // The next launch reads the same file.
        const platform::HttpCookieStorage nextLaunch(jar->filePath());
        QVERIFY(has(nextLaunch.cookies(), "own"));
        for (const QNetworkCookie& cookie : nextLaunch.cookies()) {
            QVERIFY2(!cookie.domain().contains(QLatin1String("localhost")),
                     cookie.toRawForm().constData());
        }
        aGoodAdStillShows();
    }
};

SORVEL_E2E_MAIN(TestLimitsEndToEnd)
#include "tst_e2e_limits.moc"
