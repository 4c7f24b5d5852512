#include <algorithm>

#include "SmtpCredentials.h"
#include "SmtpSession.h"

// The AUTH command of the scripted server (RFC 4954, RFC 4616, and the LOGIN mechanism).

namespace kvtest {

namespace {

constexpr const char* AskUser = "334 VXNlcm5hbWU6\r\n";
constexpr const char* AskPassword = "334 UGFzc3dvcmQ6\r\n";

bool Same(const Account& one, const Account& other) {
    return one.user == other.user && one.password == other.password;
}

}  // namespace

void SmtpSession::onAuth(const Step& step) {
    const std::size_t blank = std::min(step.argument.find(' '), step.argument.size());
    const std::string mechanism = step.argument.substr(0, blank);
    const std::string initial = blank < step.argument.size() ? step.argument.substr(blank + 1) : "";
    if (mechanism == "PLAIN") {
        authPlain(step, initial);
    } else if (mechanism == "LOGIN") {
        authLogin(step, initial);
    } else {
        answer(step, "504 5.5.4 mechanism not supported\r\n");
    }
}

void SmtpSession::authPlain(const Step& step, const std::string& initialResponse) {
    const auto accountIn = [](const std::string& text) {
        const std::optional<std::string> message = DecodeBase64(text);
        return message ? SplitPlainMessage(*message) : std::nullopt;
    };
    if (!initialResponse.empty()) {
        checkPassword(step, "PLAIN", accountIn(initialResponse));
        return;
    }
    if (challenge(step, "334 \r\n")) {
        const Step response{step::AuthPlain, readLine()};
        checkPassword(response, "PLAIN", accountIn(response.line));
    }
}

void SmtpSession::authLogin(const Step& step, const std::string& initialResponse) {
    std::string user = initialResponse;
    if (initialResponse.empty()) {
        if (!challenge(step, AskUser)) {
            return;
        }
        const Step response{step::AuthUser, readLine()};
        user = response.line;
        const bool readable = DecodeBase64(user).has_value();
        if (!challenge(response, readable ? AskPassword : "501 5.5.2 not base64\r\n")) {
            return;
        }
    } else if (!challenge(step, AskPassword)) {
        return;
    }
    const Step response{step::AuthPassword, readLine()};
    const std::optional<std::string> name = DecodeBase64(user);
    const std::optional<std::string> password = DecodeBase64(response.line);
    checkPassword(response, "LOGIN",
                  name && password ? std::optional(Account{*name, *password}) : std::nullopt);
}

bool SmtpSession::challenge(const Step& step, const Reply& byDefault) {
    const bool isCommand = step.name == "AUTH";
    const Reply reply = decide(step, isCommand ? authObstacle().value_or(byDefault) : byDefault);
    const bool accepted = reply.bytes.starts_with('2');
    m_authenticated = m_authenticated || accepted;
    conclude(step, reply);
    return !accepted && !reply.isRefusal();
}

void SmtpSession::checkPassword(const Step& step, const std::string& mechanism,
                                const std::optional<Account>& account) {
    Reply verdict = "501 5.5.2 cannot read the credentials\r\n";
    if (account) {
        const bool known = std::ranges::any_of(m_options.accounts,
                                               [&](const Account& each) { return Same(each, *account); });
        verdict = known ? "235 2.7.0 authenticated\r\n" : "535 5.7.8 authentication failed\r\n";
    }
    const bool isCommand = step.name == "AUTH";
    const Reply reply = decide(step, isCommand ? authObstacle().value_or(verdict) : verdict);
    const bool accepted = reply.bytes.starts_with('2');
    m_authenticated = m_authenticated || accepted;
    conclude(step, reply, [&](SmtpRecorder::State& state) {
        if (account) {
            state.connection(m_connection)
                .authentications.push_back({mechanism, account->user, account->password, accepted});
        }
    });
}

std::optional<Reply> SmtpSession::authObstacle() const {
    if (m_options.accounts.empty()) {
        return "503 5.5.1 authentication not enabled\r\n";
    }
    if (m_authenticated) {
        return "503 5.5.1 already authenticated\r\n";
    }
    return std::nullopt;
}

}  // namespace kvtest
