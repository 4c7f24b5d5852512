#include <algorithm>
#include <cstring>

#include "KvString.h"

unsigned int KvstringMsgCpy(char* out, const char* message, unsigned int outSize) {
    if (outSize == 0) {
        return 0;
    }
    const std::size_t length = strnlen(message, outSize - 1);
    std::memcpy(out, message, length);
    out[length] = '\0';
    return static_cast<unsigned int>(length);
}

unsigned int KvstringMsgCpy2(char* out, const char* message, unsigned int outSize) {
    const unsigned int length = KvstringMsgCpy(out, message, outSize);
    std::fill(out + length, out + outSize, '\0');
    return length;
}

std::string KvstringCopyMsg(const char* message, unsigned int most) {
    return std::string(message, strnlen(message, most));
}
