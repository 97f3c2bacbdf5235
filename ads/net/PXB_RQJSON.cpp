#include "ads/net/PXB_RQJSON.h"

#include "platform/log.h"

#include <QAssociativeIterable>
#include <QSequentialIterable>
#include <QVariantHash>
#include <QVariantList>
#include <QVariantMap>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <type_traits>

using platform::Error;

namespace {

Error err(int code, const QString& message) {
    return Error(kPXBJSONErrorDomain, code, {{Error::kLocalizedDescriptionKey, message}});
}

// Like err, with the error reported so far (if any) chained as the underlying error.
Error errWithUnderlier(int code, const Error* underlying, const QString& message) {
    if (underlying == nullptr || underlying->isNull()) {
        return err(code, message);
    }
    return Error(kPXBJSONErrorDomain, code,
                 {{Error::kLocalizedDescriptionKey, message},
                  {Error::kUnderlyingErrorKey, QVariant::fromValue(*underlying)}});
}

QString hexMessage(const char* format, unsigned value) {
    return QString::fromLatin1(format).arg(QString::number(value, 16));
}

// The characters that end a plain run inside a string: the quote, the backslash and the control
// characters (the zero byte included, which ends the input).
struct StopTable {
    bool stop[256] = {};
    constexpr StopTable() {
        for (int i = 0; i < 32; ++i) {
            stop[i] = true;
        }
        stop[static_cast<unsigned char>('"')] = true;
        stop[static_cast<unsigned char>('\\')] = true;
    }
};
constexpr StopTable kStopTable;

inline bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Strict UTF-8 to UTF-16 (no overlong forms, no surrogates, nothing above U+10FFFF). Returns
// the number of UTF-16 units written to out (which has room for size units), or -1 with
// *bad set to the offset of the first byte that does not decode.
qsizetype decodeUtf8(const unsigned char* in, qsizetype size, char16_t* out, qsizetype* bad) {
    char16_t* const start = out;
    qsizetype i = 0;
    while (i < size) {
        const unsigned char b = in[i];
        if (b < 0x80) {
            *out++ = b;
            ++i;
            continue;
        }
        char32_t cp;
        int extra;
        char32_t min;
        if (b >= 0xC2 && b <= 0xDF) {
            cp = b & 0x1F;
            extra = 1;
            min = 0x80;
        } else if (b >= 0xE0 && b <= 0xEF) {
            cp = b & 0x0F;
            extra = 2;
            min = 0x800;
        } else if (b >= 0xF0 && b <= 0xF4) {
            cp = b & 0x07;
            extra = 3;
            min = 0x10000;
        } else {
            *bad = i;
            return -1;
        }
        if (i + extra >= size) {
            *bad = i;
            return -1;
        }
        for (int k = 1; k <= extra; ++k) {
            const unsigned char next = in[i + k];
            if ((next & 0xC0) != 0x80) {
                *bad = i;
                return -1;
            }
            cp = (cp << 6) | (next & 0x3F);
        }
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            *bad = i;
            return -1;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            *out++ = static_cast<char16_t>(0xD800 + (cp >> 10));
            *out++ = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            *out++ = static_cast<char16_t>(cp);
        }
        i += extra + 1;
    }
    return out - start;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Reader: a recursive descent over zero-terminated UTF-8. Every scan function returns false on
// failure, leaving its error in error_; callers that wrap chain it under their own error.

class PXB_RQJSON::Reader {
  public:
    // A limit of 0 means no limit of the caller's; the ceiling protects the stack all the same.
    Reader(const char* input, unsigned maxDepth)
        : c_(input), limit_(maxDepth == 0 ? kDepthCeiling : std::min(maxDepth, kDepthCeiling)) {}

    bool scanValue(QVariant& value);
    bool scanIsAtEnd() {
        skipWhitespace();
        return *c_ == '\0';
    }
    const Error& error() const { return error_; }

  private:
    bool scanRestOfDictionary(QVariant& value);
    bool scanRestOfArray(QVariant& value);
    bool scanRestOfString(QString& string);
    bool scanKey(QString& key);
    bool scanNumber(QVariant& value);
    bool scanRestOfWord(const char* rest, size_t length, const char* message);
    bool scanUnicodeChar(char16_t& ch);
    bool scanHexQuad(char16_t& quad);
    bool appendRun(QString& string, const char* run, qsizetype size, bool ascii);
    bool enterContainer();
    void leaveContainer() { --depth_; }

