#include "adserver/inventory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

namespace adserver {

namespace {

// Enough to be too large for any client's ad or script; more would only cost bandwidth.
constexpr qint64 kMaxOversize = 8LL * 1024 * 1024;
constexpr qint64 kMaxDelayMs = 120000;
constexpr qint64 kMaxRedirects = 50;
constexpr qint64 kMaxExtraTrackingUrls = 5000;
constexpr qint64 kMaxInventoryBytes = 16LL * 1024 * 1024;

const QStringList& scriptReplies() {
    static const QStringList replies{
        QStringLiteral("loadAdURL"),     QStringLiteral("errors"), QStringLiteral("invalidRequest"),
        QStringLiteral("unableToServe"), QStringLiteral("none"),   QStringLiteral("twice"),
        QStringLiteral("unknown"),       QStringLiteral("throw"),  QStringLiteral("file"),
        QStringLiteral("blank")};
    return replies;
}

// Inventory values may be numbers, strings or booleans; faults accept all three alike.
std::optional<qint64> asInteger(const QJsonValue& value) {
    if (value.isDouble()) {
        const double d = value.toDouble();
        if (d >= -9e15 && d <= 9e15) {
            return qint64(d);
        }
        return std::nullopt;
    }
    if (value.isBool()) {
        return value.toBool() ? 1 : 0;
    }
    bool ok = false;
    const qint64 n = value.toString().trimmed().toLongLong(&ok);
    return ok ? std::optional<qint64>(n) : std::nullopt;
}

bool asBool(const QJsonValue& value) {
    if (value.isBool()) {
        return value.toBool();
    }
    if (value.isDouble()) {
        return value.toDouble() != 0;
    }
    const QString text = value.toString().trimmed().toLower();
    return text == QLatin1String("1") || text == QLatin1String("true") ||
           text == QLatin1String("yes") || text == QLatin1String("on");
}

QString headerText(const QJsonValue& value) {
    if (value.isDouble()) {
        return QString::number(value.toDouble(), 'g', 12);
    }
    // Header values never carry line breaks, whatever the inventory says.
    return value.toString().remove(QLatin1Char('\r')).remove(QLatin1Char('\n'));
}

QStringList stringList(const QJsonValue& value) {
    QStringList list;
    if (value.isString()) {
        list.append(value.toString());
    }
    const QJsonArray array = value.toArray();
    for (const QJsonValue& item : array) {
        if (item.isString() && !item.toString().isEmpty()) {
            list.append(item.toString());
        }
    }
    return list;
}

}  // namespace

bool isWellFormedAdUnitID(const QString& id) {
    static const QRegularExpression pattern(QStringLiteral("^[0-9a-f]{15}$"));
    return pattern.match(id).hasMatch();
}

void Faults::mergeJson(const QJsonObject& json) {
    for (auto it = json.begin(); it != json.end(); ++it) {
        const QString& key = it.key();
        const QJsonValue value = it.value();
        if (key == QLatin1String("status")) {
            const auto n = asInteger(value);
            if (n && *n >= 100 && *n <= 599) {
                status = int(*n);
            }
        } else if (key == QLatin1String("delayMs")) {
            if (const auto n = asInteger(value)) {
                delayMs = int(qBound<qint64>(qint64(0), *n, kMaxDelayMs));
            }
        } else if (key == QLatin1String("redirects")) {
            if (const auto n = asInteger(value)) {
                redirects = int(qBound<qint64>(qint64(0), *n, kMaxRedirects));
            }
        } else if (key == QLatin1String("redirectLoop")) {
            redirectLoop = asBool(value);
        } else if (key == QLatin1String("oversizeBytes")) {
            if (const auto n = asInteger(value)) {
                oversizeBytes = qBound<qint64>(qint64(0), *n, kMaxOversize);
            }
        } else if (key == QLatin1String("malformedHeader")) {
            malformedHeader = asBool(value);
        } else if (key == QLatin1String("repeatedHeader")) {
            repeatedHeader = asBool(value);
        } else if (key == QLatin1String("emptyBody")) {
            emptyBody = asBool(value);
        } else if (key == QLatin1String("drop")) {
            drop = asBool(value);
        } else if (key == QLatin1String("scriptReply")) {
            if (scriptReplies().contains(value.toString())) {
                scriptReply = value.toString();
            }
        } else if (key == QLatin1String("creative")) {
            creative = value.toString();
        } else if (key == QLatin1String("truncate")) {
            truncate = asBool(value);
        } else if (key == QLatin1String("location")) {
            location = value.toString();
        } else if (key == QLatin1String("body")) {
            body = value.toString().toUtf8();
        } else if (key == QLatin1String("bodyHex")) {
            body = QByteArray::fromHex(value.toString().toLatin1());
        } else if (key == QLatin1String("extraTrackingUrls")) {
            if (const auto n = asInteger(value)) {
                extraTrackingUrls = int(qBound<qint64>(qint64(0), *n, kMaxExtraTrackingUrls));
            }
        }
    }
}

void Faults::mergePrefixed(const QHash<QString, QString>& parameters) {
    QJsonObject json;
    for (auto it = parameters.begin(); it != parameters.end(); ++it) {
        if (it.key().startsWith(QLatin1String("zf_"))) {
            json.insert(it.key().mid(3), it.value());
        }
    }
    mergeJson(json);
}

QJsonObject Faults::toJson() const {
    QJsonObject json;
    if (status) {
        json.insert(QStringLiteral("status"), *status);
    }
    if (delayMs) {
        json.insert(QStringLiteral("delayMs"), delayMs);
    }
    if (redirects) {
        json.insert(QStringLiteral("redirects"), redirects);
    }
    if (redirectLoop) {
        json.insert(QStringLiteral("redirectLoop"), true);
    }
    if (oversizeBytes) {
        json.insert(QStringLiteral("oversizeBytes"), double(oversizeBytes));
    }
    if (malformedHeader) {
        json.insert(QStringLiteral("malformedHeader"), true);
    }
    if (repeatedHeader) {
        json.insert(QStringLiteral("repeatedHeader"), true);
    }
    if (emptyBody) {
        json.insert(QStringLiteral("emptyBody"), true);
    }
    if (drop) {
        json.insert(QStringLiteral("drop"), true);
    }
    if (!scriptReply.isEmpty()) {
        json.insert(QStringLiteral("scriptReply"), scriptReply);
    }
    if (!creative.isEmpty()) {
        json.insert(QStringLiteral("creative"), creative);
    }
    if (truncate) {
        json.insert(QStringLiteral("truncate"), true);
    }
    if (!location.isEmpty()) {
        json.insert(QStringLiteral("location"), location);
    }
    if (body) {
        json.insert(QStringLiteral("bodyHex"), QString::fromLatin1(body->toHex()));
    }
    if (extraTrackingUrls) {
        json.insert(QStringLiteral("extraTrackingUrls"), extraTrackingUrls);
    }
    return json;
}

bool Faults::any() const {
    return !toJson().isEmpty();
}

const AdUnit* Inventory::adUnit(const QString& id) const {
    for (const AdUnit& unit : adUnits) {
        if (unit.id == id) {
            return &unit;
        }
    }
    return nullptr;
}

std::optional<Inventory> Inventory::load(const QString& path, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read inventory %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    if (file.size() > kMaxInventoryBytes) {
        *error = QStringLiteral("inventory %1 is larger than 16 MiB").arg(path);
        return std::nullopt;
    }
    auto inventory = fromJson(file.readAll(), QFileInfo(path).absolutePath(), error);
    if (inventory) {
        inventory->source = path;
    } else {
        *error = path + QStringLiteral(": ") + *error;
    }
    return inventory;
}

std::optional<Inventory> Inventory::fromJson(const QByteArray& json, const QString& baseDir,
                                             QString* error) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (!document.isObject()) {
        *error = parseError.error != QJsonParseError::NoError
                     ? QStringLiteral("JSON error at offset %1: %2")
                           .arg(parseError.offset)
                           .arg(parseError.errorString())
                     : QStringLiteral("the inventory must be a JSON object");
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    Inventory inventory;

    const QJsonArray creatives = root.value(QStringLiteral("creatives")).toArray();
    for (const QJsonValue& value : creatives) {
        const QJsonObject object = value.toObject();
        Creative creative;
        creative.id = object.value(QStringLiteral("id")).toString();
        if (creative.id.isEmpty() || inventory.creatives.contains(creative.id)) {
            *error = QStringLiteral("every creative needs a unique \"id\"");
            return std::nullopt;
        }
        creative.html = object.value(QStringLiteral("html")).toString();
        const QString htmlFile = object.value(QStringLiteral("htmlFile")).toString();
        if (!htmlFile.isEmpty()) {
            QFile file(QDir(baseDir).filePath(htmlFile));
            if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxInventoryBytes) {
                *error = QStringLiteral("creative \"%1\": cannot read %2")
                             .arg(creative.id, file.fileName());
                return std::nullopt;
            }
            creative.html = QString::fromUtf8(file.readAll());
        }
        creative.landing = object.value(QStringLiteral("landing")).toString();
        creative.trackImpressions = !object.contains(QStringLiteral("trackImpressions")) ||
                                    asBool(object.value(QStringLiteral("trackImpressions")));
        creative.impressionResponse = object.value(QStringLiteral("impressionResponse")).toString();
        creative.trackClicks = asBool(object.value(QStringLiteral("trackClicks")));
        creative.trackingUrls = stringList(object.value(QStringLiteral("trackingUrls")));
        creative.clickTrackingUrls = stringList(object.value(QStringLiteral("clickTrackingUrls")));
        creative.refreshRate = headerText(object.value(QStringLiteral("refreshRate")));
        creative.orientation = headerText(object.value(QStringLiteral("orientation")));
        creative.interstitialTimeout =
            headerText(object.value(QStringLiteral("interstitialTimeout")));
        creative.faults = object.value(QStringLiteral("faults")).toObject();
        inventory.creatives.insert(creative.id, creative);
    }

