#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace kvruntest {

/// The service manager's end of notifications. `name`: a path, or "@" and an abstract name. One thread at a time.
class NotifySocket {
public:
    explicit NotifySocket(const std::string& name)
        : m_strName(name), m_fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(name.begin(), name.end(), address.sun_path);
        if (name[0] == '@') {
            address.sun_path[0] = '\0';
        }
        const auto size =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (name[0] == '@' ? 0 : 1));
        if (::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
            throw std::runtime_error("no socket " + name);
        }
    }
    ~NotifySocket() { ::close(m_fd); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    const std::string& Name() const { return m_strName; }
    /// The next message; empty when none comes within 20 s.
    std::string Receive() const {
        pollfd wait{m_fd, POLLIN, 0};
        if (::poll(&wait, 1, 20000) != 1) {
            return {};
        }
        std::array<char, 4096> bytes{};
        const ssize_t count = ::recv(m_fd, bytes.data(), bytes.size(), 0);
        return std::string(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    /// Receives until a message begins with `text`; false when none comes in time.
    bool WaitFor(const std::string& text) const {
        for (std::string message = Receive(); !message.empty(); message = Receive()) {
            if (message.rfind(text, 0) == 0) {
                return true;
            }
        }
        return false;
    }

private:
    const std::string m_strName;
    const int m_fd;
};

}  // namespace kvruntest
