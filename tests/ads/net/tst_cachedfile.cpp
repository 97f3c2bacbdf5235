#include "ads/net/PXBCachedFile.h"
#include "ads/net/PXBNetworkUtilities.h"
#include "platform/files.h"
#include "support/httptestserver.h"
#include "support/testenv.h"

#include <QFileInfo>
#include <QTest>

using platform::Error;
using testsupport::HttpTestRequest;
using testsupport::HttpTestResponse;

namespace {

const QByteArray kLastModified = "Sat, 01 Nov 2025 10:20:30 GMT";
const QString kZoneless = QStringLiteral("Sat, 01 Nov 2025 10:20:30");
const qint64 kLastModifiedSeconds = 1761992430;  // 2025-11-01T10:20:30Z

// Records every delegate call as a line; can destroy the file.
class Recorder : public PXBCachedFileDelegate {
  public:
    void cachedFileDownloadDidEnd(PXBCachedFile* file) override {
        events << "end";
        destroyIfAsked(file);
    }
    void cachedFileDownloadDidFail(PXBCachedFile* file, const Error& error) override {
        events << (error.isNull() ? QStringLiteral("fail") : "fail " + error.domain());
        destroyIfAsked(file);
    }
    Error cachedFileShouldRedirectToURL(PXBCachedFile* file, const QUrl& url) override {
        events << "redirect " + url.path() + " hop " + file->httpHeader("X-Hop");
        return Error();
    }
    void destroyIfAsked(PXBCachedFile* file) {
        if (owned && owned.get() == file) {
            owned.reset();
        }
    }

    QStringList events;
    std::unique_ptr<PXBCachedFile> owned;  // destroyed from inside its first callback
};

}  // namespace

class TestCachedFile : public QObject {
    Q_OBJECT
  private:
    std::unique_ptr<testsupport::TempHome> home_;
    std::unique_ptr<testsupport::HttpTestServer> server_;

  private slots:
    void init() {
        home_ = std::make_unique<testsupport::TempHome>();
        server_ = std::make_unique<testsupport::HttpTestServer>();
        QVERIFY(server_->start());
        server_->route("/doc", [](const HttpTestRequest& request) {
            HttpTestResponse response;
            if (request.header("If-Modified-Since") == kZoneless.toLatin1()) {
                response.status = 304;
            } else {
                response.headers = {{"Last-Modified", kLastModified}};
                response.body = "hello \xC3\xA9";
            }
            response.delayMs = 50;
            return response;
        });
    }

    // /r1 -> /r2 -> /final; each answer names its hop in the field `name`.
    void routeHops(const QByteArray& name) {
        auto hop = [name](int status, QByteArray location, QByteArray number) {
            return [=](const HttpTestRequest&) {
                HttpTestResponse response;
                response.status = status;
                response.headers = {{name, number}};
                if (!location.isEmpty()) {
                    response.headers.append({"Location", location});
                }
                response.body = "hop " + number;
                return response;
            };
        };
        server_->route("/r1", hop(302, "/r2", "1"));
        server_->route("/r2", hop(301, "/final", "2"));
        server_->route("/final", hop(200, {}, "3"));
    }

    // A 404, an unreachable host and a fetch abandoned midway are proven end to end (the
    // script's fetch and the ad's).
    void conditionalGet() {
        PXBNetworkUtilities::setUserAgentString("SorvelTest/1");
        PXBNetworkUtilities::setUserAgentString("");  // ignored: the last agent stays
        Recorder recorder;
        PXBCachedFile file(&recorder, server_->url("/doc"));
        QVERIFY(file.fileModificationDate().isNull());

        file.validate();
        file.validate();  // a fetch runs: nothing more starts
        QTRY_COMPARE(recorder.events, QStringList{"end"});
        QCOMPARE(server_->requests().size(), 1);
        QCOMPARE(server_->requests()[0].header("User-Agent"), "SorvelTest/1");
        QVERIFY(server_->requests()[0].header("If-Modified-Since").isEmpty());
        QCOMPARE(file.httpStatusCode(), 200);
        QCOMPARE(file.content(), QString::fromUtf8("hello é"));
        QCOMPARE(platform::fileTimes(file.filePath())->modificationTime, kLastModifiedSeconds);
        QCOMPARE(file.fileModificationDate(), kZoneless);

        // A 304 leaves the file alone.
        platform::writeFileAtomically(file.filePath(), "kept");
        platform::setFileTimes(file.filePath(), kLastModifiedSeconds, kLastModifiedSeconds);
        file.validate();
        QTRY_COMPARE(recorder.events, (QStringList{"end", "end"}));
        QCOMPARE(server_->requests()[1].header("If-Modified-Since"), kZoneless.toLatin1());
        QCOMPARE(file.httpStatusCode(), 304);
        QCOMPARE(file.content(), "kept");
        QCOMPARE(platform::fileTimes(file.filePath())->modificationTime, kLastModifiedSeconds);
    }

