#include "adserver/adserver.h"

#include "adserver/http.h"
#include "adserver/inventory.h"
#include "adserver/locationcode.h"
#include "adserver/requestlog.h"

#include <QCryptographicHash>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QLocale>
#include <QMessageAuthenticationCode>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <cctype>

namespace adserver {

namespace {

const QString kScriptPath = QStringLiteral("/zelm/sdk-core-v40.js");
const QString kAdPath = QStringLiteral("/ad");
const QString kDemoInventory = QStringLiteral(":/adserver/demo-inventory.json");
const QByteArray kMisdirected = "this server does not serve that host name\n";
constexpr char kCompiledLocationKey[] = "5b1e0c7a93d24f86a1c03e9b7d52f418";

// Static pages: path, resource, content type.
struct Page {
    const char* path;
    const char* resource;
    const char* type;
};
constexpr Page kPages[] = {
    {"/landing/", ":/adserver/www/landing/index.html", "text/html; charset=utf-8"},
    {"/landing/index.html", ":/adserver/www/landing/index.html", "text/html; charset=utf-8"},
    {"/landing/menu.html", ":/adserver/www/landing/menu.html", "text/html; charset=utf-8"},
    {"/landing/visit.html", ":/adserver/www/landing/visit.html", "text/html; charset=utf-8"},
    {"/landing/secure.html", ":/adserver/www/landing/secure.html", "text/html; charset=utf-8"},
    {"/webapp/", ":/adserver/www/webapp.html", "text/html; charset=utf-8"},
};

// A 1x1 transparent GIF for impression pixels.
const QByteArray& pixelGif() {
    static const QByteArray gif =
        QByteArray::fromBase64("R0lGODlhAQABAIAAAAAAAP///yH5BAEAAAAALAAAAAABAAEAAAIBRAA7");
    return gif;
}

QString readResource(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QString encoded(const QString& text) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

// Redirect hops may carry tracking URLs too; the client gathers them from every hop.
QByteArray hopTrackingURL(const QString& origin, const QString& creative) {
    return (origin + QStringLiteral("/t/imp?hop=1&c=") + encoded(creative)).toUtf8();
}

QString htmlEscape(const QString& text) {
    return text.toHtmlEscaped();
}

// JSON that may stand inside a <script> element.
QString scriptJson(const QJsonValue& value) {
    QJsonArray wrapper{value};
    QString text = QString::fromUtf8(QJsonDocument(wrapper).toJson(QJsonDocument::Compact));
    text = text.mid(1, text.size() - 2);
    return text.replace(QLatin1String("</"), QLatin1String("<\\/"))
        .replace(QLatin1String("<!--"), QLatin1String("<\\!--"));
}

QByteArray percentDecode(const QByteArray& text) {
    QByteArray out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(uchar(text[i + 1])) &&
            std::isxdigit(uchar(text[i + 2]))) {
            out += char(QByteArray::fromHex(text.mid(i + 1, 2)).at(0));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

// Query pairs split at "&", escapes decoded as UTF-8; "+" stays "+", as the client writes
// blanks as %20. Malformed escapes are kept as they are.
QList<QPair<QString, QString>> queryPairs(const QByteArray& raw) {
    QList<QPair<QString, QString>> pairs;
    const QList<QByteArray> pieces = raw.split('&');
    for (const QByteArray& piece : pieces) {
        const qsizetype eq = piece.indexOf('=');
        const QByteArray key = eq < 0 ? piece : piece.left(eq);
        const QByteArray value = eq < 0 ? QByteArray() : piece.mid(eq + 1);
        if (!key.isEmpty()) {
            pairs.append(
                {QString::fromUtf8(percentDecode(key)), QString::fromUtf8(percentDecode(value))});
        }
    }
    return pairs;
}

QHash<QString, QString> queryMap(const QByteArray& raw) {
    QHash<QString, QString> map;
    for (const auto& [key, value] : queryPairs(raw)) {
        map.insert(key, value);
    }
    return map;
}

QDateTime parseHttpDate(QString text) {
    text = text.trimmed();
    for (const char* zone : {"GMT", "UTC"}) {
        if (text.endsWith(QLatin1String(zone))) {
            text.chop(3);
        }
    }
    text = text.trimmed();
    for (const char* format : {"ddd, dd MMM yyyy HH:mm:ss", "ddd, d MMM yyyy HH:mm:ss"}) {
        QDateTime time = QLocale::c().toDateTime(text, QLatin1String(format));
        if (time.isValid()) {
            time.setTimeSpec(Qt::UTC);
            return time;
        }
    }
    return {};
}

QByteArray httpDate(const QDateTime& time) {
    return QLocale::c()
        .toString(time.toUTC(), QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"))
        .toLatin1();
}

HttpResponse textResponse(int status, const QString& text,
                          const QByteArray& type = "text/plain; charset=utf-8") {
    HttpResponse response;
    response.status = status;
    response.setHeader("Content-Type", type);
    response.body = text.toUtf8();
    return response;
}

// Equal or not, in a time that does not depend on where two digests of one length differ.
bool sameDigest(const QByteArray& a, const QByteArray& b) {
    if (a.size() != b.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (qsizetype i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return difference == 0;
}

QByteArray tokenDigest(const QByteArray& token) {
    return QCryptographicHash::hash(token, QCryptographicHash::Sha256);
}

// An address as the host part of a URL: IPv6 in brackets, IPv4-mapped as IPv4.
QString addressHost(const QHostAddress& address) {
    bool v4 = false;
    const quint32 ipv4 = address.toIPv4Address(&v4);
    if (v4) {
        return QHostAddress(ipv4).toString();
    }
    return QStringLiteral("[%1]").arg(address.toString());
}

// A host as requests name it and as the server writes it: a lower-case name, or an IP address
// as addressHost() writes it; empty when it is neither.
QString canonicalHost(QString host) {
    static const QRegularExpression namePattern(QStringLiteral("^[A-Za-z0-9.-]+$"));
    const bool bracketed = host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']'));
    if (bracketed) {
        host = host.mid(1, host.size() - 2);
    }
    QHostAddress address;
    if (address.setAddress(host) && address.scopeId().isEmpty()) {
        const bool v6 = address.protocol() == QAbstractSocket::IPv6Protocol;
        return v6 == bracketed ? addressHost(address) : QString();
    }
    return !bracketed && namePattern.match(host).hasMatch() ? host.toLower() : QString();
}

// "host" or "host:port" split, the host made canonical; port 0 when none is given. Nullopt when
// malformed.
std::optional<std::pair<QString, quint16>> splitHostPort(const QString& text) {
    static const QRegularExpression pattern(
        QStringLiteral("^([A-Za-z0-9.-]+|\\[[0-9A-Fa-f:.]+\\])(?::([0-9]{1,5}))?$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const QString host = canonicalHost(match.captured(1));
    const uint port = match.captured(2).isEmpty() ? 0 : match.captured(2).toUInt();
    if (host.isEmpty() || port > 65535 || (!match.captured(2).isEmpty() && port == 0)) {
        return std::nullopt;
    }
    return std::pair{host, quint16(port)};
}

HttpResponse jsonResponse(const QJsonValue& value) {
    HttpResponse response;
    response.setHeader("Content-Type", "application/json");
    response.setHeader("Cache-Control", "no-store");
    response.body = value.isObject() ? QJsonDocument(value.toObject()).toJson()
                                     : QJsonDocument(value.toArray()).toJson();
    return response;
}

}  // namespace

struct AdServer::Private {
    AdServer* q;
    HttpListener listener;
    RequestLog log;
    Inventory inventory;
    QByteArray locationKey;
    QString error;
    QHostAddress host;
    ServerLimits limits;
    QHash<QString, QJsonObject> pathFaults;  // set through the API; over the inventory's
    bool requestFaults = false;
    QByteArray logTokenDigest;                 // empty: no token opens the log
    QList<std::pair<QString, quint16>> names;  // configured; port 0: the server's own
    QByteArray hopKey;                         // signs the server's own redirect hops
    QHash<QString, qint64> rotation;           // next creative index per ad unit
    qint64 serial = 0;                         // numbers each served ad
    QDateTime scriptModified;                  // the script's Last-Modified, whole seconds
    QString scriptTemplate;

    explicit Private(AdServer* owner) : q(owner) {}

    std::optional<QString> servedName(const HttpRequest& request) const;
    QString origin(const HttpRequest& request) const;
    bool mayReadLog(const HttpRequest& request, const QHash<QString, QString>& query) const;
    QString hopMac(const QStringList& parts) const;
    QString redirectHop(const QString& left, bool loop, const QString& hop, const QString& creative,
                        const QString& to) const;
    bool isOwnRedirectHop(const QHash<QString, QString>& query) const;
    void touchScript();
    QString scriptText(const QString& origin) const;
    Faults faultsFor(const HttpRequest& request, const QHash<QString, QString>& query,
                     const QJsonObject& base) const;
    HttpResponse handle(const HttpRequest& request);
    HttpResponse serveScript(const HttpRequest& request, const QHash<QString, QString>& query);
    HttpResponse serveAd(const HttpRequest& request, const QHash<QString, QString>& query);
    HttpResponse serveRedirect(const HttpRequest& request, const QHash<QString, QString>& query);
    HttpResponse serveClick(const HttpRequest& request, const QHash<QString, QString>& query);
    HttpResponse servePreview(const HttpRequest& request, const QString& id);
    HttpResponse serveIndex(const HttpRequest& request);
    QString renderCreative(const Creative& creative, const QString& unit, qint64 serial,
                           const QString& origin) const;
    QString landingUrl(const Creative& creative, const QString& origin) const;
    void applyFaults(HttpResponse& response, const Faults& faults) const;
    void record(const HttpRequest& request, const HttpResponse& response, bool abandoned);
};

// The served name (in the server's own spelling) that the request addresses, from its
// absolute target or its one Host header; a request of HTTP/1.0 may name none. Nullopt when it
// names a host this server does not serve.
std::optional<QString> AdServer::Private::servedName(const HttpRequest& request) const {
    QByteArray named = request.authority;
    if (named.isEmpty()) {
        const int count = request.headerCount("Host");
        if (count == 0 && request.version == "HTTP/1.0") {
            return q->hostAndPort();
        }
        if (count != 1) {
            return std::nullopt;
        }
        named = request.header("Host");
    }
    const auto wanted = splitHostPort(QString::fromLatin1(named));
    if (!wanted) {
        return std::nullopt;
    }
    const quint16 port = q->port();
    const quint16 wantedPort = wanted->second == 0 ? 80 : wanted->second;
    QStringList candidates = q->serverNames();
    // The address the connection arrived on, as when the server listens on every interface.
    if (!request.local.isNull()) {
        candidates.append(addressHost(request.local) + QStringLiteral(":%1").arg(port));
    }
    for (const QString& candidate : std::as_const(candidates)) {
        const auto served = splitHostPort(candidate);
        if (served && served->first == wanted->first && served->second == wantedPort) {
            return candidate;
        }
    }
    return std::nullopt;
}

// Absolute URLs name the server as the request did, in the server's own spelling: the Host
// header's text never reaches a page or a header.
QString AdServer::Private::origin(const HttpRequest& request) const {
    return QStringLiteral("http://") + servedName(request).value_or(q->hostAndPort());
}

bool AdServer::Private::mayReadLog(const HttpRequest& request,
                                   const QHash<QString, QString>& query) const {
    if (AdServer::isLoopback(request.peer)) {
        return true;
    }
    if (logTokenDigest.isEmpty()) {
        return false;
    }
    const QByteArray authorization = request.header("Authorization");
    QByteArray given;
    if (authorization.left(7).compare("Bearer ", Qt::CaseInsensitive) == 0) {
        given = authorization.mid(7).trimmed();
    } else if (query.contains(QStringLiteral("token"))) {
        given = query.value(QStringLiteral("token")).toUtf8();
    } else {
        return false;
    }
    return sameDigest(tokenDigest(given), logTokenDigest);
}

QString AdServer::Private::hopMac(const QStringList& parts) const {
    return QString::fromLatin1(
        QMessageAuthenticationCode::hash(parts.join(QLatin1Char('\n')).toUtf8(), hopKey,
                                         QCryptographicHash::Sha256)
            .toHex()
            .left(32));
}

// A /r address with the server's signature, so that only the hops of a redirect fault the
// server chose are followed, never a chain or loop a client made up.
QString AdServer::Private::redirectHop(const QString& left, bool loop, const QString& hop,
                                       const QString& creative, const QString& to) const {
    QStringList parts;
    const QString loopText = loop ? QStringLiteral("1") : QString();
    const std::pair<const char*, const QString*> fields[] = {
        {"left", &left}, {"loop", &loopText}, {"hop", &hop}, {"c", &creative}, {"to", &to}};
    for (const auto& [name, value] : fields) {
        if (!value->isEmpty()) {
            parts.append(QLatin1String(name) + QLatin1Char('=') + encoded(*value));
        }
    }
    const QString mac = hopMac({QStringLiteral("r"), left, loopText, hop, creative, to});
    return QStringLiteral("/r?") + parts.join(QLatin1Char('&')) + QStringLiteral("&sig=") + mac;
}

bool AdServer::Private::isOwnRedirectHop(const QHash<QString, QString>& query) const {
    const auto value = [&query](const char* name) { return query.value(QLatin1String(name)); };
    const QString mac = hopMac(
        {QStringLiteral("r"), value("left"), value("loop"), value("hop"), value("c"), value("to")});
    return sameDigest(value("sig").toLatin1(), mac.toLatin1());
}

void AdServer::Private::touchScript() {
    // Clients revalidate the script by its date: each change must move it forward.
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const qint64 previous = scriptModified.isValid() ? scriptModified.toSecsSinceEpoch() : 0;
    scriptModified = QDateTime::fromSecsSinceEpoch(qMax(now, previous + 1), Qt::UTC);
}

QString AdServer::Private::scriptText(const QString& origin) const {
    QJsonObject units;
    for (const AdUnit& unit : inventory.adUnits) {
        QJsonObject entry{{QStringLiteral("type"), unit.type},
                          {QStringLiteral("paused"), unit.paused}};
        if (!unit.scriptReply.isEmpty()) {
            entry.insert(QStringLiteral("reply"), unit.scriptReply);
        }
        units.insert(unit.id, entry);
    }
    QString text = scriptTemplate;
    text.replace(QLatin1String("__ZELM_ORIGIN__"), scriptJson(origin));
    text.replace(QLatin1String("__ZELM_UNITS__"), scriptJson(units));
    text.replace(QLatin1String("__ZELM_REQUEST_FAULTS__"),
                 requestFaults ? QStringLiteral("true") : QStringLiteral("false"));
    return text;
}

Faults AdServer::Private::faultsFor(const HttpRequest& request,
                                    const QHash<QString, QString>& query,
                                    const QJsonObject& base) const {
    Faults faults;
    faults.mergeJson(base);
    faults.mergeJson(inventory.pathFaults.value(request.path));
    faults.mergeJson(pathFaults.value(request.path));
    if (!requestFaults) {
        return faults;
    }
    // The client passes the request's additional parameters through as JSON under "extras".
    const QJsonObject extras =
        QJsonDocument::fromJson(query.value(QStringLiteral("extras")).toUtf8()).object();
    QHash<QString, QString> fromExtras;
    for (auto it = extras.begin(); it != extras.end(); ++it) {
        fromExtras.insert(it.key(), it.value().isString() ? it.value().toString()
                                                          : it.value().toVariant().toString());
    }
    faults.mergePrefixed(fromExtras);
    faults.mergePrefixed(query);
    return faults;
}

void AdServer::Private::applyFaults(HttpResponse& response, const Faults& faults) const {
    if (faults.status) {
        response.status = *faults.status;
        response.body =
            QByteArrayLiteral("status ") + QByteArray::number(*faults.status) + " on request\n";
        response.setHeader("Content-Type", "text/plain; charset=utf-8");
    }
    if (faults.oversizeBytes > response.body.size()) {
        // The padding is made up as it is sent.
        response.filler = faults.oversizeBytes - response.body.size();
        response.fillerInComment = response.header("Content-Type").startsWith("text/html");
    }
    if (faults.body) {
        response.body = *faults.body;
        response.filler = 0;
    }
    if (faults.emptyBody) {
        response.body.clear();
        response.filler = 0;
    }
    if (!faults.location.isEmpty()) {
        response.setHeader("Location", faults.location.toUtf8());
    }
    if (faults.repeatedHeader) {
        QList<QPair<QByteArray, QByteArray>> repeated;
        for (const auto& header : std::as_const(response.headers)) {
            if (header.first.startsWith("X-Zelm-")) {
                repeated.append(header);
            }
        }
        if (repeated.isEmpty()) {
            repeated = {{"X-Zelm-Refresh-Rate", "30"}, {"X-Zelm-Refresh-Rate", "60"}};
        }
        response.headers += repeated;
    }
    if (faults.malformedHeader) {
        response.headers.append({QByteArray(), "X-Zelm-Malformed header line without a colon"});
    }
    response.delayMs = faults.delayMs;
    response.drop = faults.drop;
    response.truncate = faults.truncate;
}

QString AdServer::Private::landingUrl(const Creative& creative, const QString& origin) const {
    const QString landing =
        creative.landing.isEmpty() ? QStringLiteral("/landing/") : creative.landing;
    return landing.startsWith(QLatin1Char('/')) ? origin + landing : landing;
}

QString AdServer::Private::renderCreative(const Creative& creative, const QString& unit,
                                          qint64 serial, const QString& origin) const {
    const QString tag =
        QStringLiteral("c=%1&u=%2&n=%3").arg(encoded(creative.id), encoded(unit)).arg(serial);
    const QString clickUrl = origin + QStringLiteral("/t/click?") + tag;
    const QString landing = landingUrl(creative, origin);
    const QString webApp = origin + QStringLiteral("/webapp/?") + tag;
    const QJsonObject ad{{QStringLiteral("origin"), origin},
                         {QStringLiteral("creative"), creative.id},
                         {QStringLiteral("adUnit"), unit},
                         {QStringLiteral("serial"), double(serial)},
                         {QStringLiteral("clickUrl"), clickUrl},
                         {QStringLiteral("landingUrl"), landing},
                         {QStringLiteral("webAppUrl"), webApp},
                         {QStringLiteral("scriptUrl"), origin + kScriptPath}};
    QString html = creative.html;
    html.replace(QLatin1String("{{BRIDGE}}"),
                 QStringLiteral("<script>") + scriptText(origin) + QStringLiteral("</script>"));
    html.replace(QLatin1String("{{AD_JSON}}"), scriptJson(ad));
    html.replace(QLatin1String("{{ORIGIN}}"), htmlEscape(origin));
    html.replace(QLatin1String("{{CLICK_URL}}"), htmlEscape(clickUrl));
    html.replace(QLatin1String("{{LANDING_URL}}"), htmlEscape(landing));
    html.replace(QLatin1String("{{WEBAPP_URL}}"), htmlEscape(webApp));
    html.replace(QLatin1String("{{CREATIVE}}"), htmlEscape(creative.id));
    html.replace(QLatin1String("{{AD_UNIT}}"), htmlEscape(unit));
    html.replace(QLatin1String("{{SERIAL}}"), QString::number(serial));
    return html;
}

HttpResponse AdServer::Private::serveScript(const HttpRequest& request,
                                            const QHash<QString, QString>& query) {
    HttpResponse response;
    response.setHeader("Content-Type", "application/javascript; charset=utf-8");
    response.setHeader("Last-Modified", httpDate(scriptModified));
    const QDateTime since = parseHttpDate(QString::fromLatin1(request.header("If-Modified-Since")));
    if (since.isValid() && since >= scriptModified) {
        response.status = 304;
    } else {
        response.body = scriptText(origin(request)).toUtf8();
    }
    applyFaults(response, faultsFor(request, query, {}));
    return response;
}

HttpResponse AdServer::Private::serveAd(const HttpRequest& request,
                                        const QHash<QString, QString>& query) {
    const QString slot = query.value(QStringLiteral("slotname"));
    if (!isWellFormedAdUnitID(slot)) {
        HttpResponse response = textResponse(
            400, QStringLiteral("the ad unit identifier must be 15 lower-case hexadecimal "
                                "characters\n"));
        applyFaults(response, faultsFor(request, query, {}));
        return response;
    }
    const QString here = origin(request);
    const AdUnit* unit = inventory.adUnit(slot);
    // The last hop of a redirect fault comes back with the server's mark and serves the
    // creative picked at the first, not the next in rotation.
    const QString pinned = query.value(QStringLiteral("zf_creative"));
    const bool redirected = sameDigest(query.value(QStringLiteral("zf_hop")).toLatin1(),
                                       hopMac({QStringLiteral("hop"), pinned}).toLatin1());
    Faults faults;
    const Creative* creative = nullptr;
    if (unit && !unit->paused && !unit->creatives.isEmpty()) {
        faults = faultsFor(request, query, {});
        QString id = redirected ? pinned : faults.creative;
        if (!inventory.creatives.contains(id)) {
            const qint64 index = rotation.value(unit->id);
            rotation.insert(unit->id, index + 1);
            id = unit->creatives.at(index % unit->creatives.size());
        }
        creative = &inventory.creatives[id];
        faults = faultsFor(request, query, creative->faults);
        if (redirected) {
            faults.creative = pinned;
        }
        if (!faults.creative.isEmpty() && inventory.creatives.contains(faults.creative)) {
            creative = &inventory.creatives[faults.creative];
        }
    } else {
        faults = faultsFor(request, query, {});
    }

    HttpResponse response;
    response.setHeader("Content-Type", "text/html; charset=utf-8");
    response.setHeader("Cache-Control", "no-store");
    if ((faults.redirects > 0 || faults.redirectLoop) && !redirected) {
        // Send the client through /r; the last hop comes back here marked as redirected.
        const QString id = creative ? creative->id : QString();
        QByteArray back = request.rawQuery;
        back += QByteArray(back.isEmpty() ? "" : "&") +
                "zf_hop=" + hopMac({QStringLiteral("hop"), id}).toLatin1();
        if (creative) {
            back += "&zf_creative=" + QUrl::toPercentEncoding(id);
        }
        // This answer is the first of the hops; /r gives the others, if any.
        const QString target = kAdPath + QStringLiteral("?") + QString::fromLatin1(back);
        QString hop = target;
        if (faults.redirects > 1 || faults.redirectLoop) {
            hop = redirectHop(QString::number(faults.redirects - 1), faults.redirectLoop, {}, id,
                              here + target);
        }
        response.status = 302;
        response.setHeader("Location", (here + hop).toUtf8());
        if (creative) {
            response.setHeader("X-Zelm-Tracking-Urls", hopTrackingURL(here, creative->id));
        }
        response.delayMs = faults.delayMs;
        response.drop = faults.drop;
        return response;
    }

    if (creative) {
        const qint64 n = ++serial;
        const QString tag =
            QStringLiteral("c=%1&u=%2&n=%3").arg(encoded(creative->id), slot).arg(n);
        auto absolute = [&here](const QString& url) {
            return url.startsWith(QLatin1Char('/')) ? here + url : url;
        };
        QStringList tracking;
        if (creative->trackImpressions) {
            tracking.append(here + QStringLiteral("/t/imp?") + tag +
                            (creative->impressionResponse == QLatin1String("204")
                                 ? QStringLiteral("&empty=1")
                                 : QString()));
        }
        for (const QString& url : creative->trackingUrls) {
            tracking.append(absolute(url));
        }
        for (int i = 1; i <= faults.extraTrackingUrls; ++i) {
            tracking.append(here + QStringLiteral("/t/imp?") + tag +
                            QStringLiteral("&extra=%1").arg(i));
        }
        QStringList clicks;
        if (creative->trackClicks) {
            clicks.append(here + QStringLiteral("/t/ctrk?") + tag);
        }
        for (const QString& url : creative->clickTrackingUrls) {
            clicks.append(absolute(url));
        }
        if (!tracking.isEmpty()) {
            response.setHeader("X-Zelm-Tracking-Urls", tracking.join(QLatin1Char(' ')).toUtf8());
        }
        if (!clicks.isEmpty()) {
            response.setHeader("X-Zelm-Click-Tracking-Urls",
                               clicks.join(QLatin1Char(' ')).toUtf8());
        }
        if (!creative->refreshRate.isEmpty()) {
            response.setHeader("X-Zelm-Refresh-Rate", creative->refreshRate.toUtf8());
        }
        if (!creative->orientation.isEmpty()) {
            response.setHeader("X-Zelm-Orientation", creative->orientation.toUtf8());
        }
        if (!creative->interstitialTimeout.isEmpty()) {
            response.setHeader("X-Zelm-Interstitial-Timeout",
                               creative->interstitialTimeout.toUtf8());
        }
        response.setHeader("X-Sorvel-Creative", creative->id.toUtf8());
        response.body = renderCreative(*creative, slot, n, here).toUtf8();
    }
    // Unknown, paused or empty ad units get an empty body: no fill.
    applyFaults(response, faults);
    return response;
}

HttpResponse AdServer::Private::serveRedirect(const HttpRequest& request,
                                              const QHash<QString, QString>& query) {
    if (!requestFaults && !isOwnRedirectHop(query)) {
        // Hops are the server's own; a chain or loop made up by a client is no page of it.
        HttpResponse response = textResponse(404, QStringLiteral("not found\n"));
        applyFaults(response, faultsFor(request, query, {}));
        return response;
    }
    HttpResponse response;
    response.status = 302;
    const QString here = origin(request);
    const int left = query.value(QStringLiteral("left")).toInt();
    const QString creative = query.value(QStringLiteral("c"));
    const QString to = query.value(QStringLiteral("to"));
    QString next;
    if (query.value(QStringLiteral("loop")) == QLatin1String("1")) {
        // Two addresses that send the client to each other for ever.
        const int hop = query.value(QStringLiteral("hop")).toInt() == 0 ? 1 : 0;
        next = here + redirectHop({}, true, QString::number(hop), {}, {});
    } else if (left > 1) {
        next = here + redirectHop(QString::number(left - 1), false, {}, creative, to);
    } else {
        // Only ever back to this server's ad endpoint.
        next = to.startsWith(here + kAdPath + QLatin1Char('?')) ? to : here + kAdPath;
    }
    response.setHeader("Location", next.toUtf8());
    if (!creative.isEmpty()) {
        response.setHeader("X-Zelm-Tracking-Urls", hopTrackingURL(here, creative));
    }
    applyFaults(response, faultsFor(request, query, {}));
    return response;
}

HttpResponse AdServer::Private::serveClick(const HttpRequest& request,
                                           const QHash<QString, QString>& query) {
    const auto it = inventory.creatives.constFind(query.value(QStringLiteral("c")));
    HttpResponse response;
    if (it == inventory.creatives.constEnd()) {
        response = textResponse(404, QStringLiteral("unknown creative\n"));
    } else {
        response.status = 302;
        response.setHeader("Location", landingUrl(*it, origin(request)).toUtf8());
        response.setHeader("Cache-Control", "no-store");
    }
    applyFaults(response, faultsFor(request, query, {}));
    return response;
}

HttpResponse AdServer::Private::servePreview(const HttpRequest& request, const QString& id) {
    const QString here = origin(request);
    if (!id.isEmpty()) {
        const auto it = inventory.creatives.constFind(id);
        if (it == inventory.creatives.constEnd()) {
            return textResponse(404, QStringLiteral("unknown creative\n"));
        }
        HttpResponse response =
            textResponse(200, renderCreative(*it, QStringLiteral("preview"), 0, here),
                         "text/html; charset=utf-8");
        return response;
    }
    QStringList ids = inventory.creatives.keys();
    ids.sort();
    QString html = QStringLiteral(
        "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Creatives</title>"
        "<style>body{font:14px sans-serif;background:#eee;margin:16px}"
        "figure{margin:0 0 14px}figcaption{margin-bottom:4px;color:#444}"
        "iframe{width:320px;height:50px;border:0;display:block;background:#fff}</style>"
        "</head><body>");
    for (const QString& creative : ids) {
        html += QStringLiteral(
                    "<figure><figcaption>%1</figcaption>"
                    "<iframe src=\"/preview/%1\" scrolling=\"no\"></iframe></figure>")
                    .arg(htmlEscape(creative));
    }
    html += QStringLiteral("</body></html>");
    return textResponse(200, html, "text/html; charset=utf-8");
}

HttpResponse AdServer::Private::serveIndex(const HttpRequest& request) {
    QString html =
        QStringLiteral(
            "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Sorvel ad server</title>"
            "<style>body{font:15px sans-serif;margin:24px;max-width:760px}code{background:#eee;"
            "padding:1px 4px}td,th{padding:3px 10px;text-align:left}</style></head><body>"
            "<h1>Sorvel reference ad server</h1><p>Support script: <a href=\"%1\">%1</a></p>"
            "<p><a href=\"/preview/\">All creatives</a> &middot; <a href=\"/log\">Request log</a> "
            "&middot; <a href=\"/landing/\">Landing site</a></p><h2>Ad units</h2>"
            "<table><tr><th>id</th><th>name</th><th>state</th><th>creatives</th></tr>")
            .arg(htmlEscape(origin(request) + kScriptPath));
    for (const AdUnit& unit : inventory.adUnits) {
        html += QStringLiteral("<tr><td><code>%1</code></td><td>%2</td><td>%3</td><td>%4</td></tr>")
                    .arg(htmlEscape(unit.id), htmlEscape(unit.name),
                         unit.paused ? QStringLiteral("paused") : QStringLiteral("active"),
                         htmlEscape(unit.creatives.join(QStringLiteral(", "))));
    }
    html += QStringLiteral("</table></body></html>");
    return textResponse(200, html, "text/html; charset=utf-8");
}

HttpResponse AdServer::Private::handle(const HttpRequest& request) {
    if (!servedName(request)) {
        // Misdirected, or a page whose own name was made to resolve here: not answered, and
        // the name it gave is not repeated.
        return textResponse(400, QString::fromLatin1(kMisdirected));
    }
    const QHash<QString, QString> query = queryMap(request.rawQuery);
    const QString& path = request.path;
    if (path == kScriptPath) {
        return serveScript(request, query);
    }
    if (path == kAdPath) {
        return serveAd(request, query);
    }
    if (path == QLatin1String("/r")) {
        return serveRedirect(request, query);
    }
    if (path == QLatin1String("/t/click")) {
        return serveClick(request, query);
    }
    if (path == QLatin1String("/t/imp") || path == QLatin1String("/t/ctrk") ||
        path == QLatin1String("/msg")) {
        // Trackers answer 200 with a pixel: the client counts a tracking as done only on 200
        // or 304. "empty=1" (and every /msg beacon) gets 204 instead.
        HttpResponse response;
        if (path == QLatin1String("/msg") ||
            query.value(QStringLiteral("empty")) == QLatin1String("1")) {
            response.status = 204;
        } else {
            response.setHeader("Content-Type", "image/gif");
            response.body = pixelGif();
        }
        response.setHeader("Cache-Control", "no-store");
        applyFaults(response, faultsFor(request, query, {}));
        return response;
    }
    if (path == QLatin1String("/log")) {
        // What clients sent (locations, addresses, headers) is for this machine or for whoever
        // holds the token.
        if (!mayReadLog(request, query)) {
            HttpResponse response = textResponse(
                403, QStringLiteral("the request log is served on loopback or with its token\n"));
            response.setHeader("Cache-Control", "no-store");
            return response;
        }
        bool ok = false;
        const qint64 since = query.value(QStringLiteral("since")).toLongLong(&ok);
        HttpResponse response =
            jsonResponse(QJsonObject{{QStringLiteral("last"), double(log.lastSeq())},
                                     {QStringLiteral("entries"), log.since(ok ? since : 0)}});
        response.setHeader("X-Content-Type-Options", "nosniff");
        return response;
    }
    if (path == QLatin1String("/")) {
        return serveIndex(request);
    }
    if (path == QLatin1String("/preview") || path.startsWith(QLatin1String("/preview/"))) {
        return servePreview(request, path.mid(9));
    }
    for (const Page& page : kPages) {
        if (path == QLatin1String(page.path)) {
            QString html = readResource(QString::fromLatin1(page.resource));
            const QString here = origin(request);
            html.replace(
                QLatin1String("{{BRIDGE}}"),
                QStringLiteral("<script>") + scriptText(here) + QStringLiteral("</script>"));
            html.replace(QLatin1String("{{ORIGIN}}"), htmlEscape(here));
            html.replace(QLatin1String("{{SECURE_ORIGIN}}"),
                         htmlEscape(QStringLiteral("https") + here.mid(4)));
            HttpResponse response = textResponse(200, html, page.type);
            applyFaults(response, faultsFor(request, query, {}));
            return response;
        }
    }
    // Path faults hold for any path, known or not: a scenario that stalls a page the server
    // does not serve must not get an immediate 404 instead.
    HttpResponse response = textResponse(404, QStringLiteral("not found\n"));
    applyFaults(response, faultsFor(request, query, {}));
    return response;
}

void AdServer::Private::record(const HttpRequest& request, const HttpResponse& response,
                               bool abandoned) {
    if (request.path == QLatin1String("/log")) {
        return;  // reading the log would otherwise fill it
    }
    QJsonObject query;
    QJsonObject uule;
    for (const auto& [key, value] : queryPairs(request.rawQuery)) {
        query.insert(key, value);
        if (key == QLatin1String("uule")) {
            uule = decodeLocation(value, locationKey).toJson();
        }
    }
    QJsonObject headers;
    for (const char* name : {"User-Agent", "If-Modified-Since", "Referer", "Host"}) {
        const QByteArray value = request.header(name);
        if (!value.isNull()) {
            headers.insert(QLatin1String(name), QString::fromUtf8(value));
        }
    }
    // A name the server does not serve is kept out of everything it sends, the log too.
    if (!servedName(request)) {
        headers.remove(QStringLiteral("Host"));
    }
    QJsonObject entry{
        {QStringLiteral("time"), request.received.toUTC().toString(Qt::ISODateWithMs)},
        {QStringLiteral("method"), QString::fromLatin1(request.method)},
        {QStringLiteral("path"), request.path},
        {QStringLiteral("query"), query},
        {QStringLiteral("headers"), headers},
        {QStringLiteral("status"), response.status},
    };
    if (!uule.isEmpty()) {
        entry.insert(QStringLiteral("uule"), uule);
    }
    const QByteArray creative = response.header("X-Sorvel-Creative");
    if (!creative.isEmpty()) {
        entry.insert(QStringLiteral("creative"), QString::fromUtf8(creative));
    }
    if (request.path == kAdPath && response.status == 200 && response.body.isEmpty()) {
        entry.insert(QStringLiteral("noFill"), true);
    }
    if (abandoned) {
        entry.insert(QStringLiteral("abandoned"), true);
    }
    if (response.status == 400 && response.body == kMisdirected) {
        entry.insert(QStringLiteral("misdirected"), true);
    }
    emit q->requestLogged(log.append(entry));
}

AdServer::AdServer(QObject* parent) : QObject(parent), d(std::make_unique<Private>(this)) {
    d->locationKey = defaultLocationKey();
    d->hopKey.resize(32);
    QRandomGenerator::system()->generate(d->hopKey.begin(), d->hopKey.end());
    d->scriptTemplate = readResource(QStringLiteral(":/adserver/www/sdk-core-v40.js"));
    d->listener.setHandler([this](const HttpRequest& request) { return d->handle(request); });
    d->listener.setCompletion([this](const HttpRequest& request, const HttpResponse& response,
                                     bool abandoned) { d->record(request, response, abandoned); });
    setLimits(ServerLimits());
}

AdServer::~AdServer() = default;

bool AdServer::start(quint16 port, const QString& host, const QString& inventoryPath) {
    stop();
    d->error.clear();
    if (!loadInventory(inventoryPath)) {
        return false;
    }
    QHostAddress address;
    if (host.isEmpty() || host == QLatin1String("localhost")) {
        address = QHostAddress::LocalHost;
    } else if (!address.setAddress(host)) {
        d->error = QStringLiteral("not an IP address: %1").arg(host);
        return false;
    }
    if (!d->listener.listen(address, port)) {
        d->error = QStringLiteral("cannot listen on %1:%2: %3")
                       .arg(host)
                       .arg(port)
                       .arg(d->listener.errorString());
        return false;
    }
    d->host = address;
    return true;
}

void AdServer::stop() {
    d->listener.close();
}

bool AdServer::isListening() const {
    return d->listener.isListening();
}

QString AdServer::errorString() const {
    return d->error;
}

quint16 AdServer::port() const {
    return d->listener.isListening() ? d->listener.port() : 0;
}

QString AdServer::hostAndPort() const {
    QHostAddress shown = d->host;
    if (shown.isNull() || shown == QHostAddress::Any || shown == QHostAddress::AnyIPv4) {
        shown = QHostAddress::LocalHost;
    } else if (shown == QHostAddress::AnyIPv6) {
        shown = QHostAddress::LocalHostIPv6;
    }
    const QString name = shown.protocol() == QAbstractSocket::IPv6Protocol
                             ? QStringLiteral("[%1]").arg(shown.toString())
                             : shown.toString();
    return QStringLiteral("%1:%2").arg(name).arg(port());
}

QUrl AdServer::url() const {
    return QUrl(QStringLiteral("http://%1/").arg(hostAndPort()));
}

QUrl AdServer::scriptUrl() const {
    return url().resolved(QUrl(kScriptPath.mid(1)));
}

QUrl AdServer::adEndpointUrl() const {
    return url().resolved(QUrl(kAdPath.mid(1)));
}

QStringList AdServer::adUnitIDs() const {
    QStringList ids;
    for (const AdUnit& unit : d->inventory.adUnits) {
        ids.append(unit.id);
    }
    return ids;
}

QString AdServer::defaultAdUnitID() const {
    return d->inventory.defaultAdUnit;
}

bool AdServer::loadInventory(const QString& inventoryPath) {
    QString error;
    auto inventory =
        Inventory::load(inventoryPath.isEmpty() ? kDemoInventory : inventoryPath, &error);
    if (!inventory) {
        d->error = error;
        return false;
    }
    d->inventory = std::move(*inventory);
    d->rotation.clear();
    d->touchScript();  // the script embeds the inventory's units
    return true;
}

QByteArray AdServer::defaultLocationKey() {
    const QByteArray fromEnvironment =
        locationKeyFromHex(QString::fromLatin1(qgetenv("SORVEL_LOCATION_KEY")));
    return fromEnvironment.isEmpty() ? QByteArray::fromHex(kCompiledLocationKey) : fromEnvironment;
}

QByteArray AdServer::locationKey() const {
    return d->locationKey;
}

bool AdServer::setLocationKeyHex(const QString& hex) {
    const QByteArray key = locationKeyFromHex(hex);
    if (key.isEmpty()) {
        return false;
    }
    d->locationKey = key;
    return true;
}

bool AdServer::setLogFile(const QString& path) {
    if (!d->log.setFile(path)) {
        d->error = d->log.errorString();
        return false;
    }
    return true;
}

QJsonArray AdServer::logEntries(qint64 since) const {
    return d->log.since(since);
}

qint64 AdServer::lastLogSeq() const {
    return d->log.lastSeq();
}

void AdServer::clearLog() {
    d->log.clear();
}

void AdServer::setPathFaults(const QString& path, const QJsonObject& faults) {
    if (faults.isEmpty()) {
        d->pathFaults.remove(path);
    } else {
        d->pathFaults.insert(path, faults);
    }
}

void AdServer::setRequestFaultsEnabled(bool enabled) {
    if (d->requestFaults != enabled) {
        d->requestFaults = enabled;
        d->touchScript();  // the script reads the switch for its answer too
    }
}

bool AdServer::requestFaultsEnabled() const {
    return d->requestFaults;
}

void AdServer::setLogToken(const QString& token) {
    d->logTokenDigest = token.isEmpty() ? QByteArray() : tokenDigest(token.toUtf8());
}

bool AdServer::isLoopback(const QHostAddress& peer) {
    bool v4 = false;
    const quint32 ipv4 = peer.toIPv4Address(&v4);
    if (v4) {
        return (ipv4 >> 24) == 127;
    }
    return peer.protocol() == QAbstractSocket::IPv6Protocol &&
           QHostAddress(peer.toIPv6Address()) == QHostAddress::LocalHostIPv6;
}

void AdServer::setPeerAddressOverride(const QHostAddress& peer) {
    d->listener.setPeerOverride(peer);
}

bool AdServer::setServerNames(const QStringList& names) {
    QList<std::pair<QString, quint16>> parsed;
    for (const QString& name : names) {
        const auto split = splitHostPort(name.trimmed());
        if (!split) {
            d->error = QStringLiteral("not a host name: %1").arg(name);
            return false;
        }
        parsed.append(*split);
    }
    d->names = parsed;
    return true;
}

QStringList AdServer::serverNames() const {
    if (!isListening()) {
        return {};
    }
    const QString port = QStringLiteral(":%1").arg(this->port());
    QStringList names{hostAndPort(), QStringLiteral("localhost") + port};
    const QHostAddress& host = d->host;
    if (host == QHostAddress::Any || host == QHostAddress::AnyIPv6) {
        names.append(QStringLiteral("[::1]") + port);
    }
    for (const auto& [name, namedPort] : std::as_const(d->names)) {
        names.append(namedPort == 0 ? name + port
                                    : QStringLiteral("%1:%2").arg(name).arg(namedPort));
    }
    names.removeDuplicates();
    return names;
}

void AdServer::setLimits(const ServerLimits& limits) {
    d->limits = limits;
    d->listener.setLimits({limits.maxConnections, limits.maxHeaderBytes, limits.maxBodyBytes,
                           limits.requestTimeoutMs, limits.maxOversizeInFlight});
    d->log.setMaxEntries(limits.maxLogEntries);
}

ServerLimits AdServer::limits() const {
    return d->limits;
}

}  // namespace adserver
