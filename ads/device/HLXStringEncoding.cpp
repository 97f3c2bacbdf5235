#include "ads/device/HLXStringEncoding.h"

#include "platform/log.h"

#include <cstring>
#include <numeric>

namespace {

// Whole groups of bytes that fill a whole number of characters (3 bytes to 4 characters in
// base 64, 5 to 8 in base 32) are converted with the group held in one word, which lets the
// compiler unroll the inner loops; the bit-at-a-time loop then finishes the last partial group.
// Both give the same characters because a group ends on a character boundary.
template <int S>
qsizetype encodeGroups(const uchar* in, qsizetype n, const char* map, char16_t* out) {
    constexpr int kBits = std::lcm(8, S);
    constexpr int kBytes = kBits / 8;
    constexpr int kChars = kBits / S;
    constexpr std::uint64_t kMask = (1u << S) - 1;
    const qsizetype groups = n / kBytes;
    for (qsizetype g = 0; g < groups; ++g) {
        std::uint64_t v = 0;
        for (int b = 0; b < kBytes; ++b) {
            v = (v << 8) | in[b];
        }
        for (int c = 0; c < kChars; ++c) {
            out[c] = static_cast<unsigned char>(map[(v >> (kBits - S * (c + 1))) & kMask]);
        }
        in += kBytes;
        out += kChars;
    }
    return groups * kBytes;
}

// The same with two characters per table look-up, for long inputs where filling the table of
// character pairs (4096 entries for base 64) costs little next to the work it saves.
template <int S>
qsizetype encodeGroupsByPairs(const uchar* in, qsizetype n, const char* map, char16_t* out) {
    static_assert(S <= 6, "the pair table grows as 4^S");
    constexpr int kBits = std::lcm(8, S);
    constexpr int kBytes = kBits / 8;
    constexpr int kChars = kBits / S;
    constexpr std::uint64_t kPairMask = (1u << (2 * S)) - 1;
    std::array<char16_t, 2 << (2 * S)> pairs;
    for (std::uint32_t i = 0; i < (1u << (2 * S)); ++i) {
        pairs[2 * i] = static_cast<unsigned char>(map[i >> S]);
        pairs[2 * i + 1] = static_cast<unsigned char>(map[i & ((1u << S) - 1)]);
    }
    const qsizetype groups = n / kBytes;
    for (qsizetype g = 0; g < groups; ++g) {
        std::uint64_t v = 0;
        for (int b = 0; b < kBytes; ++b) {
            v = (v << 8) | in[b];
        }
        for (int c = 0; c < kChars; c += 2) {
            const std::size_t pair = (v >> (kBits - S * (c + 2))) & kPairMask;
            std::memcpy(out + c, &pairs[2 * pair], 2 * sizeof(char16_t));
        }
        in += kBytes;
        out += kChars;
    }
    return groups * kBytes;
}

constexpr qsizetype kPairTableThreshold = 4096;

qsizetype encodeGroups(int shift, const uchar* in, qsizetype n, const char* map, char16_t* out) {
    const bool byPairs = n >= kPairTableThreshold;
    switch (shift) {
        case 1:
            return encodeGroups<1>(in, n, map, out);
        case 2:
            return encodeGroups<2>(in, n, map, out);
        case 3:
            return byPairs ? encodeGroupsByPairs<3>(in, n, map, out)
                           : encodeGroups<3>(in, n, map, out);
        case 4:
            return byPairs ? encodeGroupsByPairs<4>(in, n, map, out)
                           : encodeGroups<4>(in, n, map, out);
        case 5:
            return byPairs ? encodeGroupsByPairs<5>(in, n, map, out)
                           : encodeGroups<5>(in, n, map, out);
        case 6:
            return byPairs ? encodeGroupsByPairs<6>(in, n, map, out)
                           : encodeGroups<6>(in, n, map, out);
        case 7:
            return encodeGroups<7>(in, n, map, out);
        default:
            return 0;
    }
}

// Decodes whole groups of digits while they contain nothing but digits. Stops at the first
// group holding anything else (padding, a skipped or invalid character, a non-ASCII one) and
// returns the number of characters consumed; the caller continues character by character.
template <int S>
qsizetype decodeGroups(const char16_t* s, qsizetype len, const std::int32_t* rev, uchar* out,
                       qsizetype* written) {
    constexpr int kBits = std::lcm(8, S);
    constexpr int kBytes = kBits / 8;
    constexpr int kChars = kBits / S;
    qsizetype i = 0;
    uchar* o = out + *written;
    while (len - i >= kChars) {
        std::uint64_t v = 0;
        std::int32_t bad = 0;
        for (int c = 0; c < kChars; ++c) {
            const char16_t ch = s[i + c];
            // A character at or above 128 yields a negative value, as an invalid one does.
            const std::int32_t d = rev[ch & 127] | -static_cast<std::int32_t>(ch >> 7);
            bad |= d;
            v = (v << S) | static_cast<std::uint32_t>(d);
        }
        if (bad < 0) {
            break;
        }
        for (int b = 0; b < kBytes; ++b) {
            o[b] = static_cast<uchar>(v >> (kBits - 8 * (b + 1)));
        }
        o += kBytes;
        i += kChars;
    }
    *written = o - out;
    return i;
}

qsizetype decodeGroups(int shift, const char16_t* s, qsizetype len, const std::int32_t* rev,
                       uchar* out, qsizetype* written) {
    switch (shift) {
        case 1:
            return decodeGroups<1>(s, len, rev, out, written);
        case 2:
            return decodeGroups<2>(s, len, rev, out, written);
        case 3:
            return decodeGroups<3>(s, len, rev, out, written);
        case 4:
            return decodeGroups<4>(s, len, rev, out, written);
        case 5:
            return decodeGroups<5>(s, len, rev, out, written);
        case 6:
            return decodeGroups<6>(s, len, rev, out, written);
        case 7:
            return decodeGroups<7>(s, len, rev, out, written);
        default:
            return 0;
    }
}

}  // namespace