    const QJsonArray units = root.value(QStringLiteral("adUnits")).toArray();
    for (const QJsonValue& value : units) {
        const QJsonObject object = value.toObject();
        AdUnit unit;
        unit.id = object.value(QStringLiteral("id")).toString();
        if (unit.id.isEmpty() || inventory.adUnit(unit.id)) {
            *error = QStringLiteral("every ad unit needs a unique \"id\"");
            return std::nullopt;
        }
        unit.name = object.value(QStringLiteral("name")).toString();
        unit.paused = asBool(object.value(QStringLiteral("paused")));
        if (object.contains(QStringLiteral("type"))) {
            unit.type = object.value(QStringLiteral("type")).toString();
        }
        unit.scriptReply = object.value(QStringLiteral("scriptReply")).toString();
        if (!unit.scriptReply.isEmpty() && !scriptReplies().contains(unit.scriptReply)) {
            *error = QStringLiteral("ad unit \"%1\": unknown scriptReply \"%2\"")
                         .arg(unit.id, unit.scriptReply);
            return std::nullopt;
        }
        unit.creatives = stringList(object.value(QStringLiteral("creatives")));
        for (const QString& id : std::as_const(unit.creatives)) {
            if (!inventory.creatives.contains(id)) {
                *error =
                    QStringLiteral("ad unit \"%1\" names unknown creative \"%2\"").arg(unit.id, id);
                return std::nullopt;
            }
        }
        inventory.adUnits.append(unit);
    }

    inventory.defaultAdUnit = root.value(QStringLiteral("defaultAdUnit")).toString();
    if (inventory.defaultAdUnit.isEmpty() && !inventory.adUnits.isEmpty()) {
        inventory.defaultAdUnit = inventory.adUnits.first().id;
    }
    const QJsonObject pathFaults = root.value(QStringLiteral("pathFaults")).toObject();
    for (auto it = pathFaults.begin(); it != pathFaults.end(); ++it) {
        inventory.pathFaults.insert(it.key(), it.value().toObject());
    }
    return inventory;
}

}  // namespace adserver
