#include "KvAny.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "KvDescribe.h"

namespace {

bool MeansTrue(const std::string& text) {
    const auto equals = [&text](const char* word) { return strcasecmp(text.c_str(), word) == 0; };
    return equals("yes") || equals("true") || equals("y") || equals("t");
}

/// `value` limited to the range of an int, as strtol does itself where a long is no wider than an int.
int LimitedToInt(long value) {
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<long>(value, Limits::min(), Limits::max()));
}

/// The same for strtoul, which turns a text with a minus sign into the negated number.
unsigned int LimitedToUInt(unsigned long value) {
    constexpr unsigned long kMost = std::numeric_limits<unsigned int>::max();
    const bool isNegatedSmallNumber = 0UL - value <= kMost;
    return static_cast<unsigned int>(isNegatedSmallNumber ? value & kMost : std::min(value, kMost));
}

}  // namespace

KvAny::KvAny(const std::string& value, int cacheBits)
    : text(value), validMask(static_cast<std::uint8_t>(cacheBits)) {}

KvAny::KvAny(const std::string& value) : KvAny(value, TEXT_ONLY) {}

KvAny::KvAny(const char* value) : KvAny(std::string(value == nullptr ? "" : value), TEXT_ONLY) {}

KvAny::KvAny(char value) : KvAny(std::string(1, value), CACHED_CHAR) {
    m_cChar = value;
}

KvAny::KvAny(bool value) : KvAny(std::string(value ? "true" : "false"), CACHED_BOOL) {
    m_bBool = value;
}

KvAny::KvAny(double value) : KvAny(KvDescribe("%lf", value), CACHED_DOUBLE) {
    m_dDouble = value;
}

KvAny::KvAny(int value) : KvAny(KvDescribe("%d", value), CACHED_INT | CACHED_LONG) {
    m_nInt = value;
    m_nLong = value;
}

KvAny::KvAny(unsigned int value) : KvAny(KvDescribe("%u", value), CACHED_UINT) {
    m_nUInt = value;
}

KvAny::KvAny(long value) : KvAny(KvDescribe("%ld", value), CACHED_LONG) {
    m_nLong = value;
}

KvAny::KvAny(unsigned long value) : KvAny(KvDescribe("%lu", value), CACHED_ULONG) {
    m_nULong = value;
}

int KvAny::asInt() const {
    if (!IsCached(CACHED_INT)) {
        m_nInt = LimitedToInt(std::strtol(text.c_str(), nullptr, 10));
        MarkCached(CACHED_INT);
    }
    return m_nInt;
}

long KvAny::asLong() const {
    if (!IsCached(CACHED_LONG)) {
        m_nLong = std::strtol(text.c_str(), nullptr, 10);
        MarkCached(CACHED_LONG);
    }
    return m_nLong;
}

unsigned int KvAny::asUInt() const {
    if (!IsCached(CACHED_UINT)) {
        m_nUInt = LimitedToUInt(std::strtoul(text.c_str(), nullptr, 0));
        MarkCached(CACHED_UINT);
    }
    return m_nUInt;
}

unsigned long KvAny::asULong() const {
    if (!IsCached(CACHED_ULONG)) {
        m_nULong = std::strtoul(text.c_str(), nullptr, 0);
        MarkCached(CACHED_ULONG);
    }
    return m_nULong;
}

double KvAny::asDouble() const {
    if (!IsCached(CACHED_DOUBLE)) {
        m_dDouble = std::strtod(text.c_str(), nullptr);
        MarkCached(CACHED_DOUBLE);
    }
    return m_dDouble;
}

char KvAny::asChar() const {
    if (!IsCached(CACHED_CHAR)) {
        if (text.empty()) {
            m_cChar = 0;
        } else {
            const int code = asInt();
            m_cChar = code != 0 ? static_cast<char>(code) : text[0];
        }
        MarkCached(CACHED_CHAR);
    }
    return m_cChar;
}

bool KvAny::asBool() const {
    if (!IsCached(CACHED_BOOL)) {
        m_bBool = MeansTrue(text) || asInt() >= 1;
        MarkCached(CACHED_BOOL);
    }
    return m_bBool;
}