    void skipWhitespace() {
        while (isSpace(*c_)) {
            ++c_;
        }
    }
    bool fail(int code, const QString& message) {
        error_ = err(code, message);
        return false;
    }
    bool failWrapping(int code, const QString& message) {
        error_ = errWithUnderlier(code, &error_, message);
        return false;
    }

    const char* c_;
    unsigned limit_;
    unsigned depth_ = 0;
    Error error_;
    // Keys seen so far, by a hash of their bytes: documents repeat the same few keys in every
    // object, and a shared QString costs no allocation.
    static constexpr unsigned kKeyCacheSize = 256;
    std::unique_ptr<QString[]> keyCache_;
};

// The plain case of a key: short ASCII without escapes, looked up among the keys seen before.
// Returns false without moving (and without an error) for anything else.
bool PXB_RQJSON::Reader::scanKey(QString& key) {
    constexpr qsizetype kLongest = 48;
    const unsigned char* start = reinterpret_cast<const unsigned char*>(c_);
    const unsigned char* p = start;
    quint32 hash = 2166136261u;
    while (!kStopTable.stop[*p] && *p < 0x80 && p - start <= kLongest) {
        hash = (hash ^ *p) * 16777619u;
        ++p;
    }
    if (*p != '"' || p - start > kLongest) {
        return false;
    }
    const QLatin1StringView text(reinterpret_cast<const char*>(start), p - start);
    c_ = reinterpret_cast<const char*>(p + 1);
    if (text.isEmpty()) {
        key = QLatin1String("");
        return true;
    }
    if (!keyCache_) {
        keyCache_ = std::make_unique<QString[]>(kKeyCacheSize);
    }
    QString& cached = keyCache_[hash % kKeyCacheSize];
    if (cached.size() != text.size() || cached != text) {
        cached = QString(text);
    }
    key = cached;
    return true;
}

bool PXB_RQJSON::Reader::enterContainer() {
    if (++depth_ > limit_) {
        return fail(kErrorDepth, QStringLiteral("Nested too deep"));
    }
    return true;
}

bool PXB_RQJSON::Reader::scanValue(QVariant& value) {
    skipWhitespace();
    const char ch = *c_++;
    switch (ch) {
        case '{':
            return scanRestOfDictionary(value);
        case '[':
            return scanRestOfArray(value);
        case '"': {
            QString string;
            if (!scanRestOfString(string)) {
                return false;
            }
            value = QVariant(std::move(string));
            return true;
        }
        case 't':
            if (!scanRestOfWord("rue", 3, "Expected 'true'")) {
                return false;
            }
            value = QVariant(true);
            return true;
        case 'f':
            if (!scanRestOfWord("alse", 4, "Expected 'false'")) {
                return false;
            }
            value = QVariant(false);
            return true;
        case 'n':
            if (!scanRestOfWord("ull", 3, "Expected 'null'")) {
                return false;
            }
            value = PXB_RQJSON::null();
            return true;
        case '-':
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7':
        case '8':
        case '9':
            --c_;
            return scanNumber(value);
        case '+':
            return fail(kErrorParseNumber, QStringLiteral("Leading + disallowed in number"));
        case '\0':
            --c_;  // stay on the end
            return fail(kErrorEndOfInput, QStringLiteral("Unexpected end of string"));
        default:
            return fail(kErrorParse, QStringLiteral("Unrecognised leading character"));
    }
}

bool PXB_RQJSON::Reader::scanRestOfWord(const char* rest, size_t length, const char* message) {
    for (size_t i = 0; i < length; ++i) {
        if (c_[i] != rest[i]) {  // stops at the zero byte too
            return fail(kErrorParse, QString::fromLatin1(message));
        }
    }
    c_ += length;
    return true;
}

bool PXB_RQJSON::Reader::scanRestOfDictionary(QVariant& value) {
    if (!enterContainer()) {
        return false;
    }
    // Built as a std::map and handed to QVariantMap whole: members are moved in, never copied,
    // and a document whose keys come in order inserts at the end without searching.
    std::map<QString, QVariant> map;
    for (;;) {
        if (*c_ == '\0') {
            return fail(kErrorEndOfInput, QStringLiteral("End of input while parsing object"));
        }
        skipWhitespace();
        if (*c_ == '}') {
            ++c_;
            leaveContainer();
            value = QVariant(QVariantMap(std::move(map)));
            return true;
        }
        QString key;
        if (*c_ != '"') {
            return fail(kErrorParse, QStringLiteral("Object key string expected"));
        }
        ++c_;
        if (!scanKey(key) && !scanRestOfString(key)) {
            return failWrapping(kErrorParse, QStringLiteral("Object key string expected"));
        }
        skipWhitespace();
        if (*c_ != ':') {
            return fail(kErrorParse, QStringLiteral("Expected ':' separating key and value"));
        }
        ++c_;
        QVariant member;
        if (!scanValue(member)) {
            return failWrapping(kErrorParse,
                                QStringLiteral("Object value expected for key: %1").arg(key));
        }
        map.insert_or_assign(map.end(), std::move(key), std::move(member));
        skipWhitespace();
        if (*c_ == ',') {
            ++c_;
            skipWhitespace();
            if (*c_ == '}') {
                return fail(kErrorTrailingComma,
                            QStringLiteral("Trailing comma disallowed in object"));
            }
        }
        // Without a comma the loop simply reads the next member: a missing comma is accepted.
    }
}

bool PXB_RQJSON::Reader::scanRestOfArray(QVariant& value) {
    if (!enterContainer()) {
        return false;
    }
    QVariantList list;
    for (;;) {
        if (*c_ == '\0') {
            return fail(kErrorEndOfInput, QStringLiteral("End of input while parsing array"));
        }
        skipWhitespace();
        if (*c_ == ']') {
            ++c_;
            leaveContainer();
            value = QVariant(std::move(list));
            return true;
        }
        list.emplace_back();
        if (!scanValue(list.back())) {
            return failWrapping(kErrorParse, QStringLiteral("Expected value while parsing array"));
        }
        skipWhitespace();
        if (*c_ == ',') {
            ++c_;
            skipWhitespace();
            if (*c_ == ']') {
                return fail(kErrorTrailingComma,
                            QStringLiteral("Trailing comma disallowed in array"));
            }
        }
    }
}

bool PXB_RQJSON::Reader::appendRun(QString& string, const char* run, qsizetype size, bool ascii) {
    if (ascii) {
        string.append(QLatin1StringView(run, size));
        return true;
    }
    const qsizetype old = string.size();
    string.resize(old + size);
    qsizetype bad = 0;
    const qsizetype written = decodeUtf8(reinterpret_cast<const unsigned char*>(run), size,
                                         reinterpret_cast<char16_t*>(string.data()) + old, &bad);
    if (written < 0) {
        string.resize(old);
        c_ = run + bad;
        return fail(kErrorControlCharacter, hexMessage("Unescaped control character '0x%1'",
                                                       static_cast<unsigned char>(run[bad])));
    }
    string.resize(old + written);
    return true;
}

bool PXB_RQJSON::Reader::scanRestOfString(QString& string) {
    for (;;) {
        // The longest run without stop characters; bytes of 128 and above mean UTF-8 to decode.
        const char* run = c_;
        unsigned char high = 0;
        const unsigned char* p = reinterpret_cast<const unsigned char*>(c_);
        while (!kStopTable.stop[*p]) {
            high |= *p;
            ++p;
        }
        const char* runEnd = reinterpret_cast<const char*>(p);
        if (runEnd != run) {
            const bool ascii = (high & 0x80) == 0;
            if (string.isEmpty() && *runEnd == '"') {
                // The common case: the whole string in one run.
                if (ascii) {
                    string = QString::fromLatin1(run, runEnd - run);
                } else if (!appendRun(string, run, runEnd - run, false)) {
                    return false;
                }
                c_ = runEnd + 1;
                return true;
            }
            if (!appendRun(string, run, runEnd - run, ascii)) {
                return false;
            }
            c_ = runEnd;
        }
        const char ch = *c_;
        if (ch == '"') {
            ++c_;
            if (string.isNull()) {
                string = QLatin1String("");
            }
            return true;
        }
        if (ch == '\0') {
            return fail(kErrorEndOfInput, QStringLiteral("Unexpected EOF while parsing string"));
        }
        if (ch == '\\') {
            ++c_;
            const char escape = *c_++;
            char16_t decoded;
            switch (escape) {
                case '"':
                case '\\':
                case '/':
                    decoded = static_cast<char16_t>(escape);
                    break;
                case 'b':
                    decoded = 8;
                    break;
                case 'f':
                    decoded = 12;
                    break;
                case 'n':
                    decoded = 10;
                    break;
                case 'r':
                    decoded = 13;
                    break;
                case 't':
                    decoded = 9;
                    break;
                case 'u':
                    if (!scanUnicodeChar(decoded)) {
                        return failWrapping(kErrorUnicode,
                                            QStringLiteral("Broken unicode character"));
                    }
                    break;
                default:
                    if (escape == '\0') {
                        --c_;
                    }
                    return fail(kErrorEscape, hexMessage("Illegal escape sequence '0x%1'",
                                                         static_cast<unsigned char>(escape)));
            }
            string.append(QChar(decoded));
            continue;
        }
        return fail(kErrorControlCharacter, hexMessage("Unescaped control character '0x%1'",
                                                       static_cast<unsigned char>(ch)));
    }
}

bool PXB_RQJSON::Reader::scanHexQuad(char16_t& quad) {
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
        const char ch = *c_;
        unsigned digit;
        if (ch >= '0' && ch <= '9') {
            digit = static_cast<unsigned>(ch - '0');
        } else if (ch >= 'a' && ch <= 'f') {
            digit = static_cast<unsigned>(ch - 'a' + 10);
        } else if (ch >= 'A' && ch <= 'F') {
            digit = static_cast<unsigned>(ch - 'A' + 10);
        } else {
            return fail(kErrorUnicode, QStringLiteral("Missing hex digit in quad"));
        }
        ++c_;
        value = value * 16 + digit;
    }
    quad = static_cast<char16_t>(value);
    return true;
}

