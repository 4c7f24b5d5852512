#include "SmtpCredentials.h"

#include <openssl/evp.h>

#include <algorithm>
#include <vector>

namespace kvtest {

std::optional<std::string> DecodeBase64(const std::string& text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::vector<unsigned char> buffer(text.size() / 4 * 3 + 1);
    const int count = EVP_DecodeBlock(buffer.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                      static_cast<int>(text.size()));
    if (count < 0) {
        return std::nullopt;
    }
    // The padding comes back as zero bytes.
    const auto padding =
        std::count(text.end() - std::min<std::ptrdiff_t>(2, std::ssize(text)), text.end(), '=');
    return std::string(buffer.begin(), buffer.begin() + count - padding);
}

std::optional<Account> SplitPlainMessage(const std::string& message) {
    const std::size_t user = message.find('\0');
    if (user == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t password = message.find('\0', user + 1);
    if (password == std::string::npos) {
        return std::nullopt;
    }
    return Account{message.substr(user + 1, password - user - 1), message.substr(password + 1)};
}

}  // namespace kvtest
