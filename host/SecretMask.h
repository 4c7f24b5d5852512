#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kvhost {

/// Replaces secrets in log text. Immutable after construction, hence thread-safe.
///
/// Masked, for every account: the password anywhere, as it is, in base64 and as the traffic lines render it;
/// the base64 credentials of AUTH PLAIN (RFC 4616); and the password's place in a connection key
/// "...-{user}-{password}".
class SecretMask {
public:
    struct Account {
        std::string user;
        std::string password;
    };

    explicit SecretMask(const std::vector<Account>& accounts);

    /// `text` with every secret replaced by "[masked]". Where several match, the longest one counts.
    std::string Apply(std::string_view text) const;

private:
    struct Secret {
        std::string text;
        std::string replacement;
    };

    void Add(const std::string& text, const std::string& replacement);
    const Secret* FindAt(std::string_view text) const;

    std::vector<Secret> m_vecSecrets;  ///< longest first
};

}  // namespace kvhost
