// JSON reader and writer for the data that passes between the ad client and the ad's script.
// Reads into QVariant graphs (QVariantMap, QVariantList, QString, PXBDecimalNumber for numbers,
// bool, and a std::nullptr_t QVariant for null) and writes such graphs back, optionally with
// sorted keys and an indented layout. Failures come back as platform::Error values in
// kPXBJSONErrorDomain, the error that caused them chained under Error::kUnderlyingErrorKey.
// One instance serves one call at a time.
#pragma once

#include "ads/net/PXBDecimalNumber.h"
#include "platform/error.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

inline const QString kPXBJSONErrorDomain = QStringLiteral("org.quenly.JSON.ErrorDomain");

class PXB_RQJSON {
  public:
    enum ErrorCode {
        kErrorUnsupported = 1,
        kErrorParseNumber = 2,
        kErrorParse = 3,
        kErrorFragment = 4,
        kErrorControlCharacter = 5,
        kErrorUnicode = 6,
        kErrorDepth = 7,
        kErrorEscape = 8,
        kErrorTrailingComma = 9,
        kErrorTrailingGarbage = 10,
        kErrorEndOfInput = 11,
        kErrorInputNil = 12,
    };

    // Whatever maxDepth says, the reader never nests deeper than this, so that neither its own
    // recursion nor the destruction of the graph it builds can run out of stack.
    static constexpr unsigned kDepthCeiling = 2048;

    PXB_RQJSON();

    // Deepest nesting the reader accepts; 0 for no limit (up to kDepthCeiling). 512 by default.
    unsigned maxDepth() const { return maxDepth_; }
    void setMaxDepth(unsigned maxDepth) { maxDepth_ = maxDepth; }
    // Writer: object keys in sorted order.
    bool sortKeys() const { return sortKeys_; }
    void setSortKeys(bool sortKeys) { sortKeys_ = sortKeys; }
    // Writer: one member per line, two blanks per level, " : " between key and value.
    bool humanReadable() const { return humanReadable_; }
    void setHumanReadable(bool humanReadable) { humanReadable_ = humanReadable; }

    // The top level must be an object or an array. On failure returns an invalid QVariant and
    // fills *error if given. A null string fails (code 12); the text ends at a U+0000.
    QVariant objectWithString(const QString& string, platform::Error* error = nullptr);
    // Any value may stand at the top level.
    QVariant fragmentWithString(const QString& string, platform::Error* error = nullptr);
    // The same for UTF-8 bytes, without a conversion to QString first.
    QVariant objectWithUtf8(const QByteArray& utf8, platform::Error* error = nullptr);
    QVariant fragmentWithUtf8(const QByteArray& utf8, platform::Error* error = nullptr);

    // The top level must be a map or a list. On failure returns a null string.
    QString stringWithObject(const QVariant& object, platform::Error* error = nullptr);
    // Any value may stand at the top level.
    QString stringWithFragment(const QVariant& value, platform::Error* error = nullptr);

    // The error of the last failed call followed by the errors it wraps, outermost first; empty
    // after a successful call.
    QList<platform::Error> errorTrace() const;

    // True for the QVariant the reader produces for null (and for an invalid QVariant).
    static bool isNull(const QVariant& value);
    static QVariant null();

  private:
    class Reader;
    class Writer;

    static PXBDecimalNumber makeNumber(const char* text, qsizetype size) {
        return PXBDecimalNumber(text, size);
    }
    QVariant read(const char* utf8, bool allowScalar, platform::Error* error);
    QString write(const QVariant& value, bool allowScalar, platform::Error* error);

    bool humanReadable_ = false;
    bool sortKeys_ = false;
    unsigned maxDepth_ = 512;
    platform::Error lastError_;
};
