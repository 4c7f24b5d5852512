#include "KvioClientSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "KvEndSignals.h"
#include "KvNonBlockingMode.h"
#include "KvioException.h"

namespace {

constexpr const char* kSource = "../src/KvioClientSocket";
constexpr int kLineCreateTcp = 101;
constexpr int kLineCreateUdp = 110;
constexpr int kLineCreateIcmp = 123;
constexpr int kLineUnknownType = 127;
constexpr int kLineUnknownHost = 137;
constexpr int kLineConnect = 149;

constexpr int kUnacknowledgedLimitMs = 10000;

void SetOption(int descriptor, int level, int option, int value) {
    setsockopt(descriptor, level, option, &value, sizeof(value));
}

/// The first IPv4 address of `host`. False when there is none.
bool Resolve(const std::string& host, in_addr& address) {
    std::vector<char> buffer(1024);
    hostent entry{};
    hostent* found = nullptr;
    int error = 0;
    while (gethostbyname_r(host.c_str(), &entry, buffer.data(), buffer.size(), &found, &error) == ERANGE) {
        buffer.resize(2 * buffer.size());
    }
    if (found == nullptr || found->h_addrtype != AF_INET || found->h_addr_list[0] == nullptr) {
        return false;
    }
    std::memcpy(&address, found->h_addr_list[0], sizeof(address));
    return true;
}

/// Waits for the end of a connect that is under way.
bool AwaitConnected(int descriptor) {
    int error = 0;
    socklen_t size = sizeof(error);
    return KvEndSignals::Await(descriptor, POLLOUT, -1) > 0 &&
           getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

}  // namespace

int KvioClientSocket::Close() {
    return KvioSocket::Close();
}

int KvioClientSocket::Connect(const std::string& host, int port, SocketType type) {
    m_strRemoteAddress = host + ":" + std::to_string(port);
    CreateDescriptor(type);
    SetOptions(type);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    if (!Resolve(host, address.sin_addr)) {
        throw KvioException(m_strRemoteAddress, kSource, kLineUnknownHost, "Socket Unknown Remote Host");
    }
    if (!ConnectTo(address)) {
        throw KvioException(m_strRemoteAddress, kSource, kLineConnect, "Socket Connecting Failed");
    }
    return 0;
}

void KvioClientSocket::CreateDescriptor(SocketType type) {
    switch (type) {
        case SOCKET_TCP:
            return CreateDescriptor(SOCK_STREAM, 0, kLineCreateTcp);
        case SOCKET_UDP:
            return CreateDescriptor(SOCK_DGRAM, IPPROTO_UDP, kLineCreateUdp);
        case SOCKET_ICMP:
            return CreateDescriptor(SOCK_RAW, IPPROTO_ICMP, kLineCreateIcmp);
    }
    throw KvioException(m_strRemoteAddress, kSource, kLineUnknownType, "Socket Unknown Type");
}

void KvioClientSocket::CreateDescriptor(int kind, int protocol, int line) {
    m_socket = socket(AF_INET, kind | SOCK_CLOEXEC, protocol);
    if (m_socket == -1) {
        throw KvioException(m_strRemoteAddress, kSource, line, "Socket Create Failed");
    }
}

// The results do not matter: a socket without one of these options still works.
void KvioClientSocket::SetOptions(SocketType type) {
    SetOption(m_socket, IPPROTO_TCP, TCP_USER_TIMEOUT, kUnacknowledgedLimitMs);
    SetOption(m_socket, SOL_SOCKET, SO_REUSEADDR, 1);
    if (type == SOCKET_TCP) {
        SetOption(m_socket, IPPROTO_TCP, TCP_NODELAY, 1);
    }
}

bool KvioClientSocket::ConnectTo(const sockaddr_in& address) {
    const KvNonBlockingMode nonBlocking(m_socket);
    if (connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return true;
    }
    return errno == EINPROGRESS && AwaitConnected(m_socket);
}