bool PXB_RQJSON::Reader::scanUnicodeChar(char16_t& ch) {
    char16_t high;
    if (!scanHexQuad(high)) {
        return fail(kErrorUnicode, QStringLiteral("Missing hex quad"));
    }
    if (high < 0xD800 || high >= 0xE000) {
        ch = high;
        return true;
    }
    if (high >= 0xDC00) {
        return fail(kErrorUnicode, QStringLiteral("Invalid high character in surrogate pair"));
    }
    error_ = Error();
    char16_t low;
    if (!(c_[0] == '\\' && c_[1] == 'u' && (c_ += 2, scanHexQuad(low)))) {
        return failWrapping(kErrorUnicode,
                            QStringLiteral("Missing low character in surrogate pair"));
    }
    // 0xDFFF is refused as well, deliberately.
    if (low < 0xDC00 || low > 0xDFFE) {
        return fail(kErrorUnicode, QStringLiteral("Invalid low surrogate char"));
    }
    // The pair folds into one 16-bit character (the code point modulo 65536), by design.
    const unsigned combined = (high - 0xD800u) * 0x400u + (low - 0xDC00u) + 0x10000u;
    ch = static_cast<char16_t>(combined & 0xFFFF);
    return true;
}

bool PXB_RQJSON::Reader::scanNumber(QVariant& value) {
    const char* start = c_;
    if (*c_ == '-') {
        ++c_;
    }
    if (*c_ == '0') {
        ++c_;
        if (isDigit(*c_)) {
            return fail(kErrorParseNumber, QStringLiteral("Leading 0 disallowed in number"));
        }
    } else {
        if (!isDigit(*c_)) {
            return fail(kErrorParseNumber, QStringLiteral("No digits after initial minus"));
        }
        while (isDigit(*c_)) {
            ++c_;
        }
    }
    if (*c_ == '.') {
        ++c_;
        if (!isDigit(*c_)) {
            return fail(kErrorParseNumber, QStringLiteral("No digits after decimal point"));
        }
        while (isDigit(*c_)) {
            ++c_;
        }
    }
    if (*c_ == 'e' || *c_ == 'E') {
        ++c_;
        if (*c_ == '+' || *c_ == '-') {
            ++c_;
        }
        if (!isDigit(*c_)) {
            return fail(kErrorParseNumber, QStringLiteral("No digits after exponent"));
        }
        while (isDigit(*c_)) {
            ++c_;
        }
    }
    // Kept as text, so it never fails ("Failed creating decimal instance" cannot happen).
    value = QVariant::fromValue(PXB_RQJSON::makeNumber(start, c_ - start));
    return true;
}

