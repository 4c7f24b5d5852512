#include <cctype>
#include <cstdint>
#include <string_view>

#include "KvBase64Lines.h"
#include "KvsysCodec.h"

namespace {

constexpr int kNoValue = -1;

/// Base64 of `data`; with `lineBreaks` each line ends with CR LF, the last one too.
std::string Encode(std::string_view data, bool lineBreaks) {
    const std::string_view lineEnd = lineBreaks ? "\r\n" : "";
    std::string out;
    out.reserve(KvBase64LinesLength(data.size(), lineEnd.size()) + lineEnd.size());
    KvAppendBase64Lines(data, lineEnd, out);
    if (!out.ends_with(lineEnd)) {
        out += lineEnd;
    }
    return out;
}

int ValueOf(unsigned char c) {
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
    return c == '/' ? 63 : kNoValue;
}

/// Collects 6-bit values and writes the bytes behind each other. It writes at most 3 bytes for 4 values, so
/// it may write over the text that the values come from.
class GroupWriter {
public:
    explicit GroupWriter(unsigned char* out) : m_pOut(out) {}

    void Add(int value) {
        m_nBits = m_nBits << 6 | static_cast<std::uint32_t>(value);
        if (++m_nValues == 4) {
            WriteBits(16);
            WriteBits(8);
            WriteBits(0);
            m_nValues = 0;
        }
    }

    /// Writes what an unfinished group holds; false when that is a single value, which holds no whole byte.
    bool Finish() {
        if (m_nValues == 2) {
            WriteBits(4);
        } else if (m_nValues == 3) {
            WriteBits(10);
            WriteBits(2);
        }
        return m_nValues != 1;
    }

    int Count() const { return m_nWritten; }

private:
    void WriteBits(int shift) { m_pOut[m_nWritten++] = static_cast<unsigned char>(m_nBits >> shift); }

    unsigned char* m_pOut;
    int m_nWritten = 0;
    int m_nValues = 0;
    std::uint32_t m_nBits = 0;
};

}  // namespace

std::string KvsysCodec::EncodeBase64(unsigned char* data, int len, bool /*lineBreaks*/) {
    std::string out;
    EncodeBase64(data, len, out, true);
    return out;
}

bool KvsysCodec::EncodeBase64(unsigned char* data, int len, std::string& out, bool lineBreaks) {
    if (data == nullptr || len <= 0) {
        out.clear();
        return false;
    }
    out = Encode({reinterpret_cast<const char*>(data), static_cast<std::size_t>(len)}, lineBreaks);
    return true;
}

bool KvsysCodec::DecodeBase64(unsigned char* buf, int& len) {
    if (len == 0) {
        return true;
    }
    GroupWriter writer(buf);
    bool valid = true;
    for (int i = 0; i < len && buf[i] != '='; ++i) {
        const int value = ValueOf(buf[i]);
        if (value != kNoValue) {
            writer.Add(value);
        } else if (std::isspace(buf[i]) == 0) {
            valid = false;
        }
    }
    valid = writer.Finish() && valid;
    len = writer.Count();
    buf[len] = '\0';
    return valid;
}
