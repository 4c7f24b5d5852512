#include "driver_faults/Interceptions.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "KvEmailDriver.h"

// The program is linked with --wrap for usleep, recv, KvEmailDriver::IsAlive and KvEmailDriver::Close: calls of
// them arrive at the __wrap functions below.

namespace {

thread_local std::vector<unsigned int>* t_pauses = nullptr;
thread_local int* t_repliesLeft = nullptr;
thread_local const std::function<void()>* t_engineAction = nullptr;

}  // namespace

extern "C" {

int __real_usleep(useconds_t microseconds);
ssize_t __real_recv(int socket, void* buffer, size_t size, int flags);
bool __real__ZN13KvEmailDriver7IsAliveEv(KvEmailDriver* engine);
void __real__ZN13KvEmailDriver5CloseEv(KvEmailDriver* engine);

int __wrap_usleep(useconds_t microseconds) {
    if (t_pauses == nullptr) {
        return __real_usleep(microseconds);
    }
    t_pauses->push_back(microseconds);
    return 0;
}

ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags) {
    if (t_repliesLeft == nullptr) {
        return __real_recv(socket, buffer, size, flags);
    }
    if (*t_repliesLeft == 0) {
        errno = ETIMEDOUT;
        return -1;
    }
    const ssize_t received = __real_recv(socket, buffer, size, flags);
    if (received > 0) {
        --*t_repliesLeft;
    }
    return received;
}

bool __wrap__ZN13KvEmailDriver7IsAliveEv(KvEmailDriver* engine) {
    if (t_engineAction == nullptr) {
        return __real__ZN13KvEmailDriver7IsAliveEv(engine);
    }
    (*t_engineAction)();
    return true;
}

void __wrap__ZN13KvEmailDriver5CloseEv(KvEmailDriver* engine) {
    if (t_engineAction == nullptr) {
        __real__ZN13KvEmailDriver5CloseEv(engine);
    } else {
        (*t_engineAction)();
    }
}
}

namespace kvtest {

RecordedPauses::RecordedPauses() {
    t_pauses = &m_microseconds;
}

RecordedPauses::~RecordedPauses() {
    t_pauses = nullptr;
}

TimedOutReceive::TimedOutReceive(int replies) {
    static thread_local int left;
    left = replies;
    t_repliesLeft = &left;
}

TimedOutReceive::~TimedOutReceive() {
    t_repliesLeft = nullptr;
}

EngineCallsReplaced::EngineCallsReplaced(const std::function<void()>& action) : m_action(action) {
    t_engineAction = &m_action;
}

EngineCallsReplaced::~EngineCallsReplaced() {
    t_engineAction = nullptr;
}

}  // namespace kvtest
