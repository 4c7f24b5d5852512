#include "Base64.h"

#include <openssl/evp.h>

#include <algorithm>

namespace kvsink {
namespace {

const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::size_t paddingOf(std::string_view text) {
    return text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
}

}  // namespace

std::string encodeBase64(std::string_view bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytesOf(bytes),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::optional<std::string> decodeBase64(std::string_view text) {
    const std::size_t padding = paddingOf(text);
    const std::string_view digits = text.substr(0, text.size() - padding);
    if (text.size() % 4 != 0 || digits.find_first_not_of(ALPHABET) != std::string_view::npos) {
        return std::nullopt;
    }
    std::string bytes(text.size() / 4 * 3, '\0');
    if (!text.empty() && EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), bytesOf(text),
                                         static_cast<int>(text.size())) < 0) {
        return std::nullopt;
    }
    bytes.resize(bytes.size() - padding);
    return bytes;
}

}  // namespace kvsink
