#include "LoopbackSocket.h"

#include <linux/filter.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace kvtest {

namespace {

void Require(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

ScopedDescriptor TcpSocket(int flags) {
    ScopedDescriptor result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    Require(result.valid(), "socket");
    return result;
}

void SwitchOn(const ScopedDescriptor& socket, int level, int option) {
    const int on = 1;
    Require(setsockopt(socket.get(), level, option, &on, sizeof on) == 0, "setsockopt");
}

}  // namespace

ScopedDescriptor BoundSocket(int port, int flags) {
    ScopedDescriptor result = TcpSocket(flags);
    SwitchOn(result, SOL_SOCKET, SO_REUSEADDR);
    const sockaddr_in address = Loopback(port);
    Require(bind(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    return result;
}

void Listen(const ScopedDescriptor& socket, int backlog) {
    Require(listen(socket.get(), backlog) == 0, "listen");
}

int PortOf(const ScopedDescriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    Require(getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    return ntohs(address.sin_port);
}

ScopedDescriptor ConnectingSocket(int port, int flags) {
    ScopedDescriptor result = TcpSocket(flags);
    const sockaddr_in address = Loopback(port);
    const int connected = connect(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    Require(connected == 0 || errno == EINPROGRESS, "connect");
    return result;
}

void CloseWithFin(ScopedDescriptor& socket) {
    shutdown(socket.get(), SHUT_WR);
    char buffer[16384];
    // Bounded, so that a peer which never stops sending cannot hold up the close.
    for (int i = 0; i < 64 && recv(socket.get(), buffer, sizeof buffer, MSG_DONTWAIT) > 0; ++i) {
    }
    socket.reset();
}

void CloseWithReset(ScopedDescriptor& socket) {
    const linger hard{1, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    socket.reset();
}

void DropWhatComes(const ScopedDescriptor& socket) {
    sock_filter takeNothing = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program{1, &takeNothing};
    Require(setsockopt(socket.get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0,
            "setsockopt");
}

void SendAtOnce(const ScopedDescriptor& socket) {
    SwitchOn(socket, IPPROTO_TCP, TCP_NODELAY);
}

}  // namespace kvtest
