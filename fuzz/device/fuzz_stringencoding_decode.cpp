// Decoding arbitrary text over every alphabet never crashes, and whatever decodes re-encodes to
// the canonical form of its input: the input's digits, each written as its alphabet character
// (synonyms resolved), with padding and skipped characters dropped, are the re-encoding followed
// by at most a few zero digits that carry less than a byte.
//
// Input layout: byte 0 picks the encoder, byte 1 its options (bit 0 pads the output, bit 1
// skips white space), the rest is the text, read as Latin-1 so that non-ASCII characters occur.
#include "ads/device/HLXStringEncoding.h"

#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

struct Case {
    PXB_HLXStringEncoding encoding;
    QString alphabet;
    bool padded;   // '=' is the padding character
    int synonyms;  // 0 none, 1 hexadecimal lower case, 2 Crockford
};

Case makeCase(int which) {
    using E = PXB_HLXStringEncoding;
    switch (which % 10) {
        case 0:
            return {E::rfc4648Base64StringEncoding(),
                    u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"_s, true, 0};
        case 1:
            return {E::rfc4648Base64WebsafeStringEncoding(),
                    u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"_s, true, 0};
        case 2:
            return {E::rfc4648Base32StringEncoding(), u"ABCDEFGHIJKLMNOPQRSTUVWXYZ234567"_s, true,
                    0};
        case 3:
            return {E::rfc4648Base32HexStringEncoding(), u"0123456789ABCDEFGHIJKLMNOPQRSTUV"_s,
                    true, 0};
        case 4:
            return {E::crockfordBase32StringEncoding(), u"0123456789ABCDEFGHJKMNPQRSTVWXYZ"_s,
                    false, 2};
        case 5:
            return {E::hexStringEncoding(), u"0123456789ABCDEF"_s, false, 1};
        case 6:
            return {E::binaryStringEncoding(), u"01"_s, false, 0};
        default: {
            // Alphabets of 4, 8 and 128 characters, which no factory offers.
            QString alphabet;
            const int size = which % 10 == 7 ? 4 : which % 10 == 8 ? 8 : 128;
            for (int c = 0; c < size; ++c)
                alphabet += QChar(size == 128 ? c : u'a' + c);
            return {*E::stringEncodingWithString(alphabet), alphabet, false, 0};
        }
    }
}

// The alphabet character a text character stands for, -2 when it is padding or skipped, -1
// when it is not part of the encoding.
int canonical(const Case& k, char16_t c, bool skipSpace) {
    if (k.padded && c == u'=') {
        return -2;
    }
    if (skipSpace && (c == u' ' || c == u'\n' || c == u'\r' || c == u'\t')) {
        return -2;
    }
    char16_t d = c;
    if (k.synonyms == 1 && c >= u'a' && c <= u'f')
        d = c - 32;
    if (k.synonyms == 2) {
        if (c == u'o' || c == u'O')
            d = u'0';
        else if (c == u'i' || c == u'I' || c == u'l' || c == u'L')
            d = u'1';
        else if (c >= u'a' && c <= u'z')
            d = c - 32;
    }
    return k.alphabet.contains(QChar(d)) ? d : -1;
}

// A broken property stops the run with the line that failed.
#define CHECK(condition)                                                                 \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            std::fprintf(stderr, "check failed at line %d: %s\n", __LINE__, #condition); \
            std::abort();                                                                \
        }                                                                                \
    } while (false)

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    Case k = makeCase(data[0]);
    // White space is part of the 128-character alphabet, so it cannot be skipped there.
    const bool skipSpace = (data[1] & 2) && k.alphabet.size() < 128;
    k.encoding.setDoPad(data[1] & 1);
    if (skipSpace)
        k.encoding.ignoreCharacters(u" \n\r\t"_s);
    const QString text = QString::fromLatin1(reinterpret_cast<const char*>(data + 2),
                                             static_cast<qsizetype>(size - 2));
    const QByteArray raw(reinterpret_cast<const char*>(data + 2), static_cast<qsizetype>(size - 2));

    // Any bytes survive a round trip.
    CHECK(k.encoding.decode(k.encoding.encode(raw)) == raw);

    const std::optional<QByteArray> bytes = k.encoding.decode(text);
    QString digits;
    bool paddingSeen = false;
    bool decodable = true;
    for (const QChar c : text) {
        const int d = canonical(k, c.unicode(), skipSpace);
        if (d == -1 || (d >= 0 && paddingSeen)) {
            decodable = false;
        }
        if (k.padded && c == u'=')
            paddingSeen = true;
        if (d >= 0) {
            digits += QChar(d);
        }
    }
    if (!bytes)
        return 0;
    CHECK(decodable);
    PXB_HLXStringEncoding unpadded = k.encoding;
    unpadded.setDoPad(false);
    const QString again = unpadded.encode(*bytes);
    CHECK(digits.left(again.size()) == again);
    const qsizetype extra = digits.size() - again.size();
    int shift = 0;
    while ((1 << shift) < k.alphabet.size())
        ++shift;
    CHECK(extra * shift < 8);
    for (qsizetype i = again.size(); i < digits.size(); ++i)
        CHECK(digits[i] == k.alphabet[0]);
    CHECK(k.encoding.decode(k.encoding.encode(*bytes)) == *bytes);
    return 0;
}
