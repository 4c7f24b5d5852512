#pragma once

#include <cstdint>
#include <string>

/// One scalar value, kept as text and converted on demand; each conversion is done once and remembered.
/// One thread at a time: the conversions are const and change the caches.
///
/// A value type; the constructors convert implicitly, so that scalars of any type can be passed as a KvAny.
class KvAny {
public:
    KvAny(const std::string& value);
    /// A null pointer gives an empty text.
    KvAny(const char* value);
    KvAny(char value);
    /// The text is "true" or "false".
    KvAny(bool value);
    /// The text has six decimals.
    KvAny(double value);
    KvAny(int value);
    KvAny(unsigned int value);
    KvAny(long value);
    KvAny(unsigned long value);

    /// The canonical text.
    std::string asString() const { return text; }

    /// The decimal number that the text begins with, limited to the type's range; 0 when there is none.
    ///
    /// Compatibility: the signed conversions are decimal only and the unsigned ones also read "0x" as
    /// hexadecimal and a leading zero as octal; the text "0x10" is 0 as an int and 16 as an unsigned int.
    /// Relied on by: callers that choose the base by the conversion.
    /// Held by: KvAnyTest.SignedConversionsAreDecimalAndUnsignedOnesReadThePrefix.
    int asInt() const;
    long asLong() const;
    unsigned int asUInt() const;
    unsigned long asULong() const;
    /// The number that the text begins with; 0 when there is none.
    double asDouble() const;

    /// Compatibility: a text that is a number other than zero gives the character with that code (its low
    /// byte), any other text its first character, an empty text NUL: "65" and "A" are both 'A'. Relied on by:
    /// settings that name a character by its code. Held by:
    /// KvAnyTest.CharOfANumberIsTheCharacterWithThatCode.
    char asChar() const;

    /// True for "yes", "true", "y" and "t" in any case, and for a number of at least 1.
    ///
    /// Compatibility: a negative number is false.
    /// Relied on by: settings in which -1 means "not set".
    /// Held by: KvAnyTest.BoolOfANegativeNumberIsFalse.
    bool asBool() const;

protected:
    /// Bits of validMask: which caches hold the value.
    enum CacheBit : std::uint8_t {
        CACHED_INT = 1,
        CACHED_UINT = 2,
        CACHED_LONG = 4,
        CACHED_DOUBLE = 8,
        CACHED_BOOL = 16,
        CACHED_CHAR = 32,
        TEXT_ONLY = 64,
        CACHED_ULONG = 128
    };

    KvAny(const std::string& value, int cacheBits);

    bool IsCached(CacheBit bit) const { return (validMask & bit) != 0; }
    void MarkCached(CacheBit bit) const { validMask = static_cast<std::uint8_t>(validMask | bit); }

    std::string text;
    mutable unsigned int m_nUInt = 0;
    mutable long m_nLong = 0;
    mutable int m_nInt = 0;
    mutable bool m_bBool = false;
    mutable char m_cChar = 0;
    mutable double m_dDouble = 0;
    mutable unsigned long m_nULong = 0;
    mutable std::uint8_t validMask;
};
