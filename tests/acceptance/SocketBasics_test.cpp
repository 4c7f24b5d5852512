#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <type_traits>

#include "AcceptedSocketKit.h"
#include "KvioSocketEventHandler.h"
#include "Kvobject.h"

namespace {

using acceptedsocket::ConnectedSocketTest;
using acceptedsocket::OpenSocket;
using kvtest::ScopedDescriptor;

class AcceptedSocketBasics : public ConnectedSocketTest {};

class CountingHandler : public KvioSocketEventHandler {
public:
    explicit CountingHandler(int& deleted) : m_deleted(deleted) {}
    ~CountingHandler() override { ++m_deleted; }

private:
    int& m_deleted;
};

/// The members of a socket, in their order, behind the pointer to the virtual table.
struct Members {
    virtual ~Members() = default;
    int socket = 0;
    void* handler = nullptr;
    std::string address;
    std::time_t active = 0;
    void* log = nullptr;
};

TEST(AcceptedSocketFresh, HasNoDescriptor) {
    const KvioSocket socket;
    EXPECT_EQ(socket.GetSocket(), -1);
}

TEST(AcceptedSocketFresh, HasNoEventHandler) {
    const KvioSocket socket;
    EXPECT_EQ(socket.GetEventHandler(), nullptr);
}

TEST(AcceptedSocketFresh, HasAnEmptyRemoteAddress) {
    const KvioSocket socket;
    EXPECT_EQ(socket.GetRemoteAddress(), "");
}

TEST(AcceptedSocketFresh, WasActiveWhenItWasMade) {
    const std::time_t before = std::time(nullptr);
    const KvioSocket socket;
    EXPECT_GE(socket.GetLastActiveTime(), before);
    EXPECT_LE(socket.GetLastActiveTime(), std::time(nullptr));
}

TEST(AcceptedSocketFresh, HasNoLog) {
    const OpenSocket socket;
    EXPECT_EQ(socket.m_pEventLog, nullptr);
}

TEST(AcceptedSocketFresh, CloseAnswersTheResultOfClosingDescriptorMinusOne) {
    KvioSocket socket;
    errno = 0;
    EXPECT_EQ(socket.Close(), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(AcceptedSocketLayout, TheClassesDescendFromTheCommonRoot) {
    EXPECT_TRUE((std::is_base_of_v<Kvobject, KvioSocket>));
    EXPECT_TRUE((std::is_base_of_v<KvioSocket, KvioClientSocket>));
}

TEST(AcceptedSocketLayout, TheMembersStandInTheirOrderAndThereIsNoOther) {
    OpenSocket socket;
    const void* order[] = {&socket.m_socket, &socket.m_pEventHandler, &socket.m_strRemoteAddress,
                           &socket.m_tLastActive, &socket.m_pEventLog};
    for (int i = 1; i < 5; ++i) {
        EXPECT_LT(order[i - 1], order[i]) << i;
    }
    EXPECT_EQ(sizeof(KvioSocket), sizeof(Members));
    EXPECT_EQ(sizeof(KvioClientSocket), sizeof(KvioSocket));
}

TEST(AcceptedSocketValues, TheStatusesHaveTheirFixedNumbers) {
    EXPECT_EQ(KvioSocket::SOCKET_DONE, 32);
    EXPECT_EQ(KvioSocket::SOCKET_READABLE, 33);
    EXPECT_EQ(KvioSocket::SOCKET_WRITABLE, 34);
    EXPECT_EQ(KvioSocket::SOCKET_TIMEOUT, 35);
    EXPECT_EQ(KvioSocket::SOCKET_ERROR, 36);
}

TEST(AcceptedSocketValues, TheTypesHaveTheirFixedNumbers) {
    EXPECT_EQ(KvioSocket::SOCKET_TCP, 0);
    EXPECT_EQ(KvioSocket::SOCKET_UDP, 1);
    EXPECT_EQ(KvioSocket::SOCKET_ICMP, 2);
}

TEST(AcceptedSocketHandler, TheFirstOneIsStored) {
    int deleted = 0;
    KvioSocket socket;
    auto* handler = new CountingHandler(deleted);
    EXPECT_TRUE(socket.SetEventHandler(handler));
    EXPECT_EQ(socket.GetEventHandler(), handler);
    EXPECT_EQ(deleted, 0);
}

TEST(AcceptedSocketHandler, TheSecondOneIsRefusedAndTheFirstKept) {
    int deleted = 0;
    KvioSocket socket;
    auto* first = new CountingHandler(deleted);
    CountingHandler second(deleted);
    socket.SetEventHandler(first);
    EXPECT_FALSE(socket.SetEventHandler(&second));
    EXPECT_EQ(socket.GetEventHandler(), first);
    EXPECT_EQ(deleted, 0);
}

TEST(AcceptedSocketHandler, TheSocketDeletesItThroughItsVirtualDestructor) {
    int deleted = 0;
    {
        KvioSocket socket;
        socket.SetEventHandler(new CountingHandler(deleted));
    }
    EXPECT_EQ(deleted, 1);
}

TEST(AcceptedSocketHandler, NoneAtAllTakesNobodysPlace) {
    int deleted = 0;
    KvioSocket socket;
    EXPECT_TRUE(socket.SetEventHandler(nullptr));
    EXPECT_TRUE(socket.SetEventHandler(new CountingHandler(deleted)));
}

TEST(AcceptedSocketLibrary, StartUpAndShutDownHaveNothingToDo) {
    EXPECT_TRUE(KvioSocket::InitialLibrary());
    EXPECT_TRUE(KvioSocket::CloseLibrary());
}

TEST(AcceptedSocketErrorCode, IsTheErrnoOfTheCaller) {
    errno = ENOTDIR;
    EXPECT_EQ(KvioSocket::GetErrorCode(), ENOTDIR);
    errno = 0;
    EXPECT_EQ(KvioSocket::GetErrorCode(), 0);
}

int PortInTheDatabase(const char* service, const char* protocol) {
    const servent* entry = getservbyname(service, protocol);
    return entry == nullptr ? -1 : ntohs(static_cast<in_port_t>(entry->s_port));
}

TEST(AcceptedSocketPort, OfSmtpIs25) {
    ASSERT_EQ(PortInTheDatabase("smtp", "tcp"), 25) << "/etc/services is wanting: install netbase";
    EXPECT_EQ(KvioSocket::KvAsciiToPort("smtp", "tcp"), 25);
}

TEST(AcceptedSocketPort, IsInHostByteOrderForEveryService) {
    for (const char* service : {"domain", "imap2", "pop3", "https", "submission"}) {
        ASSERT_NE(PortInTheDatabase(service, "tcp"), -1) << service << ": install netbase";
        EXPECT_EQ(KvioSocket::KvAsciiToPort(service, "tcp"), PortInTheDatabase(service, "tcp")) << service;
    }
}

TEST(AcceptedSocketPort, OfAnUnknownServiceIsMinusOne) {
    EXPECT_EQ(KvioSocket::KvAsciiToPort("no-such-service", "tcp"), -1);
}

TEST(AcceptedSocketPort, OfAnUnknownProtocolIsMinusOne) {
    EXPECT_EQ(KvioSocket::KvAsciiToPort("smtp", "no-such-protocol"), -1);
}

TEST_F(AcceptedSocketBasics, CloseAnswersZeroAndKeepsTheNumber) {
    const int descriptor = socket.GetSocket();
    EXPECT_EQ(socket.Close(), 0);
    EXPECT_EQ(socket.GetSocket(), descriptor);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(AcceptedSocketBasics, CloseEndsTheConnection) {
    socket.Close();
    EXPECT_EQ(peer.ReceiveToTheEnd(), "");
}

TEST_F(AcceptedSocketBasics, ASecondCloseAnswersMinusOne) {
    socket.Close();
    EXPECT_EQ(socket.Close(), -1);
}

TEST_F(AcceptedSocketBasics, CloseIsReachedThroughTheBase) {
    KvioSocket& base = socket;
    EXPECT_EQ(base.Close(), 0);
    EXPECT_EQ(peer.ReceiveToTheEnd(), "");
}

TEST(AcceptedSocketEnd, DestructionLeavesTheDescriptorOpen) {
    acceptedsocket::Peer peer;
    int descriptor = -1;
    {
        KvioClientSocket socket;
        socket.Connect("127.0.0.1", peer.port(), KvioSocket::SOCKET_TCP);
        descriptor = socket.GetSocket();
    }
    EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
    close(descriptor);
}

TEST_F(AcceptedSocketBasics, NonBlockingModeReplacesAllStatusFlags) {
    fcntl(socket.GetSocket(), F_SETFL, O_APPEND);
    EXPECT_EQ(socket.SetNonBlockingMode(), 0);
    const int flags = fcntl(socket.GetSocket(), F_GETFL);
    EXPECT_TRUE((flags & O_NONBLOCK) != 0);
    EXPECT_EQ(flags & O_APPEND, 0);
}

TEST_F(AcceptedSocketBasics, NonBlockingModeMakesAReadWithoutDataAnError) {
    socket.SetNonBlockingMode();
    unsigned char byte = 0;
    acceptedsocket::ExpectFailure(acceptedsocket::ThrownBy([&] { socket.Read(&byte, 1, -1, status); }),
                                  peer.address(), "../src/KvioSocket", 209, "Socket Read Error");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST(AcceptedSocketFresh, NonBlockingModeOfNoDescriptorAnswersMinusOne) {
    KvioSocket socket;
    EXPECT_EQ(socket.SetNonBlockingMode(), -1);
}

TEST_F(AcceptedSocketBasics, TheRemoteAddressIsACopy) {
    std::string address = socket.GetRemoteAddress();
    address += "x";
    EXPECT_EQ(socket.GetRemoteAddress(), peer.address());
}

}  // namespace
