// The platform log: developer messages such as "<Sorvel> Unable to serve: ..." go to the Qt
// logging category "sorvel" (filter with QT_LOGGING_RULES="sorvel*=false"); debug detail goes
// to "sorvel.debug", off unless enabled.
#pragma once

#include <QLoggingCategory>
#include <QString>
#include <QVariant>

Q_DECLARE_LOGGING_CATEGORY(lcSorvel)
Q_DECLARE_LOGGING_CATEGORY(lcSorvelDebug)

namespace platform {

// Writes one line to the log as it stands.
void logLine(const QString& line);
// Writes one line to the debug category (shown only when it is enabled).
void logDebug(const QString& line);
// Turns the debug category on or off at run time.
void setDebugLogging(bool enabled);

// Formats a value the way the log's "%@" shows objects: strings as they are, numbers in their
// shortest form, booleans as 1 or 0, dictionaries as { key = value; } and arrays as ( a, b ),
// nested values indented, and a null value as "(null)".
QString describe(const QVariant& value);

}  // namespace platform
