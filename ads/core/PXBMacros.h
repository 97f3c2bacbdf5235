// Shorthands between JSON text and objects for the script bridge, on a fresh PXB_RQJSON each.
#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

class PXBMacros {
  public:
    PXBMacros() = delete;

    // The object of a JSON text; nullopt for a null text, a parse error or a top level that is
    // not an object.
    static std::optional<QVariantMap> readJson(const QString& text);
    // JSON text of a map or list; a null string for an invalid value, "" when it cannot be
    // written (callers embed the result as it is).
    static QString jsonify(const QVariant& object);
};
