#include "hostile/VirtualTime.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "Eventually.h"
#include "KvThreadRegistry.h"

// The program is linked with --wrap for pselect, ppoll, usleep, pthread_create and the steady clock: calls of them
// arrive at the __wrap functions below.

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kBound{10000};
constexpr useconds_t kLongestPause = 1000;
constexpr useconds_t kPauseInWhichWorkersEnd = 500000;

thread_local milliseconds t_ahead{0};  ///< how far the clock of this thread is ahead of the real one

std::atomic<bool> g_alwaysReady{false};

/// The time that servers let pass and that no wait has taken yet, oldest first.
class PassingTime {
public:
    PassingTime() : m_door(eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE | EFD_NONBLOCK)) {}
    ~PassingTime() { close(m_door); }
    PassingTime(const PassingTime&) = delete;
    PassingTime& operator=(const PassingTime&) = delete;

    /// Readable while there is any.
    int Descriptor() const { return m_door; }

    bool Pass(milliseconds length) {
        std::unique_lock hold(m_mutex);
        m_lengths.push_back(length);
        const std::uint64_t one = 1;
        if (write(m_door, &one, sizeof(one)) != sizeof(one)) {
            return false;
        }
        const int number = ++m_offered;
        return m_changed.wait_for(hold, kBound, [&] { return m_taken >= number; });
    }

    std::optional<milliseconds> Take() {
        const std::lock_guard hold(m_mutex);
        std::uint64_t one = 0;
        if (m_lengths.empty() || read(m_door, &one, sizeof(one)) != sizeof(one)) {
            return std::nullopt;
        }
        const milliseconds length = m_lengths.front();
        m_lengths.pop_front();
        m_passed += length;
        ++m_taken;
        m_changed.notify_all();
        return length;
    }

    void NoteExpired() {
        const std::lock_guard hold(m_mutex);
        ++m_expired;
    }
    int Expired() {
        const std::lock_guard hold(m_mutex);
        return m_expired;
    }
    milliseconds Passed() {
        const std::lock_guard hold(m_mutex);
        return m_passed;
    }

private:
    const int m_door;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    // Guarded by m_mutex.
    std::deque<milliseconds> m_lengths;
    milliseconds m_passed{0};
    int m_offered = 0;
    int m_taken = 0;
    int m_expired = 0;
};

PassingTime& Time() {
    static PassingTime time;
    return time;
}

/// The threads that the driver has started.
class StartedThreads {
public:
    void Note(pthread_t id) {
        const std::lock_guard hold(m_mutex);
        m_ids.push_back(id);
    }
    /// The registry of threads is asked without the lock: it is held itself where a thread is noted.
    bool AllGone() {
        std::vector<pthread_t> ids;
        {
            const std::lock_guard hold(m_mutex);
            ids.swap(m_ids);
        }
        std::erase_if(ids, [](pthread_t id) { return !KvThreadRegistry::IsAlive(id); });
        const std::lock_guard hold(m_mutex);
        m_ids.insert(m_ids.end(), ids.begin(), ids.end());
        return m_ids.empty();
    }

private:
    std::mutex m_mutex;
    std::vector<pthread_t> m_ids;  ///< guarded by m_mutex
};

StartedThreads& Threads() {
    static StartedThreads threads;
    return threads;
}

milliseconds LengthOf(const timespec& time) {
    return milliseconds(static_cast<long long>(time.tv_sec) * 1000 + time.tv_nsec / 1000000);
}

}  // namespace

extern "C" {

int __real_ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask);
int __real_usleep(useconds_t microseconds);
int __real_pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*routine)(void*),
                          void* argument);
steady_clock::time_point __real__ZNSt6chrono3_V212steady_clock3nowEv();

steady_clock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
    return __real__ZNSt6chrono3_V212steady_clock3nowEv() + t_ahead;
}

int __wrap_ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    if (count != 1 || (timeout != nullptr && LengthOf(*timeout).count() == 0)) {
        return __real_ppoll(descriptors, count, timeout, mask);
    }
    milliseconds waited{0};
    const sigset_t* const opened = g_alwaysReady ? nullptr : mask;
    for (;;) {
        pollfd watched[] = {descriptors[0], {Time().Descriptor(), POLLIN, 0}};
        const int result = __real_ppoll(watched, 2, nullptr, opened);
        if (result == -1) {
            return result;
        }
        descriptors[0].revents = watched[0].revents;
        if (watched[0].revents != 0) {
            return 1;
        }
        const milliseconds passed = Time().Take().value_or(milliseconds(0));
        t_ahead += passed;
        waited += passed;
        if (timeout != nullptr && waited >= LengthOf(*timeout)) {
            Time().NoteExpired();
            return 0;
        }
    }
}

/// The driver waits for one descriptor at a time, the highest one, until it is readable.
int __wrap_pselect(int limit, fd_set* reads, fd_set*, fd_set*, const timespec* timeout,
                   const sigset_t* mask) {
    pollfd descriptor{limit - 1, POLLIN, 0};
    const int result = __wrap_ppoll(&descriptor, 1, timeout, mask);
    if (result == 0) {
        auto* const words = reinterpret_cast<fd_mask*>(reads);
        const auto bits = static_cast<std::size_t>(8 * sizeof(fd_mask));
        words[static_cast<std::size_t>(limit - 1) / bits] = 0;
    }
    return result;
}

/// Pauses are short, and the one in which the workers end is over when they have.
int __wrap_usleep(useconds_t microseconds) {
    if (microseconds == kPauseInWhichWorkersEnd) {
        kvtest::Eventually([] { return Threads().AllGone(); }, milliseconds(kPauseInWhichWorkersEnd / 1000));
        return 0;
    }
    return __real_usleep(std::min(microseconds, kLongestPause));
}

int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*routine)(void*),
                          void* argument) {
    const int result = __real_pthread_create(id, attributes, routine, argument);
    if (result == 0) {
        Threads().Note(*id);
    }
    return result;
}
}

namespace kvtest {

bool VirtualTime::Pass(milliseconds length) {
    return Time().Pass(length);
}

int VirtualTime::ExpiredWaits() {
    return Time().Expired();
}

milliseconds VirtualTime::Passed() {
    return Time().Passed();
}

AlwaysReady::AlwaysReady() {
    g_alwaysReady = true;
}

AlwaysReady::~AlwaysReady() {
    g_alwaysReady = false;
}

}  // namespace kvtest
