// The ad server's inventory: ad units, the creatives they rotate through, and fault switches,
// read from a JSON file (format in adserver/README.md).
#pragma once

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace adserver {

// Ways to misbehave on purpose, for tests of the client's failure paths. Set per creative, per
// path or, where the server allows it, per request ("zf_" + key in the query, or in the
// request's "extras").
struct Faults {
    std::optional<int> status;  // answer this status (100-599) instead of the content
    int delayMs = 0;            // wait before answering (at most two minutes)
    int redirects = 0;          // answer with this many 302 hops in all before the ad
    bool redirectLoop = false;  // 302s that never end
    qint64 oversizeBytes = 0;   // pad the body to this many bytes (at most 8 MiB)
    bool malformedHeader = false;
    bool repeatedHeader = false;
    bool emptyBody = false;
    bool drop = false;               // close the connection without answering
    bool truncate = false;           // announce the whole body, send half of it, then close
    QString location;                // a "Location" header with this URL (any scheme)
    std::optional<QByteArray> body;  // the body replaced by these bytes ("body" or "bodyHex")
    int extraTrackingUrls = 0;       // this many more impression URLs in one header
    QString scriptReply;  // "loadAdURL", "errors", "invalidRequest", "unableToServe", "none"
    QString creative;     // serve this creative instead of the next in rotation

    // Keys as in the inventory; unknown keys and out-of-range values are ignored.
    void mergeJson(const QJsonObject& json);
    // The same keys prefixed "zf_", as request parameters.
    void mergePrefixed(const QHash<QString, QString>& parameters);
    QJsonObject toJson() const;
    bool any() const;
};

struct Creative {
    QString id;
    QString html;  // may hold {{...}} placeholders, see README
    QString landing;
    bool trackImpressions = true;
    QString impressionResponse;  // "gif" (default: 200 with a 1x1 GIF) or "204"
    bool trackClicks = false;
    QStringList trackingUrls;       // extra impression URLs
    QStringList clickTrackingUrls;  // extra click tracking URLs
    QString refreshRate;            // header values as given; empty: header absent
    QString orientation;
    QString interstitialTimeout;
    QJsonObject faults;
};

struct AdUnit {
    QString id;
    QString name;
    bool paused = false;
    QString type = QStringLiteral("html");  // request type the script reports
    QString scriptReply;                    // empty: "loadAdURL"
    QStringList creatives;
};

struct Inventory {
    QString source;
    QString defaultAdUnit;
    QList<AdUnit> adUnits;
    QHash<QString, Creative> creatives;
    QHash<QString, QJsonObject> pathFaults;

    const AdUnit* adUnit(const QString& id) const;
    // Reads a file (resource paths work too); relative "htmlFile" entries are read from the
    // inventory's folder. On failure returns nullopt with *error set.
    static std::optional<Inventory> load(const QString& path, QString* error);
    static std::optional<Inventory> fromJson(const QByteArray& json, const QString& baseDir,
                                             QString* error);
};

bool isWellFormedAdUnitID(const QString& id);

}  // namespace adserver
