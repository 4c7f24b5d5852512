// One look at a mail server: address, connection, greeting.
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <system_error>

#include "CarrierProbe.h"
#include "OwnedDescriptor.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = ProbeResult::Kind;

constexpr const char* kStandardPort = "25";
constexpr std::string_view kQuit = "QUIT\r\n";
constexpr std::size_t kMostShown = 200;

std::string ErrorText(int error) {
    return std::generic_category().message(error);
}

ProbeResult Refused(const std::string& text) {
    return {Kind::Refuses, text};
}

ProbeResult Silent(const char* what, Milliseconds limit) {
    return {Kind::Silent, std::string(what) + " within " + DurationText(limit)};
}

/// Waits until the socket can do one of `events`. False when the time is up or the look is broken off.
bool WaitFor(int socket, short events, Milliseconds limit, int breakOff) {
    const Clock::time_point end = Clock::now() + limit;
    std::array<pollfd, 2> waits{{{socket, events, 0}, {breakOff, POLLIN, 0}}};
    for (;;) {
        const auto left = std::chrono::ceil<Milliseconds>(end - Clock::now()).count();
        const int ready = ::poll(waits.data(), waits.size(), static_cast<int>(std::max<long long>(left, 0)));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        return ready > 0 && waits[1].revents == 0;
    }
}

// The driver knows IPv4 only, so nothing else is of use.
std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> Resolve(const std::string& server, std::string& wrong) {
    const std::size_t colon = server.rfind(':');
    const std::string host = server.substr(0, colon);
    const std::string port = colon == std::string::npos ? kStandardPort : server.substr(colon + 1);
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found); error != 0) {
        wrong = "the address of " + MakeVisible(host) + " cannot be found: " + ::gai_strerror(error);
        found = nullptr;
    }
    return {found, &::freeaddrinfo};
}

/// Why the connection that was on its way did not come about; 0 when it did.
int ErrorOf(int socket) {
    int error = 0;
    socklen_t size = sizeof(error);
    return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

ProbeResult Connect(int socket, const addrinfo& address, Milliseconds limit, int breakOff) {
    int error = ::connect(socket, address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        if (!WaitFor(socket, POLLOUT, limit, breakOff)) {
            return Silent("no connection came about", limit);
        }
        error = ErrorOf(socket);
    }
    // The network's own time-out, where it is shorter than ours, is silence too.
    if (error == ETIMEDOUT) {
        return {Kind::Silent, "no connection came about: " + ErrorText(error)};
    }
    return error == 0 ? ProbeResult() : Refused("no connection came about: " + ErrorText(error));
}

/// The first bytes are enough: a server that speaks is no danger to the driver.
ProbeResult Greeting(int socket, Milliseconds limit, int breakOff) {
    if (!WaitFor(socket, POLLIN, limit, breakOff)) {
        return Silent("a connection, but no greeting", limit);
    }
    std::array<char, 512> bytes{};
    const ssize_t count = ::recv(socket, bytes.data(), bytes.size(), 0);
    if (count <= 0) {
        return Refused("a connection, but it was closed without a greeting");
    }
    const std::string text = StripLineEnd(std::string(bytes.data(), static_cast<std::size_t>(count)));
    return text.front() == '2'
               ? ProbeResult()
               : Refused("the server greets with \"" + MakeVisible(text.substr(0, kMostShown)) + "\"");
}

}  // namespace

ProbeResult ProbeServer(const std::string& server, const ProbeLimits& limits, int breakOff) {
    std::string wrong;
    const auto address = Resolve(server, wrong);
    if (!address) {
        return Refused(wrong);
    }
    const OwnedDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.Get() < 0) {
        return Refused("no socket: " + ErrorText(errno));
    }
    ProbeResult result = Connect(socket.Get(), *address, limits.connect, breakOff);
    if (result.kind == Kind::Answers) {
        result = Greeting(socket.Get(), limits.greeting, breakOff);
    }
    if (result.kind == Kind::Answers) {
        [[maybe_unused]] const auto sent = ::send(socket.Get(), kQuit.data(), kQuit.size(), MSG_NOSIGNAL);
    }
    return result;
}

}  // namespace kvhost
