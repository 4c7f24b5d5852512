#include "Listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <system_error>

#include "StartError.h"

namespace kvsink {
namespace {

/// A socket address of either family.
struct Address {
    sockaddr_storage storage{};
    socklen_t length = sizeof(sockaddr_storage);

    sockaddr* generic() { return reinterpret_cast<sockaddr*>(&storage); }
    sockaddr_in& v4() { return reinterpret_cast<sockaddr_in&>(storage); }
    sockaddr_in6& v6() { return reinterpret_cast<sockaddr_in6&>(storage); }
    bool isV6() const { return storage.ss_family == AF_INET6; }
    std::uint16_t port() { return ntohs(isV6() ? v6().sin6_port : v4().sin_port); }
};

[[noreturn]] void fail(const std::string& address, const std::string& reason) {
    throw StartError("--listen", "\"" + address + "\": " + reason);
}

[[noreturn]] void failWithErrno(const std::string& address) {
    fail(address, std::generic_category().message(errno));
}

std::uint16_t parsePort(const std::string& address, std::string_view text) {
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, port);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) {
        fail(address, "the port is a number from 0 to 65535");
    }
    return port;
}

bool parseV4(const std::string& host, std::uint16_t port, Address& parsed) {
    parsed.v4().sin_family = AF_INET;
    parsed.v4().sin_port = htons(port);
    parsed.length = sizeof(sockaddr_in);
    const std::string& numeric = host == "localhost" ? "127.0.0.1" : host;
    return ::inet_pton(AF_INET, numeric.c_str(), &parsed.v4().sin_addr) == 1 &&
           ntohl(parsed.v4().sin_addr.s_addr) >> 24 == 127;
}

bool parseV6(const std::string& host, std::uint16_t port, Address& parsed) {
    parsed.v6().sin6_family = AF_INET6;
    parsed.v6().sin6_port = htons(port);
    parsed.length = sizeof(sockaddr_in6);
    parsed.v6().sin6_addr = in6addr_loopback;
    return host == "[::1]";
}

Address parse(const std::string& address) {
    const std::size_t colon = address.rfind(':');
    if (colon == std::string::npos) {
        fail(address, "give ADDRESS:PORT");
    }
    const std::string host = address.substr(0, colon);
    const std::uint16_t port = parsePort(address, std::string_view(address).substr(colon + 1));
    Address parsed;
    if (!(host.starts_with('[') ? parseV6(host, port, parsed) : parseV4(host, port, parsed))) {
        fail(address, "only loopback addresses are served: 127.0.0.1, [::1] or localhost");
    }
    return parsed;
}

void setOption(int fd, int level, int name) {
    const int on = 1;
    ::setsockopt(fd, level, name, &on, sizeof on);
}

FileDescriptor listenOn(const std::string& text, Address& address) {
    const int family = address.storage.ss_family;
    FileDescriptor socket(::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.get() < 0) {
        failWithErrno(text);
    }
    setOption(socket.get(), SOL_SOCKET, SO_REUSEADDR);
    const bool ready = ::bind(socket.get(), address.generic(), address.length) == 0 &&
                       ::listen(socket.get(), SOMAXCONN) == 0 &&
                       ::getsockname(socket.get(), address.generic(), &address.length) == 0;
    if (!ready) {
        failWithErrno(text);
    }
    return socket;
}

std::string hostText(Address& address) {
    char text[INET6_ADDRSTRLEN] = "";
    const void* const bytes = address.isV6() ? static_cast<const void*>(&address.v6().sin6_addr)
                                             : static_cast<const void*>(&address.v4().sin_addr);
    ::inet_ntop(address.storage.ss_family, bytes, text, sizeof text);
    return text;
}

FileDescriptor openReserve() {
    return FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

Listener::Listener(const std::string& address) : m_reserve(openReserve()) {
    Address bound = parse(address);
    m_socket = listenOn(address, bound);
    m_port = bound.port();
    const std::string host = hostText(bound);
    m_boundAddress = (bound.isV6() ? "[" + host + "]" : host) + ":" + std::to_string(m_port);
}

std::optional<Arrival> Listener::accept() {
    for (;;) {
        Address peer;
        FileDescriptor socket(
            ::accept4(m_socket.get(), peer.generic(), &peer.length, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (socket.get() >= 0) {
            setOption(socket.get(), IPPROTO_TCP, TCP_NODELAY);
            return Arrival{std::move(socket), hostText(peer)};
        }
        if (errno == EMFILE || errno == ENFILE) {
            turnAway();
            return std::nullopt;
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            return std::nullopt;
        }
    }
}

void Listener::turnAway() {
    m_reserve.reset();
    FileDescriptor(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC)).reset();
    m_reserve = openReserve();
}

}  // namespace kvsink
