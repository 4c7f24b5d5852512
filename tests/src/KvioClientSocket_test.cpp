#include "KvioClientSocket.h"

#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/resource.h>

#include "Descriptors.h"
#include "KvconThread.h"
#include "TestPorts.h"
#include "src/SocketDoubles.h"

namespace {

using kvtest::Bytes;
using kvtest::IoFailureOf;
using kvtest::IsOpen;
using kvtest::LoopbackListener;
using kvtest::ReceiveText;
using kvtest::ScopedDescriptor;
using kvtest::SendText;

int OptionOf(const KvioSocket& socket, int level, int option) {
    int value = -1;
    socklen_t size = sizeof(value);
    getsockopt(socket.GetSocket(), level, option, &value, &size);
    return value;
}

/// A client socket that closes its descriptor at the end of the test.
class KvioClientSocketTest : public ::testing::Test {
protected:
    ~KvioClientSocketTest() override { socket.Close(); }

    void Connect(const std::string& host = "127.0.0.1") {
        ASSERT_EQ(socket.Connect(host, listener.Port(), KvioSocket::SOCKET_TCP), 0);
    }
    std::string FailureOf(const std::string& host, int port,
                          KvioSocket::SocketType type = KvioSocket::SOCKET_TCP) {
        return IoFailureOf([&] { socket.Connect(host, port, type); });
    }

