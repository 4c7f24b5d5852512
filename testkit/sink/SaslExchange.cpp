#include "SaslExchange.h"

#include <algorithm>
#include <utility>

#include "Base64.h"
#include "Text.h"

namespace kvsink {
namespace {

const std::string_view ASK_NOTHING;
const std::string_view ASK_NAME = "VXNlcm5hbWU6";      // "Username:"
const std::string_view ASK_PASSWORD = "UGFzc3dvcmQ6";  // "Password:"

}  // namespace

SaslExchange::Outcome SaslExchange::start(std::string_view argument) {
    const std::string_view mechanism = takeWord(argument);
    const bool plain = equalsIgnoringCase(mechanism, "PLAIN");
    if (!plain && !equalsIgnoringCase(mechanism, "LOGIN")) {
        return Outcome::unknownMechanism;
    }
    const Outcome asked = plain ? ask(Step::plain, ASK_NOTHING) : ask(Step::loginName, ASK_NAME);
    if (argument.empty()) {
        return asked;
    }
    return answer(argument == "=" ? std::string_view() : argument);  // "=" stands for an empty response
}

SaslExchange::Outcome SaslExchange::answer(std::string_view line) {
    const Step step = std::exchange(m_step, Step::none);
    if (line == "*") {
        return Outcome::cancelled;
    }
    const std::optional<std::string> response = decodeBase64(line);
    return response ? take(step, *response) : Outcome::malformed;
}

SaslExchange::Outcome SaslExchange::ask(Step step, std::string_view challenge) {
    m_step = step;
    m_challenge = challenge;
    return Outcome::challenge;
}

SaslExchange::Outcome SaslExchange::take(Step step, const std::string& response) {
    switch (step) {
        case Step::plain:
            return takePlain(response);
        case Step::loginName:
            m_name = response;
            return ask(Step::loginPassword, ASK_PASSWORD);
        case Step::loginPassword:
            return check(m_name, response);
        case Step::none:
            break;
    }
    return Outcome::malformed;
}

/// The response is [authorisation name] NUL name NUL password. To act as somebody else is not possible.
SaslExchange::Outcome SaslExchange::takePlain(std::string_view response) const {
    if (std::count(response.begin(), response.end(), '\0') != 2) {
        return Outcome::malformed;
    }
    const std::size_t first = response.find('\0');
    const std::size_t second = response.find('\0', first + 1);
    const std::string_view actAs = response.substr(0, first);
    const std::string_view name = response.substr(first + 1, second - first - 1);
    return actAs.empty() || actAs == name ? check(name, response.substr(second + 1)) : Outcome::rejected;
}

SaslExchange::Outcome SaslExchange::check(std::string_view name, std::string_view password) const {
    const bool known = std::any_of(m_accounts->begin(), m_accounts->end(), [&](const Account& account) {
        return account.name == name && account.password == password;
    });
    return known ? Outcome::accepted : Outcome::rejected;
}

}  // namespace kvsink
