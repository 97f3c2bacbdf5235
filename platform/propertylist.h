// Property lists (read as XML or binary, written as XML) to and from Qt values, on libplist.
// Integers become qint64, reals double, booleans bool, strings QString, dates QDateTime (UTC),
// data QByteArray, arrays QVariantList and dictionaries QVariantMap.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace platform {

// Parses XML or binary property-list bytes; an invalid QVariant if they are not a property list.
QVariant readPropertyList(const QByteArray& data);
// Reads and parses a file; an invalid QVariant if it is missing or unreadable.
QVariant readPropertyListFile(const QString& path);

// Serialises a value; empty if it holds something a property list cannot (such as a null).
QByteArray writePropertyListXml(const QVariant& value);

// Whether a value (and everything nested in it) can be stored in a property list.
bool isPropertyListValue(const QVariant& value);

}  // namespace platform