// ---------------------------------------------------------------------------------------------
// Writer

class PXB_RQJSON::Writer {
  public:
    Writer(bool humanReadable, bool sortKeys) : humanReadable_(humanReadable), sortKeys_(sortKeys) {
        out_.reserve(128);
    }

    bool appendValue(const QVariant& value);
    QString& output() { return out_; }
    const Error& error() const { return error_; }

  private:
    template <class Map>
    bool appendMap(const Map& map);
    bool appendAssociative(const QVariant& value);
    template <class List>
    bool appendList(const List& list);
    bool appendSequential(const QVariant& value);
    bool appendMember(bool first, const QString& key, const QVariant& value);
    void appendString(QStringView string);
    void appendLatin1(const char* text, qsizetype size) {
        out_.append(QLatin1StringView(text, size));
    }
    template <class T>
    void appendNumber(T number) {
        char buffer[64];
        const auto result = std::to_chars(buffer, buffer + sizeof(buffer), number);
        appendLatin1(buffer, result.ptr - buffer);
    }
    void indent() {
        static const char kBlanks[] =
            "                                                                ";
        constexpr qsizetype kBlankCount = sizeof(kBlanks) - 1;
        out_.append(QLatin1Char('\n'));
        for (qsizetype n = static_cast<qsizetype>(depth_) * 2; n > 0; n -= kBlankCount) {
            out_.append(QLatin1StringView(kBlanks, std::min(n, kBlankCount)));
        }
    }
    bool fail(int code, const QString& message) {
        error_ = err(code, message);
        return false;
    }

