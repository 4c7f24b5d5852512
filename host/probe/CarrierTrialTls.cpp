#include "CarrierTrial.h"
#include "ProbeError.h"

// The step to TLS, and what is to be said of it.

namespace kvhost {

namespace {

constexpr long kFewDays = 14;

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : ", ") + text;
    }
    return joined.empty() ? "none" : joined;
}

}  // namespace

/// With security on demand the driver authenticates in clear where that is offered, and else waits for a demand.
bool CarrierTrial::WantsTls() const {
    if (m_setOffers.count("STARTTLS") == 0) {
        return false;
    }
    switch (m_carrier.security) {
        case SMTP_SECURITY_CLEAR:
            return false;
        case SMTP_SECURITY_ON_DEMAND:
            return HasAccount() && m_setOffers.count("PLAIN") + m_setOffers.count("LOGIN") == 0;
        default:
            return true;
    }
}

void CarrierTrial::SkipTls(ProbeStep& step) {
    step.status = ProbeStatus::Skipped;
    switch (m_carrier.security) {
        case SMTP_SECURITY_CLEAR:
            step.text = "never used with security clear";
            break;
        case SMTP_SECURITY_ON_DEMAND:
            step.text = "with security on-demand the driver waits until the server demands it";
            break;
        case SMTP_SECURITY_IF_AVAILABLE:
            step.status = ProbeStatus::Warning;
            step.text = "not offered; with security if-available the driver goes on in clear";
            break;
        default:
            FailUnless(false, step, "not offered; with security required the driver gives the connection up");
    }
}

void CarrierTrial::StartTls(ProbeStep& step) {
    const ProbeTlsContext settings = MakeProbeTls(m_carrier);
    const ProbeReply reply = Ask(step, "STARTTLS\r\n");
    if (reply.code / 100 == 2) {
        m_wire.StartTls(*settings);
        Examine(step);
    } else if (m_carrier.security == SMTP_SECURITY_IF_AVAILABLE) {
        step.text = Shown(reply.Text());
        Warn(step, "refused; with security if-available the driver goes on in clear");
    } else {
        FailUnless(false, step, "refused; the driver gives the connection up: " + reply.Text());
    }
}

void CarrierTrial::Examine(ProbeStep& step) {
    m_report.tls = TlsFacts(*m_wire.Tls(), m_strHost);
    ShowTls();
    const ProbeTlsFacts& tls = *m_report.tls;
    step.text = tls.version + ", " + tls.cipher;
    step.details = {"subject " + tls.subject, "issuer " + tls.issuer,
                    "valid from " + tls.notBefore + " to " + tls.notAfter, "for " + Joined(tls.names)};
    if (!tls.isForHost) {
        Warn(step,
             "the certificate is not for " + m_strHost + "; the driver verifies the chain alone and goes on");
    }
    if (tls.IsVerified() && tls.daysLeft < kFewDays) {
        Warn(step, "the certificate ends in " + std::to_string(tls.daysLeft) + " days");
    }
    FailUnless(
        tls.IsVerified(), step,
        "the certificate cannot be verified by ca_file; the driver gives the connection up: " + tls.problem);
}

/// Makes the texts of the facts fit to be shown.
void CarrierTrial::ShowTls() {
    ProbeTlsFacts& tls = *m_report.tls;
    for (std::string* text : {&tls.subject, &tls.issuer, &tls.problem}) {
        *text = Shown(*text);
    }
    for (std::string& name : tls.names) {
        name = Shown(name);
    }
}

}  // namespace kvhost
