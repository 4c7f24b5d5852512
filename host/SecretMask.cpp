#include "SecretMask.h"

#include <openssl/evp.h>

#include <algorithm>

#include "KvCoreHelpers.h"

namespace kvhost {

namespace {

constexpr const char* kMasked = "[masked]";

std::string Base64(const std::string& data) {
    std::string encoded((data.size() + 2) / 3 * 4 + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
                        reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
    encoded.resize(static_cast<std::size_t>(length));
    return encoded;
}

std::string AsInTraffic(std::string text) {
    return KvstringSafeByteString(text.data(), static_cast<int>(text.size()));
}

/// An authorisation identity, the user and the password, as AUTH PLAIN joins them.
std::string PlainCredentials(const std::string& identity, const SecretMask::Account& account) {
    const std::string separator(1, '\0');
    return identity + separator + account.user + separator + account.password;
}

}  // namespace

SecretMask::SecretMask(const std::vector<Account>& accounts) {
    for (const Account& account : accounts) {
        if (account.password.empty()) {
            continue;
        }
        const std::string key = "-{" + account.user + "}-{";
        Add(key + account.password + "}", key + kMasked + "}");
        Add(account.password, kMasked);
        Add(AsInTraffic(account.password), kMasked);
        Add(Base64(account.password), kMasked);
        Add(Base64(PlainCredentials("", account)), kMasked);
        Add(Base64(PlainCredentials(account.user, account)), kMasked);
    }
    std::stable_sort(m_vecSecrets.begin(), m_vecSecrets.end(), [](const Secret& left, const Secret& right) {
        return left.text.size() > right.text.size();
    });
}

std::string SecretMask::Apply(std::string_view text) const {
    std::string masked;
    masked.reserve(text.size());
    while (!text.empty()) {
        if (const Secret* secret = FindAt(text)) {
            masked += secret->replacement;
            text.remove_prefix(secret->text.size());
        } else {
            masked += text.front();
            text.remove_prefix(1);
        }
    }
    return masked;
}

void SecretMask::Add(const std::string& text, const std::string& replacement) {
    m_vecSecrets.push_back({text, replacement});
}

const SecretMask::Secret* SecretMask::FindAt(std::string_view text) const {
    for (const Secret& secret : m_vecSecrets) {
        if (text.front() == secret.text.front() && text.substr(0, secret.text.size()) == secret.text) {
            return &secret;
        }
    }
    return nullptr;
}

}  // namespace kvhost