    QString out_;
    bool humanReadable_;
    bool sortKeys_;
    unsigned depth_ = 0;
    Error error_;
};

bool PXB_RQJSON::Writer::appendMember(bool first, const QString& key, const QVariant& value) {
    if (!first) {
        out_.append(QLatin1Char(','));
    }
    if (humanReadable_) {
        indent();
    }
    appendString(key);
    if (humanReadable_) {
        out_.append(QLatin1String(" : "));
    } else {
        out_.append(QLatin1Char(':'));
    }
    if (!appendValue(value)) {
        return fail(kErrorUnsupported,
                    QStringLiteral("Unsupported value for key %1 in object").arg(key));
    }
    return true;
}

template <class Map>
bool PXB_RQJSON::Writer::appendMap(const Map& map) {
    out_.append(QLatin1Char('{'));
    ++depth_;
    bool first = true;
    // A QVariantMap is in key order already.
    if (sortKeys_ && !std::is_same_v<Map, QVariantMap>) {
        QStringList keys = map.keys();
        std::sort(keys.begin(), keys.end());
        for (const QString& key : std::as_const(keys)) {
            if (!appendMember(first, key, map.value(key))) {
                return false;
            }
            first = false;
        }
    } else {
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (!appendMember(first, it.key(), it.value())) {
                return false;
            }
            first = false;
        }
    }
    --depth_;
    if (humanReadable_ && !map.isEmpty()) {
        indent();
    }
    out_.append(QLatin1Char('}'));
    return true;
}

