#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "AcceptedSocketKit.h"
#include "Descriptors.h"
#include "TestPorts.h"

namespace {

using acceptedsocket::ExpectFailure;
using acceptedsocket::OpenSocket;
using acceptedsocket::Peer;
using acceptedsocket::ThrownBy;

constexpr const char* kSource = "../src/KvioClientSocket";

int Option(const KvioSocket& socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(socket.GetSocket(), level, name, &value, &size), 0);
    return value;
}

class AcceptedSocketConnect : public testing::Test {
protected:
    void TearDown() override { socket.Close(); }

    int ConnectTo(const std::string& host, int port, KvioSocket::SocketType type = KvioSocket::SOCKET_TCP) {
        return socket.Connect(host, port, type);
    }

    OpenSocket socket;
};

TEST_F(AcceptedSocketConnect, AnswersZeroAndReachesTheListener) {
    Peer peer;
    EXPECT_EQ(ConnectTo("127.0.0.1", peer.port()), 0);
    peer.Accept();
    EXPECT_EQ(socket.Write("hello"), 5);
    EXPECT_EQ(peer.Receive(5), "hello");
}

TEST_F(AcceptedSocketConnect, StoresHostAndPortAsGiven) {
    Peer peer;
    ConnectTo("localhost", peer.port());
    EXPECT_EQ(socket.GetRemoteAddress(), "localhost:" + std::to_string(peer.port()));
}

