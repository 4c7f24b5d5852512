#pragma once

#include <chrono>
#include <ostream>
#include <string>

#include "HostDoubles.h"
#include "ScriptedSmtpServer.h"
#include "TestMessageFile.h"

// What the tests of the driver among hostile servers share.

namespace kvtest {

/// What became of one job.
struct Outcome {
    int status = 0;
    std::string reason;
    /// Whether the driver has kept a connection for the next job.
    bool kept = false;
};

bool operator==(const Outcome& one, const Outcome& other);
std::ostream& operator<<(std::ostream& out, const Outcome& outcome);

/// Completed, and the connection kept.
Outcome Completed();
/// Failed by a reply in the transaction; the connection is kept for a probe.
Outcome Failed(const std::string& reason);
/// Failed because no connection came about.
Outcome NotConnected();

/// A whole life of the real driver for one job: set up, the job taken over, one cycle, and the clean-up. Beyond the
/// outcome, which the caller judges, it checks what holds whatever the server does:
///  - the job came back exactly once;
///  - it is completed only when the reply that was read last, behind the end of data, was taken as success: it begins
///    with neither 4 nor 5, or it did not come in its time;
///  - no descriptor is left open.
/// `host`, a new one unless the test wants to see its log, lends the driver its services.
Outcome Deliver(ScriptedSmtpServer& server, const MessageBuilder& message, HostDoubles& host);
Outcome Deliver(ScriptedSmtpServer& server, const MessageBuilder& message);

/// A job for `server`, in clear or with TLS required.
MessageBuilder JobFor(const ScriptedSmtpServer& server, bool insideTls = false);
/// Options of a server that offers AUTH with `mechanisms` for the account of `WithAccount`, in clear or, after
/// STARTTLS, inside TLS alone.
SmtpServerOptions OfferingAccount(bool insideTls = false, const std::string& mechanisms = "PLAIN");
MessageBuilder WithAccount(MessageBuilder message);

/// A reply without a byte: nothing is said for so long, and then whatever the client says next is read.
Reply SilentFor(std::chrono::milliseconds length);

}  // namespace kvtest
