#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Options.h"

namespace kvsink {

/// The server's side of one AUTH exchange, PLAIN (RFC 4616) or LOGIN. Externally synchronised.
class SaslExchange {
public:
    enum class Outcome { challenge, accepted, rejected, cancelled, malformed, unknownMechanism };

    /// `accounts` must outlive the exchange.
    explicit SaslExchange(const std::vector<Account>& accounts) : m_accounts(&accounts) {}

    /// Begins with the argument of AUTH: a mechanism and perhaps an initial response (RFC 4954 section 4).
    Outcome start(std::string_view argument);
    /// Goes on with a line of the client: base64, or "*" to cancel.
    Outcome answer(std::string_view line);
    /// Forgets an exchange that is under way.
    void abort() { m_step = Step::none; }

    /// A challenge was sent and its answer is awaited.
    bool isActive() const { return m_step != Step::none; }
    /// Base64 text of the challenge to send, after Outcome::challenge.
    std::string_view challenge() const { return m_challenge; }

private:
    enum class Step { none, plain, loginName, loginPassword };

    Outcome ask(Step step, std::string_view challenge);
    Outcome take(Step step, const std::string& response);
    Outcome takePlain(std::string_view response) const;
    Outcome check(std::string_view name, std::string_view password) const;

    const std::vector<Account>* m_accounts;
    Step m_step = Step::none;
    std::string_view m_challenge;
    std::string m_name;
};

}  // namespace kvsink
