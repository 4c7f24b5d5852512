#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CarrierHealth.h"
#include "Duration.h"

namespace kvhost {

/// How long a probe waits. Immutable value.
struct ProbeLimits {
    Milliseconds connect{5000};
    Milliseconds greeting{5000};
};

/// Looks at mail servers: a TCP connection, the server's greeting, QUIT. Every look has a thread of its own, so that
/// nobody waits for one. One thread at a time.
class CarrierProbe {
public:
    struct Finding {
        std::string carrier;
        ProbeResult result;
    };

    /// `onFinding` is called on a probe's thread when there is something for TakeFindings; it is thread-safe, throws
    /// nothing and outlives the object.
    explicit CarrierProbe(std::function<void()> onFinding);
    /// Breaks off what is under way. A look that is still asking for the address of a name is left behind after a
    /// second: nothing can break that off.
    ~CarrierProbe();
    CarrierProbe(const CarrierProbe&) = delete;
    CarrierProbe& operator=(const CarrierProbe&) = delete;

    /// Begins to look at `server`, "host" or "host:port". Throws std::system_error when no thread can be started.
    void Begin(const std::string& carrier, const std::string& server, const ProbeLimits& limits);
    /// What was found since the last call.
    std::vector<Finding> TakeFindings();

private:
    struct Shared;
    const std::shared_ptr<Shared> m_pShared;
};

/// One look, on the calling thread. `breakOff`: a descriptor that ends it at once when it becomes readable; -1 for none.
ProbeResult ProbeServer(const std::string& server, const ProbeLimits& limits, int breakOff);

}  // namespace kvhost