    // Following redirects, and a refused one ending the fetch, are proven end to end (the ad's
    // redirect hops, the store link a click redirects to); an HTTP/2 server's lower-case field
    // names are not.
    void redirectsWithLowerCaseFieldNames() {
        routeHops("x-hop");
        Recorder recorder;
        PXBCachedFile file(&recorder, server_->url("/r1"));
        file.validate();
        const QStringList events{"redirect /r2 hop 1", "redirect /final hop 2", "end"};
        QTRY_COMPARE(recorder.events, events);
        QCOMPARE(file.httpDestinationURL(), server_->url("/final"));
        QCOMPARE(file.httpHeader("X-HOP"), "3");
        QVERIFY(file.httpHeader("X-Other").isNull());
        QCOMPARE(file.content(), "hop 3");
    }

    // One folder per host, one file per URL; a URL without a host stays inside the caches too.
    void filePaths_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("folder");
        QTest::newRow("host") << "http://one.example/s.js?v=1"
                              << "one.example";
        QTest::newRow("file URL") << "file:///etc/hosts"
                                  << "no-host";
    }
    void filePaths() {
        QFETCH(QString, url);
        QFETCH(QString, folder);
        Recorder recorder;
        PXBCachedFile file(&recorder, QUrl(url));
        const QFileInfo path(file.filePath());
        QCOMPARE(path.absolutePath(), QDir(platform::cachesDirectory()).filePath(folder));
        QCOMPARE(path.fileName(), QString::number(PXBCachedFile::stableHash(url), 16));
        QVERIFY(platform::createDirectory(path.absolutePath()));
        QVERIFY(platform::writeFileAtomically(path.filePath(), "x"));
        QCOMPARE(file.content(), "x");
        file.invalidate();
        QVERIFY(!path.exists());
        QVERIFY(file.content().isNull());
        // FNV-1a reference values: the name of a file must not change between builds.
        QCOMPARE(PXBCachedFile::stableHash(""), 0x811c9dc5u);
        QCOMPARE(PXBCachedFile::stableHash("a"), 0xe40c292cu);
    }

    void destroyedByItsDelegate() {
        Recorder recorder;
        recorder.owned = std::make_unique<PXBCachedFile>(&recorder, server_->url("/doc"));
        const QString path = recorder.owned->filePath();
        recorder.owned->validate();
        QTRY_VERIFY(!recorder.owned);
        QCOMPARE(recorder.events, QStringList{"end"});
        // The server's time still reaches the file.
        QCOMPARE(platform::fileTimes(path)->modificationTime, kLastModifiedSeconds);
    }

    // A date with a zone or one that does not exist is no HTTP date of the cache's; a good one
    // read and written back is proven by the conditional fetch.
    void httpDates_data() {
        QTest::addColumn<QString>("text");
        QTest::newRow("with zone") << "Sat, 01 Nov 2025 10:20:30 GMT";
        QTest::newRow("bad day") << "Sat, 31 Feb 2025 10:20:30";
    }
    void httpDates() {
        QFETCH(QString, text);
        QVERIFY(!PXBCachedFile::formatterForHTTPDate().dateFromString(text).isValid());
    }
};

QTEST_GUILESS_MAIN(TestCachedFile)
#include "tst_cachedfile.moc"