// Maps of other types (QMap<int, QString>, std::map...): the keys must be strings.
bool PXB_RQJSON::Writer::appendAssociative(const QVariant& value) {
    const QAssociativeIterable iterable = value.value<QAssociativeIterable>();
    QList<std::pair<QString, QVariant>> members;
    for (auto it = iterable.begin(); it != iterable.end(); ++it) {
        const QVariant key = it.key();
        if (key.metaType().id() != QMetaType::QString) {
            out_.append(QLatin1Char('{'));
            return fail(kErrorUnsupported, QStringLiteral("JSON object key must be string"));
        }
        members.append({key.toString(), it.value()});
    }
    if (sortKeys_) {
        std::stable_sort(members.begin(), members.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
    }
    out_.append(QLatin1Char('{'));
    ++depth_;
    bool first = true;
    for (const auto& [key, member] : std::as_const(members)) {
        if (!appendMember(first, key, member)) {
            return false;
        }
        first = false;
    }
    --depth_;
    if (humanReadable_ && !members.isEmpty()) {
        indent();
    }
    out_.append(QLatin1Char('}'));
    return true;
}

template <class List>
bool PXB_RQJSON::Writer::appendList(const List& list) {
    out_.append(QLatin1Char('['));
    ++depth_;
    bool first = true;
    for (const auto& element : list) {
        if (!first) {
            out_.append(QLatin1Char(','));
        }
        first = false;
        if (humanReadable_) {
            indent();
        }
        bool appended;
        if constexpr (std::is_same_v<List, QVariantList>) {
            appended = appendValue(element);
        } else {
            appended = appendValue(QVariant(element));
        }
        if (!appended) {
            return false;
        }
    }
    --depth_;
    if (humanReadable_ && !list.isEmpty()) {
        indent();
    }
    out_.append(QLatin1Char(']'));
    return true;
}

bool PXB_RQJSON::Writer::appendSequential(const QVariant& value) {
    const QSequentialIterable iterable = value.value<QSequentialIterable>();
    QVariantList list;
    for (const QVariant& element : iterable) {
        list.append(element);
    }
    return appendList(list);
}

void PXB_RQJSON::Writer::appendString(QStringView string) {
    out_.append(QLatin1Char('"'));
    const char16_t* begin = string.utf16();
    const char16_t* end = begin + string.size();
    const char16_t* p = begin;
    while (p != end && *p >= 0x20 && *p != u'"' && *p != u'\\') {
        ++p;
    }
    out_.append(QStringView(begin, p - begin));
    while (p != end) {
        const char16_t* run = p;
        while (p != end && *p >= 0x20 && *p != u'"' && *p != u'\\') {
            ++p;
        }
        out_.append(QStringView(run, p - run));
        if (p == end) {
            break;
        }
        switch (*p) {
            case u'\b':
                out_.append(QLatin1String("\\b"));
                break;
            case u'\t':
                out_.append(QLatin1String("\\t"));
                break;
            case u'\n':
                out_.append(QLatin1String("\\n"));
                break;
            case u'\f':
                out_.append(QLatin1String("\\f"));
                break;
            case u'\r':
                out_.append(QLatin1String("\\r"));
                break;
            case u'"':
                out_.append(QLatin1String("\\\""));
                break;
            case u'\\':
                out_.append(QLatin1String("\\\\"));
                break;
            default: {
                char buffer[8];
                std::snprintf(buffer, sizeof(buffer), "\\u%04x", static_cast<unsigned>(*p));
                out_.append(QLatin1String(buffer));
            }
        }
        ++p;
    }
    out_.append(QLatin1Char('"'));
}

bool PXB_RQJSON::Writer::appendValue(const QVariant& value) {
    switch (value.metaType().id()) {
        case QMetaType::QVariantMap:
            return appendMap(*static_cast<const QVariantMap*>(value.constData()));
        case QMetaType::QVariantHash:
            return appendMap(*static_cast<const QVariantHash*>(value.constData()));
        case QMetaType::QVariantList:
            return appendList(*static_cast<const QVariantList*>(value.constData()));
        case QMetaType::QStringList:
            return appendList(*static_cast<const QStringList*>(value.constData()));
        case QMetaType::QString:
            appendString(*static_cast<const QString*>(value.constData()));
            return true;
        case QMetaType::Bool:
        case QMetaType::Char:
        case QMetaType::SChar:
            // Booleans are the numbers of char type; written as words.
            if (value.toBool()) {
                out_.append(QLatin1String("true"));
            } else {
                out_.append(QLatin1String("false"));
            }
            return true;
        case QMetaType::Int:
        case QMetaType::Short:
        case QMetaType::Long:
        case QMetaType::LongLong:
            appendNumber(value.toLongLong());
            return true;
        case QMetaType::UInt:
        case QMetaType::UShort:
        case QMetaType::UChar:
        case QMetaType::ULong:
        case QMetaType::ULongLong:
            appendNumber(value.toULongLong());
            return true;
        case QMetaType::Double:
            appendNumber(*static_cast<const double*>(value.constData()));
            return true;
        case QMetaType::Float:
            appendNumber(*static_cast<const float*>(value.constData()));
            return true;
        case QMetaType::UnknownType:
        case QMetaType::Nullptr:
            out_.append(QLatin1String("null"));
            return true;
        case QMetaType::QByteArray:
            appendString(platform::describe(value));
            return true;
        default:
            break;
    }
    if (value.metaType() == QMetaType::fromType<PXBDecimalNumber>()) {
        const QByteArrayView text = static_cast<const PXBDecimalNumber*>(value.constData())->text();
        appendLatin1(text.data(), text.size());
        return true;
    }
    if (value.canView<QAssociativeIterable>()) {
        return appendAssociative(value);
    }
    if (value.canView<QSequentialIterable>()) {
        return appendSequential(value);
    }
    // Anything else is written as a string: its string value where it has one, else its
    // description (dates, URLs and so on).
    appendString(platform::describe(value));
    return true;
}

// ---------------------------------------------------------------------------------------------

PXB_RQJSON::PXB_RQJSON() {
    PXBDecimalNumber::registerConversions();
}

bool PXB_RQJSON::isNull(const QVariant& value) {
    return !value.isValid() || value.metaType().id() == QMetaType::Nullptr;
}

QVariant PXB_RQJSON::null() {
    return QVariant::fromValue(nullptr);
}

QVariant PXB_RQJSON::read(const char* utf8, bool allowScalar, Error* error) {
    lastError_ = Error();
    Reader reader(utf8, maxDepth_);
    QVariant value;
    if (!reader.scanValue(value)) {
        lastError_ = reader.error();
    } else if (!reader.scanIsAtEnd()) {
        lastError_ = err(kErrorTrailingGarbage, QStringLiteral("Garbage after JSON"));
    } else if (!allowScalar && value.metaType().id() != QMetaType::QVariantMap &&
               value.metaType().id() != QMetaType::QVariantList) {
        lastError_ = err(kErrorFragment, QStringLiteral("Valid fragment, but not JSON"));
    } else {
        Q_ASSERT_X(value.isValid(), "PXB_RQJSON", "Should have a valid object from the input");
        return value;
    }
    if (error != nullptr) {
        *error = lastError_;
    }
    return QVariant();
}

QVariant PXB_RQJSON::objectWithString(const QString& string, Error* error) {
    return objectWithUtf8(string.isNull() ? QByteArray() : string.toUtf8(), error);
}

QVariant PXB_RQJSON::fragmentWithString(const QString& string, Error* error) {
    return fragmentWithUtf8(string.isNull() ? QByteArray() : string.toUtf8(), error);
}

QVariant PXB_RQJSON::objectWithUtf8(const QByteArray& utf8, Error* error) {
    if (utf8.isNull()) {
        lastError_ = err(kErrorInputNil, QStringLiteral("Input was 'nil'"));
        if (error != nullptr) {
            *error = lastError_;
        }
        return QVariant();
    }
    return read(utf8.constData(), false, error);
}

QVariant PXB_RQJSON::fragmentWithUtf8(const QByteArray& utf8, Error* error) {
    if (utf8.isNull()) {
        lastError_ = err(kErrorInputNil, QStringLiteral("Input was 'nil'"));
        if (error != nullptr) {
            *error = lastError_;
        }
        return QVariant();
    }
    return read(utf8.constData(), true, error);
}

QString PXB_RQJSON::write(const QVariant& value, bool allowScalar, Error* error) {
    lastError_ = Error();
    const int type = value.metaType().id();
    const bool container =
        type == QMetaType::QVariantMap || type == QMetaType::QVariantHash ||
        type == QMetaType::QVariantList || type == QMetaType::QStringList ||
        (type != QMetaType::QString && type != QMetaType::QByteArray &&
         (value.canView<QAssociativeIterable>() || value.canView<QSequentialIterable>()));
    if (!allowScalar && !container) {
        lastError_ = err(kErrorFragment, QStringLiteral("Not valid type for JSON"));
    } else {
        Writer writer(humanReadable_, sortKeys_);
        if (writer.appendValue(value)) {
            return std::move(writer.output());
        }
        lastError_ = writer.error();
    }
    if (error != nullptr) {
        *error = lastError_;
    }
    return QString();
}

QString PXB_RQJSON::stringWithObject(const QVariant& object, Error* error) {
    return write(object, false, error);
}

QString PXB_RQJSON::stringWithFragment(const QVariant& value, Error* error) {
    return write(value, true, error);
}

QList<Error> PXB_RQJSON::errorTrace() const {
    QList<Error> trace;
    std::optional<Error> current;
    if (!lastError_.isNull()) {
        current = lastError_;
    }
    while (current) {
        trace.append(*current);
        current = current->underlyingError();
    }
    return trace;
}
