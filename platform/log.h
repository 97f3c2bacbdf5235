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

// Text from outside (a page's script, a server) made fit for one line of the log: control and
// invisible formatting characters escaped ("\x1b", "\u202e"), so it can neither start a line
// that looks like ours nor drive the terminal, and at most `maximumLength` characters of it kept.
QString escapeForLog(const QString& text, qsizetype maximumLength = 1024);

// Lets at most `lines` lines through in each `periodMs`; the rest are dropped. The first line
// dropped in a period is told apart, so the caller can say once that lines go missing.
class LogRateLimiter {
  public:
    enum Verdict { kWrite, kDropFirst, kDrop };
    LogRateLimiter(int lines, qint64 periodMs) : lines_(lines), periodMs_(periodMs) {}
    Verdict take();

  private:
    int lines_;
    qint64 periodMs_;
    qint64 periodStart_ = -1;
    int taken_ = 0;
};

// Formats a value the way the log's "%@" shows objects: strings as they are, numbers in their
// shortest form, booleans as 1 or 0, dictionaries as { key = value; } and arrays as ( a, b ),
// nested values indented, and a null value as "(null)".
QString describe(const QVariant& value);

}  // namespace platform
