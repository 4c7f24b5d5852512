#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kvhost {

/// Replaces secrets in text that is logged or shown. Immutable after construction, hence thread-safe.
///
/// Masked, for every account: the password anywhere, as it is, as the traffic lines render it, in base64 and in
/// hexadecimal, also where it is a part of what was encoded; the base64 credentials of AUTH PLAIN (RFC 4616); and each
/// of these as it stands in a URL (RFC 3986 2.1) or in a form that is sent by a browser. So it is in a connection key
/// "...-{user}-{password}", in its place and in a user name that it is a part of. Of a password of fewer than four bytes
/// the encoded forms are masked only where they stand for the password alone: a few characters occur by chance.
class SecretMask {
public:
    struct Account {
        std::string user;
        std::string password;
    };

    explicit SecretMask(const std::vector<Account>& accounts);

    /// `text` with every secret replaced by "[masked]". Where several match, the longest one counts.
    std::string Apply(std::string_view text) const;

    /// The accounts it was made of.
    const std::vector<Account>& Accounts() const { return m_vecAccounts; }

private:
    struct Secret {
        std::string text;
        bool takesBefore = false;  ///< the base64 character before belongs to the secret in part
        bool takesAfter = false;   ///< and so does the one behind
    };

    void Add(const Secret& secret);
    void AddOne(const Secret& secret);
    void AddEncoded(const std::string& password);
    void AddBase64Within(const std::string& password, std::size_t offset);
    const Secret* FindAt(std::string_view text) const;

    std::vector<Account> m_vecAccounts;
    /// By their first byte, the longest first.
    std::array<std::vector<Secret>, 256> m_arrSecrets;
};

}  // namespace kvhost
