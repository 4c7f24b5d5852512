#include "TransferDecoding.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace kvhost {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

int SextetOf(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '+') {
        return 62;
    }
    return c == '/' ? 63 : -1;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// Puts sextets together to bytes.
class SextetCollector {
public:
    /// False for a character that does not belong here.
    bool Add(char c) {
        if (c == '=') {
            ++m_nPadding;
            return m_nPadding <= 2;
        }
        const int sextet = SextetOf(c);
        if (sextet < 0 || m_nPadding > 0) {
            return false;
        }
        m_nBits = (m_nBits << 6U) | static_cast<std::uint32_t>(sextet);
        if (++m_nSextets % 4 == 0) {
            Flush(3);
        }
        return true;
    }

    /// Takes what is left; false when the number of characters does not fit.
    bool Finish() {
        const std::size_t rest = m_nSextets % 4;
        if (rest == 1 || (rest == 0 ? m_nPadding != 0 : m_nPadding != 4 - rest)) {
            return false;
        }
        if (rest > 1) {
            m_nBits <<= 6 * (4 - rest);
            Flush(rest - 1);
        }
        return true;
    }

    std::string bytes;

private:
    void Flush(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            bytes += static_cast<char>((m_nBits >> (16U - 8U * i)) & 0xFFU);
        }
        m_nBits = 0;
    }

    std::uint32_t m_nBits = 0;
    std::size_t m_nSextets = 0;
    std::size_t m_nPadding = 0;
};

/// Adds one line without its end. False for a malformed escape.
bool AddQuotedPrintableLine(std::string_view line, std::string& decoded) {
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] != '=') {
            decoded += line[i];
            continue;
        }
        const int high = line.size() - i > 2 ? HexDigit(line[i + 1]) : -1;
        const int low = line.size() - i > 2 ? HexDigit(line[i + 2]) : -1;
        if (high < 0 || low < 0) {
            return false;
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

}  // namespace

std::optional<std::string> DecodeBase64(std::string_view text) {
    SextetCollector collector;
    collector.bytes.reserve(text.size() / 4 * 3 + 3);
    for (const char c : text) {
        if (!IsBlank(c) && !collector.Add(c)) {
            return std::nullopt;
        }
    }
    if (!collector.Finish()) {
        return std::nullopt;
    }
    return std::move(collector.bytes);
}

std::optional<std::string> DecodeQuotedPrintable(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        const bool hasCr = !line.empty() && line.back() == '\r';
        while (!line.empty() && IsBlank(line.back())) {
            line.remove_suffix(1);
        }
        const bool goesOn = !line.empty() && line.back() == '=';
        if (goesOn) {
            line.remove_suffix(1);
        }
        if (!AddQuotedPrintableLine(line, decoded)) {
            return std::nullopt;
        }
        if (!goesOn && end != std::string_view::npos) {
            decoded += hasCr ? "\r\n" : "\n";
        }
    }
    return decoded;
}

}  // namespace kvhost
