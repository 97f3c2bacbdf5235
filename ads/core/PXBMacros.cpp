#include "ads/core/PXBMacros.h"

#include "ads/net/PXB_RQJSON.h"

std::optional<QVariantMap> PXBMacros::readJson(const QString& text) {
    if (text.isNull()) {
        return std::nullopt;
    }
    PXB_RQJSON parser;
    platform::Error error;
    const QVariant object = parser.objectWithString(text, &error);
    if (!error.isNull() || object.metaType().id() != QMetaType::QVariantMap) {
        return std::nullopt;
    }
    return object.toMap();
}

QString PXBMacros::jsonify(const QVariant& object) {
    if (!object.isValid()) {
        return QString();
    }
    PXB_RQJSON writer;
    platform::Error error;
    QString text = writer.stringWithObject(object, &error);
    if (!error.isNull()) {
        return QStringLiteral("");
    }
    return text;
}
