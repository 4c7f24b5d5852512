#pragma once

#include <netinet/in.h>

#include <set>
#include <string>

#include "HostConfig.h"
#include "ProbeReport.h"
#include "ProbeWire.h"
#include "SecretMask.h"

namespace kvhost {

/// Goes the way to a carrier's server that the driver goes before its first mail, and says good-bye: address, connection,
/// greeting, EHLO (else HELO), STARTTLS and AUTH as the carrier's security has it. Sends no mail. One thread at a time.
///
/// Other than the driver it reads whole replies, and shows the password to no server whose certificate it could not
/// verify.
class CarrierTrial {
public:
    /// `limit`: how long each step may take. The look-up of the address has the system's own time-outs.
    CarrierTrial(const Carrier& carrier, Milliseconds limit);

    /// Once. Throws nothing but std::bad_alloc: what goes wrong stands in the report.
    ProbeReport Run();

private:
    struct Stop {};

    using Work = void (CarrierTrial::*)(ProbeStep&);

    void Take(const char* name, Work work);
    void FailUnless(bool isGood, ProbeStep& step, const std::string& text) const;
    void Warn(ProbeStep& step, const std::string& text) const;

    void FindAddress(ProbeStep& step);
    void Connect(ProbeStep& step);
    void ReadGreeting(ProbeStep& step);
    void SayEhlo(ProbeStep& step);
    void SayQuit(ProbeStep& step);

    bool WantsTls() const;
    void StartTls(ProbeStep& step);
    void SkipTls(ProbeStep& step);
    void Examine(ProbeStep& step);

    void Authenticate(ProbeStep& step);
    void TryAccount(ProbeStep& step);
    void TryPlain(ProbeStep& step);
    void TryLogin(ProbeStep& step);
    bool IsAccepted(ProbeStep& step, const ProbeReply& reply);

    ProbeReply Ask(ProbeStep& step, const std::string& line);
    ProbeReply Reply(ProbeStep& step);
    void NoteOffers(const ProbeReply& reply);
    bool HasAccount() const { return !m_carrier.user.empty() && !m_carrier.password.empty(); }
    /// The text as a step shows it.
    std::string Shown(std::string_view text) const;
    void ShowTls();

    const Carrier m_carrier;
    const SecretMask m_mask;
    ProbeWire m_wire;
    ProbeReport m_report;
    std::string m_strHost;
    sockaddr_in m_address{};
    std::set<std::string> m_setOffers;  ///< "STARTTLS", "PLAIN", "LOGIN" as far as the driver sees them
};

}  // namespace kvhost
