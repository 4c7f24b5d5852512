#include "Base64.h"
#include "CarrierTrial.h"
#include "ProbeError.h"

// The step of authentication (RFC 4954): PLAIN where it is offered, else LOGIN, as the driver does.

namespace kvhost {

namespace {

constexpr std::size_t kLongestAccount = 57;  // bytes whose base64 the driver sends as one line

bool IsChallenge(const ProbeReply& reply, const std::string& text) {
    return reply.code / 100 == 3 && reply.lines.front().size() > 4 &&
           reply.lines.front().substr(4) == Base64(text);
}

}  // namespace

void CarrierTrial::Authenticate(ProbeStep& step) {
    if (!HasAccount()) {
        step.status = ProbeStatus::Skipped;
        step.text = "the carrier has no user and no password";
        return;
    }
    FailUnless(m_setOffers.count("PLAIN") + m_setOffers.count("LOGIN") != 0, step,
               "neither PLAIN nor LOGIN is offered; the driver goes on without user and password, which the "
               "carrier has");
    if (step.status != ProbeStatus::Failed) {
        TryAccount(step);
    }
}

void CarrierTrial::TryAccount(ProbeStep& step) {
    m_report.auth = ProbeAuth{m_setOffers.count("PLAIN") != 0 ? "PLAIN" : "LOGIN", false};
    if (m_wire.Tls() == nullptr) {
        Warn(step, "user and password travel in clear");
    }
    if (m_report.auth->mechanism == "PLAIN") {
        TryPlain(step);
    } else {
        TryLogin(step);
    }
    if (step.status != ProbeStatus::Failed) {
        m_report.auth->isAccepted = true;
        step.text = m_report.auth->mechanism + " accepted for " + Shown(m_carrier.user);
    }
}

bool CarrierTrial::IsAccepted(ProbeStep& step, const ProbeReply& reply) {
    FailUnless(!reply.IsRefusal(), step,
               m_report.auth->mechanism + " refused; the driver gives the connection up: " + reply.Text());
    if (m_carrier.security == SMTP_SECURITY_ON_DEMAND && reply.code == 530 &&
        reply.Text().find("STARTTLS") != std::string::npos) {
        Warn(step, "with security on-demand the driver repeats AUTH without end here; use security required");
    }
    return !reply.IsRefusal();
}

void CarrierTrial::TryPlain(ProbeStep& step) {
    const std::string separator(1, '\0');
    const std::string credentials = separator + m_carrier.user + separator + m_carrier.password;
    if (credentials.size() > kLongestAccount) {
        Warn(
            step,
            "user and password are so long that the driver sends more than one line, which few servers take");
    }
    const ProbeReply challenge = Ask(step, "AUTH PLAIN\r\n");
    if (!IsAccepted(step, challenge)) {
        return;
    }
    FailUnless(challenge.code / 100 == 3, step,
               "the server does not ask for the credentials of PLAIN: " + challenge.Text());
    if (step.status != ProbeStatus::Failed) {
        IsAccepted(step, Ask(step, Base64(credentials) + "\r\n"));
    }
}

void CarrierTrial::TryLogin(ProbeStep& step) {
    const std::string strange =
        "the server's LOGIN asks in words that the driver does not know, which then goes on "
        "without user and password: ";
    const ProbeReply first = Ask(step, "AUTH LOGIN\r\n");
    if (!IsAccepted(step, first)) {
        return;
    }
    FailUnless(IsChallenge(first, "Username:"), step, strange + first.Text());
    if (step.status == ProbeStatus::Failed) {
        return;
    }
    const ProbeReply second = Ask(step, Base64(m_carrier.user) + "\r\n");
    if (!IsAccepted(step, second) || second.code / 100 == 2) {
        return;
    }
    FailUnless(IsChallenge(second, "Password:"), step, strange + second.Text());
    if (step.status != ProbeStatus::Failed) {
        IsAccepted(step, Ask(step, Base64(m_carrier.password) + "\r\n"));
    }
}

}  // namespace kvhost
