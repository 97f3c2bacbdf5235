// A decimal number kept exactly as the text it was read from, so that JSON numbers survive a
// read-write round trip unchanged (no rounding through binary floating point). Stored inline up
// to 23 characters, so that a QVariant holds it without an allocation of its own.
#pragma once

#include <QByteArrayView>
#include <QMetaType>
#include <QString>

#include <cstdint>
#include <optional>

class PXB_RQJSON;

class alignas(8) PXBDecimalNumber {
  public:
    // Zero.
    PXBDecimalNumber() noexcept : PXBDecimalNumber("0", 1) {}
    // Accepts only the JSON number grammar ("-1.5e3", not "+1", ".5" or "1.").
    static std::optional<PXBDecimalNumber> fromString(QStringView text);

    PXBDecimalNumber(const PXBDecimalNumber& other) noexcept;
    PXBDecimalNumber(PXBDecimalNumber&& other) noexcept;
    PXBDecimalNumber& operator=(const PXBDecimalNumber& other) noexcept;
    PXBDecimalNumber& operator=(PXBDecimalNumber&& other) noexcept;
    ~PXBDecimalNumber();

    // The number's text, exactly as given (Latin-1).
    QByteArrayView text() const noexcept;
    QString toString() const;
    double toDouble() const;
    // Integer part (truncated); saturates at the type's limits.
    qlonglong toLongLong() const;
    bool isZero() const;

    // Equal values compare equal whatever their text: 1.50 == 1.5 == 15e-1.
    friend bool operator==(const PXBDecimalNumber& a, const PXBDecimalNumber& b);
    friend bool operator!=(const PXBDecimalNumber& a, const PXBDecimalNumber& b) {
        return !(a == b);
    }

    // Lets QVariant convert the number to QString, double, int, qlonglong and bool. Called by
    // everything that creates numbers, so a QVariant holding one always converts.
    static void registerConversions();

  private:
    friend class PXB_RQJSON;
    // The text must already be a valid JSON number.
    PXBDecimalNumber(const char* text, qsizetype size) noexcept;

    struct Shared;
    static constexpr unsigned char kSharedTag = 0xFF;
    static constexpr qsizetype kInlineCapacity = 23;

    const Shared* shared() const noexcept;
    void release() noexcept;

    // Inline text, or (tag kSharedTag) a pointer to a reference-counted block.
    char data_[kInlineCapacity] = {};
    unsigned char tag_ = 0;  // inline length, or kSharedTag
};

Q_DECLARE_TYPEINFO(PXBDecimalNumber, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(PXBDecimalNumber)
