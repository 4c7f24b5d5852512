// The configuration of the host: any file gives a configuration or BadInput, and what is wrong is told in visible text.
#include <sys/mman.h>
#include <unistd.h>

#include <set>

#include "ConfigReader.h"
#include "InputChecks.h"
#include "Problem.h"
#include "support/Check.h"
#include "support/HostInputs.h"
#include "support/Input.h"

namespace {

/// A file in memory that the reader finds by its path.
class MemoryFile {
public:
    MemoryFile() : m_fd(::memfd_create("kvhost.toml", MFD_CLOEXEC)) { KV_FUZZ_CHECK(m_fd >= 0); }
    ~MemoryFile() { ::close(m_fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void Fill(const std::uint8_t* data, std::size_t size) {
        KV_FUZZ_CHECK(::ftruncate(m_fd, 0) == 0);
        KV_FUZZ_CHECK(::pwrite(m_fd, data, size, 0) == static_cast<ssize_t>(size));
    }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

private:
    const int m_fd;
};

void CheckLines(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        KV_FUZZ_CHECK(kvfuzz::IsVisible(text.substr(at, end - at)));
        at = end + 1;
    }
}

void CheckRetry(const kvhost::RetryPolicy& policy) {
    KV_FUZZ_CHECK(policy.first.count() >= 1 && policy.longest >= policy.first);
    KV_FUZZ_CHECK(policy.factor >= 1 && policy.factor <= 100);
    KV_FUZZ_CHECK(policy.jitter >= 0 && policy.jitter <= 1);
    KV_FUZZ_CHECK(policy.lifetime.count() >= 0 && policy.attempts >= 0 && policy.unclearAttempts >= 0);
}

void CheckCarriers(const kvhost::HostConfig& config) {
    std::set<unsigned long> ids;
    for (const auto& [name, carrier] : config.carriers) {
        KV_FUZZ_CHECK(carrier.name == name && !kvhost::WhyNotAName(name));
        KV_FUZZ_CHECK(carrier.id != 0 && ids.insert(carrier.id).second);
        KV_FUZZ_CHECK(!carrier.server.empty() && !kvhost::WhyNotAnAddress(carrier.sender));
        KV_FUZZ_CHECK(config.refusedCarriers.count(name) == 0);
        // An account is whole or there is none, and neither half can take a connection's key apart.
        KV_FUZZ_CHECK(carrier.user.empty() == carrier.password.empty());
        KV_FUZZ_CHECK((carrier.user + carrier.password).find("}-{") == std::string::npos);
        const bool wantsTls = carrier.security >= SMTP_SECURITY_IF_AVAILABLE;
        KV_FUZZ_CHECK(!wantsTls || !carrier.caFile.empty());
        CheckRetry(carrier.retry);
    }
    KV_FUZZ_CHECK(config.refusedCarriers.empty() || !config.problems.empty());
    for (const kvhost::Problem& problem : config.problems) {
        KV_FUZZ_CHECK(kvfuzz::IsVisible(kvhost::Describe(problem)));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static MemoryFile file;
    file.Fill(data, size);
    try {
        const kvhost::HostConfig config = kvhost::ReadConfig(file.Path());
        CheckCarriers(config);
        KV_FUZZ_CHECK(!config.http.takesJobs || config.http.token.size() >= 16);
        KV_FUZZ_CHECK(config.run.slice >= 1 && config.run.maxUnderWay >= 1 && config.run.tick.count() >= 1);
    } catch (const kvhost::BadInput& error) {
        CheckLines(error.what());
    }
    return 0;
}
