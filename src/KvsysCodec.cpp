#include "KvsysCodec.h"

#include <cstdlib>

#include "KvsysCodecParts.h"

namespace {

constexpr std::array<bool, 128> MakeUrlSafeTable() {
    std::array<bool, 128> safe{};
    safe[' '] = true;
    safe['_'] = true;
    for (std::size_t c = '0'; c <= '9'; ++c) {
        safe[c] = true;
    }
    for (std::size_t c = 'A'; c <= 'Z'; ++c) {
        safe[c] = true;
        safe[c - 'A' + 'a'] = true;
    }
    return safe;
}

}  // namespace

constexpr std::array<bool, 128> KvsysCodec::m_isUrlSafe = MakeUrlSafeTable();
constexpr char KvsysCodec::m_hex[17] = "0123456789ABCDEF";

std::string KvsysReplaceEach(const std::string& text, const std::string& what, const std::string& with) {
    std::string result;
    std::size_t begin = 0;
    for (std::size_t found = text.find(what); found != std::string::npos; found = text.find(what, begin)) {
        result.append(text, begin, found - begin);
        result += with;
        begin = found + what.size();
    }
    return result.append(text, begin);
}

char KvsysByteOfHexPair(const char* digits) {
    const char pair[] = {digits[0], digits[1], '\0'};
    return static_cast<char>(std::strtol(pair, nullptr, 16));
}