TEST_F(AcceptedSocketConnect, ResolvesAName) {
    Peer peer;
    ConnectTo("localhost", peer.port());
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(getpeername(socket.GetSocket(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(address.sin_port, htons(static_cast<in_port_t>(peer.port())));
}

TEST_F(AcceptedSocketConnect, TcpIsAStreamOfTheInternetFamily) {
    Peer peer;
    ConnectTo("127.0.0.1", peer.port());
    EXPECT_EQ(Option(socket, SOL_SOCKET, SO_DOMAIN), AF_INET);
    EXPECT_EQ(Option(socket, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(Option(socket, SOL_SOCKET, SO_PROTOCOL), IPPROTO_TCP);
}

TEST_F(AcceptedSocketConnect, UdpIsADatagramSocketOfProtocol17) {
    EXPECT_EQ(ConnectTo("127.0.0.1", 9, KvioSocket::SOCKET_UDP), 0);
    EXPECT_EQ(Option(socket, SOL_SOCKET, SO_DOMAIN), AF_INET);
    EXPECT_EQ(Option(socket, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(Option(socket, SOL_SOCKET, SO_PROTOCOL), 17);
}

TEST_F(AcceptedSocketConnect, IcmpIsARawSocketOfProtocol1WhereTheSystemAllowsIt) {
    const kvtest::ScopedDescriptor probe(::socket(AF_INET, SOCK_RAW, IPPROTO_ICMP));
    if (probe.valid()) {
        EXPECT_EQ(ConnectTo("127.0.0.1", 0, KvioSocket::SOCKET_ICMP), 0);
        EXPECT_EQ(Option(socket, SOL_SOCKET, SO_TYPE), SOCK_RAW);
        EXPECT_EQ(Option(socket, SOL_SOCKET, SO_PROTOCOL), 1);
    } else {
        ExpectFailure(ThrownBy([&] { ConnectTo("127.0.0.1", 0, KvioSocket::SOCKET_ICMP); }), "127.0.0.1:0",
                      kSource, 123, "Socket Create Failed");
    }
}

TEST_F(AcceptedSocketConnect, LetsUnacknowledgedDataStayTenSeconds) {
    Peer peer;
    ConnectTo("127.0.0.1", peer.port());
    EXPECT_EQ(Option(socket, IPPROTO_TCP, TCP_USER_TIMEOUT), 10000);
}

TEST_F(AcceptedSocketConnect, AllowsTheAddressToBeReused) {
    Peer peer;
    ConnectTo("127.0.0.1", peer.port());
    EXPECT_NE(Option(socket, SOL_SOCKET, SO_REUSEADDR), 0);
}

TEST_F(AcceptedSocketConnect, AllowsTheAddressOfADatagramSocketToBeReused) {
    ConnectTo("127.0.0.1", 9, KvioSocket::SOCKET_UDP);
    EXPECT_NE(Option(socket, SOL_SOCKET, SO_REUSEADDR), 0);
}

TEST_F(AcceptedSocketConnect, SendsSmallWritesAtOnce) {
    Peer peer;
    ConnectTo("127.0.0.1", peer.port());
    EXPECT_NE(Option(socket, IPPROTO_TCP, TCP_NODELAY), 0);
}

TEST_F(AcceptedSocketConnect, ClosesTheDescriptorOnExec) {
    Peer peer;
    ConnectTo("127.0.0.1", peer.port());
    EXPECT_NE(fcntl(socket.GetSocket(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(AcceptedSocketConnect, LeavesTheDescriptorBlocking) {
    Peer peer;
    ConnectTo("127.0.0.1", peer.port());
    EXPECT_EQ(fcntl(socket.GetSocket(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(AcceptedSocketConnect, ToAClosedPortThrows) {
    const kvtest::RefusingPort port;
    ExpectFailure(ThrownBy([&] { ConnectTo("127.0.0.1", port.port()); }), port.address(), kSource, 149,
                  "Socket Connecting Failed");
}

TEST_F(AcceptedSocketConnect, ThrowsWithoutASystemMessage) {
    const kvtest::RefusingPort port;
    EXPECT_EQ(ThrownBy([&] { ConnectTo("127.0.0.1", port.port()); }).ToString(),
              "Exception raised! IO path[" + port.address() +
                  "] File[../src/KvioClientSocket] Line[149] Msg[Socket Connecting Failed] SysMsg[]");
}

TEST_F(AcceptedSocketConnect, ThatFailsLeavesTheDescriptorOpenForClose) {
    const kvtest::RefusingPort port;
    const int before = kvtest::OpenDescriptorCount();
    ThrownBy([&] { ConnectTo("127.0.0.1", port.port()); });
    EXPECT_GE(socket.GetSocket(), 0);
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before + 1);
    EXPECT_EQ(socket.Close(), 0);
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before);
}

// A name with an empty label is refused by the resolver itself, without a question to any server.
TEST_F(AcceptedSocketConnect, ToAnUnknownHostThrows) {
    KvioException failure = ThrownBy([&] { ConnectTo("no..such..host", 25); });
    ExpectFailure(failure, "no..such..host:25", kSource, 137, "Socket Unknown Remote Host");
    EXPECT_EQ(failure.GetSysMsg(), "");
}

TEST_F(AcceptedSocketConnect, ToAnUnknownHostLeavesTheDescriptorOpenForClose) {
    ThrownBy([&] { ConnectTo("no..such..host", 25); });
    EXPECT_GE(socket.GetSocket(), 0);
    EXPECT_EQ(socket.Close(), 0);
}

TEST_F(AcceptedSocketConnect, WithAnUnknownTypeThrows) {
    KvioException failure =
        ThrownBy([&] { ConnectTo("127.0.0.1", 25, static_cast<KvioSocket::SocketType>(3)); });
    ExpectFailure(failure, "127.0.0.1:25", kSource, 127, "Socket Unknown Type");
    EXPECT_EQ(failure.GetSysMsg(), "");
}

TEST_F(AcceptedSocketConnect, ThatFailsHasStoredTheAddressAlready) {
    ThrownBy([&] { ConnectTo("127.0.0.1", 25, static_cast<KvioSocket::SocketType>(3)); });
    EXPECT_EQ(socket.GetRemoteAddress(), "127.0.0.1:25");
}

TEST_F(AcceptedSocketConnect, WaitsForAnAnswerWithoutATimeOutOfItsOwn) {
    auto port = std::make_unique<kvtest::UnansweringPort>();
    std::future<int> line = std::async(std::launch::async, [&, number = port->port()] {
        return ThrownBy([&] { ConnectTo("127.0.0.1", number); }).GetLine();
    });
    EXPECT_EQ(line.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    // Nobody listens any more: the next attempt of the system is refused.
    port.reset();
    EXPECT_EQ(line.get(), 149);
}

TEST_F(AcceptedSocketConnect, AgainStoresTheNewAddress) {
    Peer first;
    Peer second;
    ConnectTo("127.0.0.1", first.port());
    socket.Close();
    EXPECT_EQ(ConnectTo("127.0.0.1", second.port()), 0);
    EXPECT_EQ(socket.GetRemoteAddress(), second.address());
}

struct Creation {
    const char* name;
    KvioSocket::SocketType type;
    int line;
};

/// Allows the process no further descriptor while it lives.
class NoDescriptorLeft {
public:
    NoDescriptorLeft() {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit none = m_before;
        none.rlim_cur = 0;
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptorLeft() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptorLeft(const NoDescriptorLeft&) = delete;
    NoDescriptorLeft& operator=(const NoDescriptorLeft&) = delete;

private:
    rlimit m_before{};
};

class AcceptedSocketCreation : public testing::TestWithParam<Creation> {};

TEST_P(AcceptedSocketCreation, ThrowsWhenTheSystemHasNoDescriptor) {
    OpenSocket socket;
    KvioException failure = ThrownBy([&] {
        const NoDescriptorLeft none;
        socket.Connect("127.0.0.1", 25, GetParam().type);
    });
    ExpectFailure(failure, "127.0.0.1:25", kSource, GetParam().line, "Socket Create Failed");
    EXPECT_EQ(failure.GetSysMsg(), "");
    EXPECT_EQ(socket.GetSocket(), -1);
}

INSTANTIATE_TEST_SUITE_P(Types, AcceptedSocketCreation,
                         testing::Values(Creation{"Tcp", KvioSocket::SOCKET_TCP, 101},
                                         Creation{"Udp", KvioSocket::SOCKET_UDP, 110},
                                         Creation{"Icmp", KvioSocket::SOCKET_ICMP, 123}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
