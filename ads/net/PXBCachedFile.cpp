#include "ads/net/PXBCachedFile.h"

#include "ads/net/PXBNetworkUtilities.h"
#include "platform/clock.h"
#include "platform/files.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringDecoder>

using platform::Error;
using platform::HttpResponse;
using platform::UrlConnection;
using platform::UrlRequest;

namespace {

const char* const kDayNames[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
const char* const kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

QString PXBCachedFile::HttpDateFormatter::stringFromDate(const QDateTime& date) const {
    if (!date.isValid()) {
        return QString();
    }
    const QDateTime utc = date.toUTC();
    const QDate day = utc.date();
    const QTime time = utc.time();
    return QString::asprintf("%s, %02d %s %04d %02d:%02d:%02d", kDayNames[day.dayOfWeek() - 1],
                             day.day(), kMonthNames[day.month() - 1], day.year(), time.hour(),
                             time.minute(), time.second());
}

QDateTime PXBCachedFile::HttpDateFormatter::dateFromString(const QString& text) const {
    static const QRegularExpression pattern(QStringLiteral(
        R"(^\s*([A-Za-z]{3}), (\d{2}) ([A-Za-z]{3}) (\d{4}) (\d{2}):(\d{2}):(\d{2})\s*$)"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return QDateTime();
    }
    int month = 0;
    for (int i = 0; i < 12; ++i) {
        if (match.capturedView(3).compare(QLatin1String(kMonthNames[i]), Qt::CaseInsensitive) ==
            0) {
            month = i + 1;
        }
    }
    const QDate day(match.capturedView(4).toInt(), month, match.capturedView(2).toInt());
    const QTime time(match.capturedView(5).toInt(), match.capturedView(6).toInt(),
                     match.capturedView(7).toInt());
    if (month == 0 || !day.isValid() || !time.isValid()) {
        return QDateTime();
    }
    return QDateTime(day, time, Qt::UTC);
}

PXBCachedFile::PXBCachedFile(PXBCachedFileDelegate* delegate, const QUrl& url)
    : delegate_(delegate), sourceURL_(url), httpDestinationURL_(url) {}

PXBCachedFile::~PXBCachedFile() {
    delegate_.reset();
    cleanUpConnection();
}

quint32 PXBCachedFile::stableHash(const QString& text) {
    // FNV-1a over the UTF-16 code units: the same value in every run and on every machine.
    quint32 hash = 2166136261u;
    for (const QChar ch : text) {
        hash ^= ch.unicode();
        hash *= 16777619u;
    }
    return hash;
}

QString PXBCachedFile::filePath() {
    if (!filePath_.isEmpty()) {
        return filePath_;
    }
    const QString caches = platform::cachesDirectory();
    if (caches.isEmpty()) {
        return QString();
    }
    const QString file = QString::number(stableHash(sourceURL_.toString(QUrl::FullyEncoded)), 16);
    // A URL without a host (about:blank, file:///...) would name no folder, and the file would
    // land at the root of the file system, where invalidate() deletes: such files, and anything
    // else that would leave the caches folder, share one folder of their own.
    const QDir dir(caches);
    QString path = QDir::cleanPath(dir.filePath(sourceURL_.host() + u'/' + file));
    if (sourceURL_.host().isEmpty() || !path.startsWith(QDir::cleanPath(caches) + u'/')) {
        path = QDir::cleanPath(dir.filePath(QStringLiteral("no-host/") + file));
    }
    filePath_ = path;
    return filePath_;
}

QString PXBCachedFile::fileModificationDate() {
    const QString path = filePath();
    const std::optional<platform::FileTimes> times =
        path.isEmpty() ? std::nullopt : platform::fileTimes(path);
    if (!times) {
        return QString();
    }
    return formatterForHTTPDate().stringFromDate(
        QDateTime::fromSecsSinceEpoch(times->modificationTime, Qt::UTC));
}

QString PXBCachedFile::content() {
    const QString path = filePath();
    const std::optional<QByteArray> data = path.isEmpty() ? std::nullopt : platform::readFile(path);
    if (!data) {
        return QString();
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(*data);
    if (decoder.hasError()) {
        return QString();
    }
    if (text.isNull()) {
        text = QLatin1String("");
    }
    return text;
}

bool PXBCachedFile::hasContent() {
    const QString path = filePath();
    return !path.isEmpty() && platform::fileExists(path);
}

void PXBCachedFile::validate() {
    if (connection_ == nullptr) {
        beginFetchWithCacheBuster(false);
    }
}

void PXBCachedFile::validateWithCacheBuster() {
    if (connection_ == nullptr) {
        beginFetchWithCacheBuster(true);
    }
}

void PXBCachedFile::beginFetchWithCacheBuster(bool cacheBuster) {
    cleanUpConnection();
    QUrl url = sourceURL_;
    if (cacheBuster) {
        url = PXBNetworkUtilities::appendQueryKey(
            QStringLiteral("unique"), QString::asprintf("%.0f", platform::absoluteTimeNow()), url);
    }
    // The platform's connection never uses a protocol cache (this class is the cache) and keeps
    // cookies.
    UrlRequest request(url, kTimeoutSeconds);
    request.setMaximumDuration(2 * kTimeoutSeconds);
    request.setAllowsLocalNetwork(allowsLocalNetwork_);
    const QString userAgent = PXBNetworkUtilities::userAgentString();
    if (!userAgent.isEmpty()) {
        request.setValueForHTTPHeaderField(userAgent, QStringLiteral("User-Agent"));
    }
    // A stored copy that does not read as text is as good as none: asking whether it is still
    // current would keep it for as long as the server's file stays the same.
    const QString modified = keepsBody_ ? fileModificationDate() : QString();
    if (!modified.isNull() && !content().isNull()) {
        request.setValueForHTTPHeaderField(modified, QStringLiteral("If-Modified-Since"));
    }
    connection_ = std::make_unique<UrlConnection>(
        request, static_cast<platform::UrlConnectionDelegate*>(this));
    receivedData_ = QByteArray();
}

void PXBCachedFile::cancel() {
    cleanUpConnection();
}

void PXBCachedFile::invalidate() {
    cancel();
    const QString path = filePath();
    if (!path.isEmpty()) {
        platform::removeFile(path);
    }
}

QString PXBCachedFile::description() const {
    return QStringLiteral("<PXBCachedFile: 0x%1> HTTP code: %2\n\turl: %3\n\tfile: %4")
        .arg(reinterpret_cast<quintptr>(this), 0, 16)
        .arg(httpStatusCode_)
        .arg(sourceURL_.toString(QUrl::FullyEncoded), filePath_);
}

void PXBCachedFile::cleanUpConnection() {
    if (connection_ != nullptr) {
        // We may be inside one of the connection's callbacks: stop it now, delete it later.
        connection_->cancel();
        connection_.release()->deleteLater();
    }
    receivedData_.reset();
    receivedModificationDate_ = QString();
}

bool PXBCachedFile::tellDidEnd() {
    const std::weak_ptr<char> alive = alive_;
    if (PXBCachedFileDelegate* delegate = delegate_.get()) {
        delegate->cachedFileDownloadDidEnd(this);
    }
    return !alive.expired();
}

bool PXBCachedFile::tellDidFail(const Error& error) {
    const std::weak_ptr<char> alive = alive_;
    if (PXBCachedFileDelegate* delegate = delegate_.get()) {
        delegate->cachedFileDownloadDidFail(this, error);
    }
    return !alive.expired();
}

QString PXBCachedFile::httpHeader(const QString& name) const {
    for (auto it = httpHeaders_.cbegin(); it != httpHeaders_.cend(); ++it) {
        if (it.key().compare(name, Qt::CaseInsensitive) == 0) {
            return it.value().toString();
        }
    }
    return QString();
}

void PXBCachedFile::saveHeadersFromResponse(const HttpResponse& response) {
    httpHeaders_ = response.headers;
}

std::optional<UrlRequest> PXBCachedFile::connectionWillSendRequest(
    UrlConnection&, const UrlRequest& request, const HttpResponse* redirectResponse) {
    httpDestinationURL_ = request.url();
    if (redirectResponse == nullptr) {
        return request;
    }
    saveHeadersFromResponse(*redirectResponse);
    const std::weak_ptr<char> alive = alive_;
    Error refusal;
    if (PXBCachedFileDelegate* delegate = delegate_.get()) {
        refusal = delegate->cachedFileShouldRedirectToURL(this, request.url());
    }
    if (alive.expired()) {
        return std::nullopt;
    }
    if (!refusal.isNull()) {
        // The clean-up cancels the connection, so the request returned below goes nowhere.
        cleanUpConnection();
        tellDidFail(refusal);
    }
    return request;
}

void PXBCachedFile::connectionDidReceiveResponse(UrlConnection&, const HttpResponse& response) {
    httpStatusCode_ = response.statusCode;
    saveHeadersFromResponse(response);
    if (response.statusCode == 200 && !keepsBody_) {
        if (tellDidEnd()) {
            cleanUpConnection();
        }
        return;
    }
    bool announced = false;
    const qint64 length =
        response.valueForHeader(QStringLiteral("Content-Length")).trimmed().toLongLong(&announced);
    if (response.statusCode == 200 && maximumBodyBytes_ > 0 && announced &&
        length > maximumBodyBytes_) {
        failTooLarge();
        return;
    }
    if (response.statusCode == 200) {
        QString modified = response.valueForHeader(QStringLiteral("Last-Modified"));
        const qsizetype gmt = modified.indexOf(QLatin1String("GMT"));
        if (gmt >= 0) {
            modified.truncate(gmt);  // the blank before "GMT" stays
        }
        receivedModificationDate_ = modified;
    } else if (response.statusCode == 304) {
        if (!tellDidEnd()) {
            return;
        }
        cleanUpConnection();
    } else {
        if (!tellDidFail(Error())) {
            return;
        }
        cleanUpConnection();
    }
    if (receivedData_) {
        receivedData_->clear();
    }
}

void PXBCachedFile::connectionDidReceiveData(UrlConnection&, const QByteArray& data) {
    if (!receivedData_) {
        return;
    }
    if (maximumBodyBytes_ > 0 && receivedData_->size() + data.size() > maximumBodyBytes_) {
        failTooLarge();
        return;
    }
    receivedData_->append(data);
}

void PXBCachedFile::failTooLarge() {
    const Error error = platform::networkError(
        UrlConnection::kErrorDataLengthExceedsMaximum,
        QStringLiteral("The resource is larger than %1 bytes.").arg(maximumBodyBytes_),
        httpDestinationURL_);
    cleanUpConnection();
    tellDidFail(error);
}

void PXBCachedFile::connectionDidFinishLoading(UrlConnection&) {
    const QString path = filePath();
    Error error;
    bool written = false;
    if (path.isEmpty()) {
        error = Error(platform::kFileErrorDomain, 4,
                      {{Error::kLocalizedDescriptionKey,
                        QStringLiteral("There is no caches directory to write the file into.")}});
    } else {
        platform::createDirectory(QFileInfo(path).absolutePath());
        written = platform::writeFileAtomically(path, receivedData_.value_or(QByteArray()), &error,
                                                platform::SyncToDisk::No);
    }
    if (!written) {
        if (!tellDidFail(error)) {
            return;
        }
        cleanUpConnection();
        return;
    }
    // The delegate hears of the end before the file gets the server's time, deliberately.
    const QString modified = receivedModificationDate_;
    const bool stillHere = tellDidEnd();
    // From here on only locals: the delegate may have destroyed this object, and the file still
    // gets the server's time.
    if (!modified.isEmpty()) {
        const QDateTime date = formatterForHTTPDate().dateFromString(modified);
        if (date.isValid()) {
            const qint64 seconds = date.toSecsSinceEpoch();
            platform::setFileTimes(path, seconds, seconds);
        }
    }
    if (stillHere) {
        cleanUpConnection();
    }
}

void PXBCachedFile::connectionDidFailWithError(UrlConnection&, const Error& error) {
    cleanUpConnection();
    tellDidFail(error);
}
