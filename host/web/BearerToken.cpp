#include "BearerToken.h"

#include <openssl/crypto.h>

#include <algorithm>

namespace kvhost {

namespace {

constexpr std::string_view kScheme = "bearer ";

bool BeginsWithScheme(std::string_view value) {
    if (value.size() < kScheme.size()) {
        return false;
    }
    for (std::size_t i = 0; i < kScheme.size(); ++i) {
        const char c = value[i];
        if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != kScheme[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool ShowsToken(const std::string& authorization, std::string_view token) {
    if (token.empty() || !BeginsWithScheme(authorization)) {
        return false;
    }
    std::string_view shown = std::string_view(authorization).substr(kScheme.size());
    shown.remove_prefix(std::min(shown.find_first_not_of(' '), shown.size()));
    return shown.size() == token.size() && CRYPTO_memcmp(shown.data(), token.data(), token.size()) == 0;
}

}  // namespace kvhost
