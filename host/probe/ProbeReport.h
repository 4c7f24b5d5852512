#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Duration.h"
#include "ProbeTls.h"

namespace kvhost {

enum class ProbeStatus {
    Ok,
    Warning,  ///< the driver goes on, but not as one would wish
    Failed,   ///< the carrier cannot be used as it is configured
    Skipped   ///< the driver would not take this step
};

/// "ok", "warning", "failed", "skipped".
const char* ProbeStatusName(ProbeStatus status);

/// One step of the way that the driver takes to a server. The texts are one line each, free of control characters and of
/// the carrier's password.
struct ProbeStep {
    std::string
        name;  ///< "address", "connect", "greeting", "EHLO", "STARTTLS", "EHLO in TLS", "AUTH", "QUIT"
    ProbeStatus status = ProbeStatus::Ok;
    std::string text;
    std::vector<std::string> details;
    Milliseconds took{0};
};

/// What became of the carrier's account.
struct ProbeAuth {
    std::string mechanism;  ///< "PLAIN" or "LOGIN"
    bool isAccepted = false;
};

/// What a probe found out.
struct ProbeReport {
    std::string carrier;
    std::string server;    ///< as configured
    std::string security;  ///< as configured, such as "required"
    std::vector<ProbeStep> steps;
    std::vector<std::string> extensions;  ///< of the last EHLO, without the reply codes
    std::optional<ProbeTlsFacts> tls;     ///< with its texts as those of a step
    std::optional<ProbeAuth> auth;

    /// True when no step failed.
    bool IsUsable() const;
    /// The text of the failed step, with its name; empty when there is none.
    std::string WhyNotUsable() const;
};

/// The report for people, several lines.
std::string FormatProbe(const ProbeReport& report);
/// The report as one JSON document; `exitStatus` is told in it.
std::string FormatProbeJson(const ProbeReport& report, int exitStatus);

}  // namespace kvhost
