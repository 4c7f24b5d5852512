#include "ServiceNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <ctime>

#include "VisibleText.h"

namespace kvhost {

namespace {

std::string TakeVariable(const char* name) {
    const char* value = std::getenv(name);
    const std::string text = value != nullptr ? value : "";
    ::unsetenv(name);
    return text;
}

std::optional<Milliseconds> HalfOf(const std::string& microseconds, const std::string& process) {
    const long long limit = std::atoll(microseconds.c_str());
    const bool isForUs = process.empty() || process == std::to_string(::getpid());
    if (limit <= 0 || !isForUs) {
        return std::nullopt;
    }
    return std::max(Milliseconds(1), Milliseconds(limit / 2000));
}

/// The clock that the manager compares with, in microseconds.
std::string MonotonicMicroseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::to_string(static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000);
}

std::string StatusLine(const std::string& status) {
    return "STATUS=" + MakeVisible(status) + "\n";
}

}  // namespace

ServiceNotifier::ServiceNotifier() : m_strSocket(TakeVariable("NOTIFY_SOCKET")) {
    const std::string process = TakeVariable("WATCHDOG_PID");
    const std::string microseconds = TakeVariable("WATCHDOG_USEC");
    const bool isAddress = m_strSocket.size() > 1 && (m_strSocket[0] == '/' || m_strSocket[0] == '@') &&
                           m_strSocket.size() < sizeof(sockaddr_un::sun_path);
    if (isAddress) {
        m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        m_watchdog = HalfOf(microseconds, process);
    }
}

ServiceNotifier::~ServiceNotifier() {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

void ServiceNotifier::Ready(const std::string& status) const {
    Send("READY=1\n" + StatusLine(status));
}

void ServiceNotifier::Reloading() const {
    Send("RELOADING=1\nMONOTONIC_USEC=" + MonotonicMicroseconds() + "\n");
}

void ServiceNotifier::Stopping(const std::string& status) const {
    Send("STOPPING=1\n" + StatusLine(status));
}

void ServiceNotifier::Status(const std::string& status) const {
    Send(StatusLine(status));
}

void ServiceNotifier::StillAlive() const {
    Send("WATCHDOG=1\n");
}

// An abstract name begins with a null byte and has no null byte at its end.
void ServiceNotifier::Send(const std::string& message) const {
    if (m_fd < 0) {
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(m_strSocket.begin(), m_strSocket.end(), address.sun_path);
    if (m_strSocket[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_strSocket.size() +
                                             (m_strSocket[0] == '@' ? 0 : 1));
    [[maybe_unused]] const auto sent = ::sendto(m_fd, message.data(), message.size(), MSG_NOSIGNAL,
                                                reinterpret_cast<const sockaddr*>(&address), size);
}

}  // namespace kvhost