template <class Name>
std::optional<BasicHLXStringEncoding<Name>> BasicHLXStringEncoding<Name>::stringEncodingWithString(
    const QString& alphabet) {
    const qsizetype length = alphabet.size();
    if (length < 2 || length > 128 || (length & (length - 1)) != 0) {
        return std::nullopt;
    }
    BasicHLXStringEncoding e;
    e.reverseCharMap_.fill(kInvalid);
    e.charMapData_.resize(length);
    for (qsizetype i = 0; i < length; ++i) {
        const char16_t c = alphabet.at(i).unicode();
        if (c >= 128 || e.reverseCharMap_[c] != kInvalid) {
            return std::nullopt;
        }
        e.charMapData_[i] = static_cast<char>(c);
        e.reverseCharMap_[c] = static_cast<std::int32_t>(i);
    }
    e.shift_ = 0;
    for (qsizetype n = 1; n < length; n <<= 1) {
        ++e.shift_;
    }
    e.mask_ = (1 << e.shift_) - 1;
    // lcm(8, shift) by two running sums, always advancing the smaller until they meet.
    int a = 8;
    int b = e.shift_;
    while (a != b) {
        if (a < b) {
            a += 8;
        } else {
            b += e.shift_;
        }
    }
    e.padLen_ = a / e.shift_;
    return e;
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::padded(const char* alphabet) {
    BasicHLXStringEncoding e = *stringEncodingWithString(QString::fromLatin1(alphabet));
    e.setPaddingChar(QLatin1Char('='));
    e.setDoPad(true);
    return e;
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::rfc4648Base64StringEncoding() {
    return padded("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::rfc4648Base64WebsafeStringEncoding() {
    return padded("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_");
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::rfc4648Base32StringEncoding() {
    return padded("ABCDEFGHIJKLMNOPQRSTUVWXYZ234567");
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::rfc4648Base32HexStringEncoding() {
    return padded("0123456789ABCDEFGHIJKLMNOPQRSTUV");
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::crockfordBase32StringEncoding() {
    BasicHLXStringEncoding e =
        *stringEncodingWithString(QStringLiteral("0123456789ABCDEFGHJKMNPQRSTVWXYZ"));
    e.addDecodeSynonyms(QStringLiteral("0oO1iIlLAaBbCcDdEeFfGgHhJjKkMmNnPpQqRrSsTtVvWwXxYyZz"));
    return e;
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::hexStringEncoding() {
    BasicHLXStringEncoding e = *stringEncodingWithString(QStringLiteral("0123456789ABCDEF"));
    e.addDecodeSynonyms(QStringLiteral("AaBbCcDdEeFf"));
    return e;
}

template <class Name>
BasicHLXStringEncoding<Name> BasicHLXStringEncoding<Name>::binaryStringEncoding() {
    return *stringEncodingWithString(QStringLiteral("01"));
}

template <class Name>
void BasicHLXStringEncoding<Name>::setPaddingChar(QChar c) {
    if (c.unicode() >= 128) {
        return;
    }
    paddingChar_ = static_cast<char>(c.unicode());
    hasPaddingChar_ = true;
    reverseCharMap_[c.unicode()] = kPadding;
}

template <class Name>
void BasicHLXStringEncoding<Name>::reportFailure(const char* function, const char* text) {
    // An internal inconsistency: reported loudly, never thrown.
    qCCritical(lcSorvel).noquote()
        << QStringLiteral("Assertion failure in %1::%2: %3")
               .arg(QLatin1String(Name::value), QLatin1String(function), QLatin1String(text));
}

template <class Name>
QString BasicHLXStringEncoding<Name>::encode(const QByteArray& data) const {
    const qsizetype n = data.size();
    if (n == 0) {
        return QStringLiteral("");
    }
    qsizetype length = (8 * n + shift_ - 1) / shift_;
    const qsizetype unpadded = length;
    // Without a padding character there is nothing to pad with.
    if (doPad_ && hasPaddingChar_) {
        length = (length + padLen_ - 1) / padLen_ * padLen_;
    }
    QString result(length, Qt::Uninitialized);
    char16_t* out = reinterpret_cast<char16_t*>(result.data());
    const uchar* in = reinterpret_cast<const uchar*>(data.constData());
    const char* map = charMapData_.constData();

    qsizetype next = encodeGroups(shift_, in, n, map, out);
    qsizetype written = next / (padLen_ * shift_ / 8) * padLen_;
    if (next < n) {
        std::uint32_t buffer = in[next++];
        int pending = 8;
        while (pending > 0 || next < n) {
            if (pending < shift_) {
                if (next < n) {
                    buffer = (buffer << 8) | in[next++];
                    pending += 8;
                } else {
                    buffer <<= shift_ - pending;
                    pending = shift_;
                }
            }
            if (written < length) {
                out[written] = static_cast<unsigned char>(
                    map[(buffer >> (pending - shift_)) & static_cast<std::uint32_t>(mask_)]);
            }
            ++written;
            pending -= shift_;
        }
    }
    if (written != unpadded) {
        reportFailure("encode", "Underflowed output buffer");
        result.resize(std::min(written, length));
        return result;
    }
    for (; written < length; ++written) {
        out[written] = static_cast<unsigned char>(paddingChar_);
    }
    return result;
}

template <class Name>
QString BasicHLXStringEncoding<Name>::encodeString(const QString& string) const {
    return encode(string.toUtf8());
}

template <class Name>
std::optional<QByteArray> BasicHLXStringEncoding<Name>::decode(const QString& string) const {
    const qsizetype len = string.size();
    const char16_t* s = reinterpret_cast<const char16_t*>(string.constData());
    const qsizetype reserved = len * shift_ / 8;
    QByteArray result(reserved, Qt::Uninitialized);
    uchar* out = reinterpret_cast<uchar*>(result.data());
    const std::int32_t* rev = reverseCharMap_.data();
    const auto mask = static_cast<std::uint32_t>(mask_);

    qsizetype written = 0;
    std::uint32_t buffer = 0;
    int pending = 0;
    bool paddingSeen = false;
    qsizetype i = 0;
    while (i < len) {
        if (pending == 0 && !paddingSeen) {
            i += decodeGroups(shift_, s + i, len - i, rev, out, &written);
            if (i >= len) {
                break;
            }
        }
        const char16_t c = s[i++];
        if (c >= 128) {
            return std::nullopt;
        }
        const std::int32_t value = rev[c];
        if (value == kPadding) {
            paddingSeen = true;
            continue;
        }
        if (value == kIgnored) {
            continue;
        }
        if (value < 0 || paddingSeen) {
            return std::nullopt;
        }
        buffer = (buffer << shift_) | (static_cast<std::uint32_t>(value) & mask);
        pending += shift_;
        if (pending >= 8) {
            pending -= 8;
            if (written >= reserved) {
                reportFailure("decode", "Overflowed buffer");
                return std::nullopt;
            }
            out[written++] = static_cast<uchar>(buffer >> pending);
            buffer &= (1u << pending) - 1;
        }
    }
    if (pending > 0 && (buffer & ((1u << pending) - 1)) != 0) {
        return std::nullopt;
    }
    result.truncate(written);
    return result;
}

template <class Name>
std::optional<QString> BasicHLXStringEncoding<Name>::stringByDecoding(const QString& string) const {
    const std::optional<QByteArray> bytes = decode(string);
    if (!bytes) {
        return std::nullopt;
    }
    QString text = QString::fromUtf8(*bytes);
    return text.isNull() ? QStringLiteral("") : text;
}

template <class Name>
void BasicHLXStringEncoding<Name>::ignoreCharacters(const QString& chars) {
    for (const QChar c : chars) {
        const char16_t code = c.unicode();
        if (code >= 128) {
            continue;
        }
        if (reverseCharMap_[code] != kInvalid) {
            // The character keeps its meaning rather than silently changing what decodes.
            reportFailure("ignoreCharacters", "Character already mapped");
            continue;
        }
        reverseCharMap_[code] = kIgnored;
    }
}

template <class Name>
void BasicHLXStringEncoding<Name>::addDecodeSynonyms(const QString& chars) {
    std::int32_t current = kInvalid;
    for (const QChar c : chars) {
        const char16_t code = c.unicode();
        if (code >= 128) {
            continue;
        }
        if (reverseCharMap_[code] != kInvalid) {
            current = reverseCharMap_[code];
        } else {
            reverseCharMap_[code] = current;
        }
    }
}

template <class Name>
QString BasicHLXStringEncoding<Name>::description() const {
    return QStringLiteral("<Base%1 StringEncoder: %2>")
        .arg(1 << shift_)
        .arg(platform::describe(QVariant(charMapData_)));
}

template class BasicHLXStringEncoding<hlx_detail::HLXName>;
template class BasicHLXStringEncoding<hlx_detail::PXBName>;
