#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "KvDescribe.h"
#include "KvString.h"

namespace {

enum DataType { TYPE_TEXT = 0, TYPE_INTEGER = 1, TYPE_DECIMAL = 2 };

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool MayBeginANumber(char c) {
    return c == '+' || c == '-' || c == '.' || IsDigit(c);
}

}  // namespace

std::string KvintToStr(int value) {
    return KvDescribe("%d", value);
}

std::string Kvint64ToStr(long long value) {
    return KvDescribe("%lld", value);
}

std::string KvuintToStr(unsigned int value) {
    return KvDescribe("%u", value);
}

std::string KvlongToStr(long value) {
    return KvDescribe("%ld", value);
}

std::string KvulongToStr(unsigned long value) {
    return KvDescribe("%u", static_cast<unsigned int>(static_cast<std::uint32_t>(value)));
}

std::string KvdblToStr(double value) {
    return KvDescribe("%f", value);
}

std::string KvdblToStr(double value, int decimals) {
    return KvDescribe("%.*f", decimals, value);
}

int KvdeduceDataType(const std::string& text) {
    if (text.empty() || !MayBeginANumber(text[0])) {
        return TYPE_TEXT;
    }
    const auto isDigitOrPoint = [](char c) { return IsDigit(c) || c == '.'; };
    const auto points = std::count(text.begin(), text.end(), '.');
    if (points > 1 || !std::all_of(text.begin() + 1, text.end(), isDigitOrPoint)) {
        return TYPE_TEXT;
    }
    return points == 1 ? TYPE_DECIMAL : TYPE_INTEGER;
}

bool KvstringIsNumeric(const std::string& text) {
    return std::all_of(text.begin(), text.end(), IsDigit);
}

unsigned int KvHexStrToUInt(const std::string& text) {
    unsigned int value = 0;
    std::istringstream(text) >> std::hex >> value;
    return value;
}

int KvHexStrToBytes(const std::string& hex, unsigned char* out, int outSize) {
    const auto count = static_cast<int>(hex.size() / 2);
    if (count > outSize) {
        return 0;
    }
    std::fill_n(out, outSize, static_cast<unsigned char>(0));
    for (int i = 0; i < count; ++i) {
        const std::string pair = hex.substr(2 * static_cast<std::size_t>(i), 2);
        out[i] = static_cast<unsigned char>(std::strtoul(pair.c_str(), nullptr, 16));
    }
    return count;
}

std::vector<unsigned char> KvHexStrToBytes(const std::string& hex, int& count) {
    std::vector<unsigned char> bytes(hex.size() / 2);
    count = KvHexStrToBytes(hex, bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}
