#include "SecretMask.h"

#include <algorithm>
#include <set>

#include "Base64.h"
#include "KvCoreHelpers.h"

namespace kvhost {

namespace {

constexpr const char* kMasked = "[masked]";
constexpr std::size_t kShortestWithin = 4;
constexpr const char* kLowerDigits = "0123456789abcdef";
constexpr const char* kUpperDigits = "0123456789ABCDEF";

std::string Hex(std::string_view data, const char* digits) {
    std::string hex;
    for (const char c : data) {
        const auto byte = static_cast<unsigned char>(c);
        hex += digits[byte >> 4U];
        hex += digits[byte & 15U];
    }
    return hex;
}

bool IsBase64(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

/// True for the characters that need no encoding in a URL (RFC 3986 2.3).
bool IsUnreserved(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           std::string_view("-._~").find(c) != std::string_view::npos;
}

/// `text` as it stands in a URL. A path may keep its slashes; a form has a plus for each blank.
std::string InUrl(std::string_view text, const char* digits, bool keepsSlashes, bool isForm) {
    std::string encoded;
    for (const char c : text) {
        if (IsUnreserved(c) || (keepsSlashes && c == '/')) {
            encoded += c;
        } else if (isForm && c == ' ') {
            encoded += '+';
        } else {
            encoded += "%" + Hex(std::string_view(&c, 1), digits);
        }
    }
    return encoded;
}

/// Every way in which `text` may stand in a URL, but for `text` itself.
std::set<std::string> AllInUrl(const std::string& text) {
    std::set<std::string> all;
    for (const char* const digits : {kUpperDigits, kLowerDigits}) {
        for (const bool keepsSlashes : {false, true}) {
            all.insert(InUrl(text, digits, keepsSlashes, false));
            all.insert(InUrl(text, digits, keepsSlashes, true));
        }
    }
    all.erase(text);
    return all;
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

SecretMask::SecretMask(const std::vector<Account>& accounts) : m_vecAccounts(accounts) {
    for (const Account& account : accounts) {
        if (account.password.empty()) {
            continue;
        }
        Add({account.password});
        Add({AsInTraffic(account.password)});
        Add({Base64(account.password)});
        Add({Base64(PlainCredentials("", account))});
        Add({Base64(PlainCredentials(account.user, account))});
        AddEncoded(account.password);
    }
    for (std::vector<Secret>& secrets : m_arrSecrets) {
        std::stable_sort(secrets.begin(), secrets.end(), [](const Secret& left, const Secret& right) {
            return left.text.size() > right.text.size();
        });
    }
}

void SecretMask::AddEncoded(const std::string& password) {
    if (password.size() < kShortestWithin) {
        return;
    }
    Add({Hex(password, kLowerDigits)});
    Add({Hex(password, kUpperDigits)});
    for (std::size_t offset = 0; offset < 3; ++offset) {
        AddBase64Within(password, offset);
    }
}

// A character of base64 holds six bits. Those that hold bits of the password alone are what is looked for; the ones at
// its ends hold bits of the neighbours too.
void SecretMask::AddBase64Within(const std::string& password, std::size_t offset) {
    const std::size_t begin = (offset * 8 + 5) / 6;
    const std::size_t bits = (offset + password.size()) * 8;
    const std::string encoded = Base64(std::string(offset, '\0') + password);
    Add({encoded.substr(begin, bits / 6 - begin), offset != 0, bits % 6 != 0});
}

std::string SecretMask::Apply(std::string_view text) const {
    std::string masked;
    masked.reserve(text.size());
    while (!text.empty()) {
        if (const Secret* secret = FindAt(text)) {
            if (secret->takesBefore && !masked.empty() && IsBase64(masked.back())) {
                masked.pop_back();
            }
            masked += kMasked;
            text.remove_prefix(secret->text.size());
            if (secret->takesAfter && !text.empty() && IsBase64(text.front())) {
                text.remove_prefix(1);
            }
        } else {
            masked += text.front();
            text.remove_prefix(1);
        }
    }
    return masked;
}

void SecretMask::Add(const Secret& secret) {
    AddOne(secret);
    for (const std::string& text : AllInUrl(secret.text)) {
        AddOne({text, secret.takesBefore, secret.takesAfter});
    }
}

void SecretMask::AddOne(const Secret& secret) {
    m_arrSecrets[static_cast<unsigned char>(secret.text.front())].push_back(secret);
}

const SecretMask::Secret* SecretMask::FindAt(std::string_view text) const {
    for (const Secret& secret : m_arrSecrets[static_cast<unsigned char>(text.front())]) {
        if (text.substr(0, secret.text.size()) == secret.text) {
            return &secret;
        }
    }
    return nullptr;
}

}  // namespace kvhost
