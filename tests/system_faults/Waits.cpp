#include "system_faults/Waits.h"

#include <sys/select.h>

#include <cerrno>
#include <mutex>
#include <optional>

// The program is linked with --wrap=pselect: calls of pselect arrive at __wrap_pselect.

namespace {

std::mutex g_mutex;
std::optional<kvtest::EndedWaits::How> g_how;  ///< guarded by g_mutex
std::vector<long> g_timeouts;                  ///< guarded by g_mutex

/// What this wait ends with when it is to end at once.
std::optional<kvtest::EndedWaits::How> EndOfWait(const timespec& timeout) {
    const std::lock_guard hold(g_mutex);
    if (g_how) {
        g_timeouts.push_back(timeout.tv_sec * 1000 + timeout.tv_nsec / 1000000);
    }
    return g_how;
}

}  // namespace

extern "C" {

int __real_pselect(int limit, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* timeout,
                   const sigset_t* mask);

int __wrap_pselect(int limit, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* timeout,
                   const sigset_t* mask) {
    const auto end = timeout != nullptr ? EndOfWait(*timeout) : std::nullopt;
    if (!end) {
        return __real_pselect(limit, reads, writes, errors, timeout, mask);
    }
    errno = EINTR;
    return *end == kvtest::EndedWaits::How::Interrupted ? -1 : 0;
}
}

namespace kvtest {

EndedWaits::EndedWaits(How how) {
    const std::lock_guard hold(g_mutex);
    g_timeouts.clear();
    g_how = how;
}

EndedWaits::~EndedWaits() {
    const std::lock_guard hold(g_mutex);
    g_how.reset();
}

std::vector<long> EndedWaits::timeouts() const {
    const std::lock_guard hold(g_mutex);
    return g_timeouts;
}

}  // namespace kvtest