    LoopbackListener listener;
    KvioClientSocket socket;
};

TEST_F(KvioClientSocketTest, CloseOverridesTheSlotOfTheBase) {
    EXPECT_EQ(kvtest::SlotOf(&KvioClientSocket::Close), 2U);
    EXPECT_EQ(sizeof(KvioClientSocket), sizeof(KvioSocket));
}

TEST_F(KvioClientSocketTest, ConnectReachesTheServer) {
    Connect();
    const ScopedDescriptor peer = listener.Accept();
    socket.Write("ping");
    EXPECT_EQ(ReceiveText(peer.get(), 4), "ping");
    SendText(peer.get(), "pong\n");
    KvioSocket::SocketStatus status{};
    EXPECT_EQ(socket.ReadLine(20000, status), "pong\n");
}

TEST_F(KvioClientSocketTest, ConnectResolvesAName) {
    Connect("localhost");
    EXPECT_EQ(socket.GetRemoteAddress(), "localhost:" + std::to_string(listener.Port()));
}

TEST_F(KvioClientSocketTest, RemoteAddressIsThatOfTheLastConnectEvenWhenItFails) {
    const kvtest::RefusingPort refusing;
    IoFailureOf([&] { socket.Connect("127.0.0.1", refusing.port(), KvioSocket::SOCKET_TCP); });
    EXPECT_EQ(socket.GetRemoteAddress(), refusing.address());
}

TEST_F(KvioClientSocketTest, ConnectedSocketSendsSmallWritesAtOnce) {
    Connect();
    EXPECT_EQ(OptionOf(socket, IPPROTO_TCP, TCP_NODELAY), 1);
}

TEST_F(KvioClientSocketTest, UnacknowledgedDataMayStayTenSeconds) {
    Connect();
    EXPECT_EQ(OptionOf(socket, IPPROTO_TCP, TCP_USER_TIMEOUT), 10000);
}

TEST_F(KvioClientSocketTest, AddressMayBeReused) {
    Connect();
    EXPECT_EQ(OptionOf(socket, SOL_SOCKET, SO_REUSEADDR), 1);
}

TEST_F(KvioClientSocketTest, DescriptorIsCloseOnExec) {
    Connect();
    EXPECT_TRUE(kvtest::HasDescriptorFlag(socket.GetSocket(), FD_CLOEXEC));
}

TEST_F(KvioClientSocketTest, ConnectedDescriptorBlocks) {
    Connect();
    EXPECT_FALSE(kvtest::HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
}

TEST_F(KvioClientSocketTest, CloseReleasesTheDescriptor) {
    Connect();
    EXPECT_EQ(socket.Close(), 0);
    EXPECT_FALSE(IsOpen(socket.GetSocket()));
}

TEST_F(KvioClientSocketTest, DestructionLeavesTheDescriptorOpen) {
    int number = -1;
    {
        KvioClientSocket other;
        other.Connect("127.0.0.1", listener.Port(), KvioSocket::SOCKET_TCP);
        number = other.GetSocket();
    }
    const ScopedDescriptor left(number);
    EXPECT_TRUE(IsOpen(number));
}

TEST_F(KvioClientSocketTest, ClosedSocketCanConnectAgain) {
    Connect();
    socket.Close();
    Connect();
    const ScopedDescriptor first = listener.Accept();
    const ScopedDescriptor second = listener.Accept();
    socket.Write("again");
    EXPECT_EQ(ReceiveText(second.get(), 5), "again");
    EXPECT_EQ(socket.Close(), 0);
}

TEST_F(KvioClientSocketTest, UdpSocketConnectsWithoutAServer) {
    const ScopedDescriptor peer(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(peer.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(socket.Connect("127.0.0.1", kvtest::PortOf(peer), KvioSocket::SOCKET_UDP), 0);
    EXPECT_EQ(socket.Write("datagram"), 8);
    EXPECT_EQ(ReceiveText(peer.get(), 8), "datagram");
}

// --- failures ---

TEST_F(KvioClientSocketTest, RefusedConnectThrowsWithoutASystemMessage) {
    const kvtest::RefusingPort refusing;
    EXPECT_EQ(FailureOf("127.0.0.1", refusing.port()),
              "Exception raised! IO path[" + refusing.address() +
                  "] File[../src/KvioClientSocket] Line[149] Msg[Socket Connecting Failed] SysMsg[]");
}

TEST_F(KvioClientSocketTest, FailedConnectLeavesTheDescriptorOpenUntilClose) {
    const kvtest::RefusingPort refusing;
    FailureOf("127.0.0.1", refusing.port());
    EXPECT_TRUE(IsOpen(socket.GetSocket()));
    EXPECT_FALSE(kvtest::HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
    EXPECT_EQ(socket.Close(), 0);
}

TEST_F(KvioClientSocketTest, UnknownHostThrows) {
    const std::string host(300, 'x');  // longer than a name can be, so that no server is asked
    EXPECT_EQ(FailureOf(host, 25), "Exception raised! IO path[" + host +
                                       ":25] File[../src/KvioClientSocket] Line[137] "
                                       "Msg[Socket Unknown Remote Host] SysMsg[]");
    EXPECT_TRUE(IsOpen(socket.GetSocket()));
}

TEST_F(KvioClientSocketTest, EmptyHostIsUnknown) {
    EXPECT_EQ(FailureOf("", 25),
              "Exception raised! IO path[:25] File[../src/KvioClientSocket] Line[137] "
              "Msg[Socket Unknown Remote Host] SysMsg[]");
}

TEST_F(KvioClientSocketTest, UnknownTypeThrowsBeforeAnythingIsMade) {
    EXPECT_EQ(FailureOf("127.0.0.1", -5, static_cast<KvioSocket::SocketType>(3)),
              "Exception raised! IO path[127.0.0.1:-5] File[../src/KvioClientSocket] Line[127] "
              "Msg[Socket Unknown Type] SysMsg[]");
    EXPECT_EQ(socket.GetSocket(), -1);
}

/// While it lives, no descriptor can be made.
class NoMoreDescriptors {
public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none{0, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit m_before{};
};

class KvioClientSocketCreateTest
    : public KvioClientSocketTest,
      public ::testing::WithParamInterface<std::pair<KvioSocket::SocketType, int>> {};

TEST_P(KvioClientSocketCreateTest, SocketThatCannotBeMadeThrowsTheLineOfItsType) {
    const auto [type, line] = GetParam();
    std::string failure;
    {
        const NoMoreDescriptors full;
        failure = FailureOf("127.0.0.1", 25, type);
    }
    EXPECT_EQ(failure, "Exception raised! IO path[127.0.0.1:25] File[../src/KvioClientSocket] Line[" +
                           std::to_string(line) + "] Msg[Socket Create Failed] SysMsg[]");
    EXPECT_EQ(socket.GetSocket(), -1);
}

INSTANTIATE_TEST_SUITE_P(Types, KvioClientSocketCreateTest,
                         ::testing::Values(std::pair(KvioSocket::SOCKET_TCP, 101),
                                           std::pair(KvioSocket::SOCKET_UDP, 110),
                                           std::pair(KvioSocket::SOCKET_ICMP, 123)));

// --- waiting for the server ---

TEST_F(KvioClientSocketTest, InterruptedConnectThrows) {
    const kvtest::UnansweringPort unanswering;
    std::string failure;
    kvtest::RunInterrupted([&] { failure = FailureOf("127.0.0.1", unanswering.port()); });
    EXPECT_EQ(failure,
              "Exception raised! IO path[" + unanswering.address() +
                  "] File[../src/KvioClientSocket] Line[149] Msg[Socket Connecting Failed] SysMsg[]");
}

TEST_F(KvioClientSocketTest, WorkerIsEndedInAConnectThatIsNotAnswered) {
    const kvtest::SavedSignalHandlers handlers;
    KvconThread::InitializeLibrary();
    const kvtest::UnansweringPort unanswering;
    kvtest::EndableThread worker([&] { FailureOf("127.0.0.1", unanswering.port()); });
    EXPECT_TRUE(worker.End());
    EXPECT_TRUE(IsOpen(socket.GetSocket()));
    EXPECT_FALSE(kvtest::HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
}

TEST_F(KvioClientSocketTest, DescriptorsAbove1024Connect) {
    const kvtest::OccupiedDescriptors occupied(1100);
    Connect();
    EXPECT_GE(socket.GetSocket(), 1100);
    const ScopedDescriptor peer = listener.Accept();
    EXPECT_EQ(socket.Wait(false, true, 20000), 34);
    socket.Write("ping");
    EXPECT_EQ(ReceiveText(peer.get(), 4), "ping");
}

TEST_F(KvioClientSocketTest, WriteToAServerThatResetRaisesNoSigPipe) {
    Connect();
    ScopedDescriptor peer = listener.Accept();
    kvtest::CloseWithReset(peer);
    ASSERT_EQ(socket.Wait(true, false, 20000), 33);  // the reset is here
    EXPECT_THROW(socket.Write("x"), KvioException);
    EXPECT_THROW(socket.Write("x"), KvioException);
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

}  // namespace
