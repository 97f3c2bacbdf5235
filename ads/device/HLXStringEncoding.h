// Bytes to text over an alphabet of 2, 4, 8, 16, 32, 64 or 128 ASCII characters and back:
// base 64 (standard and web-safe), base 32 (standard, extended hex, Crockford), hexadecimal and
// binary. The class exists under two names, HLXStringEncoding and PXB_HLXStringEncoding, which
// share this one implementation and differ only in the name their failure reports carry.
#pragma once

#include <QByteArray>
#include <QString>

#include <array>
#include <cstdint>
#include <optional>

namespace hlx_detail {
struct HLXName {
    static constexpr const char* value = "HLXStringEncoding";
};
struct PXBName {
    static constexpr const char* value = "PXB_HLXStringEncoding";
};
}  // namespace hlx_detail

template <class Name>
class BasicHLXStringEncoding {
  public:
    // An encoder over `alphabet`, or nothing when the alphabet is not ASCII, has a length that
    // is not a power of two between 2 and 128, or repeats a character. No padding.
    static std::optional<BasicHLXStringEncoding> stringEncodingWithString(const QString& alphabet);

    static BasicHLXStringEncoding rfc4648Base64StringEncoding();
    static BasicHLXStringEncoding rfc4648Base64WebsafeStringEncoding();
    static BasicHLXStringEncoding rfc4648Base32StringEncoding();
    static BasicHLXStringEncoding rfc4648Base32HexStringEncoding();
    static BasicHLXStringEncoding crockfordBase32StringEncoding();
    static BasicHLXStringEncoding hexStringEncoding();
    static BasicHLXStringEncoding binaryStringEncoding();

    // Whether encode() pads its output to whole groups; it pads only once a padding character is
    // set.
    bool doPad() const { return doPad_; }
    void setDoPad(bool doPad) { doPad_ = doPad; }
    // Marks `c` as the padding character. A character outside ASCII is ignored.
    void setPaddingChar(QChar c);

    QString encode(const QByteArray& data) const;
    // Encodes the string's UTF-8 bytes.
    QString encodeString(const QString& string) const;

    // The bytes, or nothing for characters outside the alphabet, data after padding or
    // non-zero trailing bits. Padding is accepted in any number once a padding character is set.
    std::optional<QByteArray> decode(const QString& string) const;
    // The decoded bytes read as UTF-8 text.
    std::optional<QString> stringByDecoding(const QString& string) const;

    // Characters that decoding skips. Each must not be mapped yet.
    void ignoreCharacters(const QString& chars);
    // Each unmapped character decodes as the nearest mapped character before it in `chars`.
    void addDecodeSynonyms(const QString& chars);

    QString description() const;

  private:
    static constexpr std::int32_t kInvalid = -1;
    static constexpr std::int32_t kPadding = -2;
    static constexpr std::int32_t kIgnored = -3;

    BasicHLXStringEncoding() = default;
    static BasicHLXStringEncoding padded(const char* alphabet);
    static void reportFailure(const char* function, const char* text);

    QByteArray charMapData_;
    std::array<std::int32_t, 128> reverseCharMap_{};
    int shift_ = 0;
    int mask_ = 0;
    bool doPad_ = false;
    char paddingChar_ = 0;
    bool hasPaddingChar_ = false;
    int padLen_ = 0;
};

extern template class BasicHLXStringEncoding<hlx_detail::HLXName>;
extern template class BasicHLXStringEncoding<hlx_detail::PXBName>;

// Used by the signals module.
using HLXStringEncoding = BasicHLXStringEncoding<hlx_detail::HLXName>;
// Used by the location encoding.
using PXB_HLXStringEncoding = BasicHLXStringEncoding<hlx_detail::PXBName>;
