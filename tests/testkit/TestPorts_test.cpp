#include "TestPorts.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

#include "LoopbackSocket.h"
#include "PlainSmtpClient.h"
#include "ScriptedSmtpServer.h"

using namespace kvtest;
using namespace std::chrono_literals;

namespace {

int ConnectError(int port) {
    try {
        const PlainSmtpClient client(port);
        return 0;
    } catch (const std::system_error& error) {
        return error.code().value();
    }
}

}  // namespace

TEST(TestPortsTest, AFreePortCanBeListenedOn) {
    const int port = FreePort();
    const ScriptedSmtpServer server({.port = port});
    EXPECT_EQ(server.port(), port);
}

TEST(TestPortsTest, ARefusingPortRefusesEachTime) {
    const RefusingPort port;
    EXPECT_EQ(port.address(), "127.0.0.1:" + std::to_string(port.port()));
    EXPECT_EQ(ConnectError(port.port()), ECONNREFUSED);
    EXPECT_EQ(ConnectError(port.port()), ECONNREFUSED);
}

TEST(TestPortsTest, ASilentListenerAcceptsAndSaysNothing) {
    const SilentListener listener;
    EXPECT_EQ(listener.address(), "127.0.0.1:" + std::to_string(listener.port()));
    PlainSmtpClient client(listener.port());
    ASSERT_TRUE(listener.waitForConnections(1));
    EXPECT_EQ(listener.openConnections(), 1);
    client.send("NOOP\r\n");
    EXPECT_TRUE(client.staysSilentFor(20ms));
}

TEST(TestPortsTest, ASilentListenerEndsItsConnectionsWithItself) {
    std::unique_ptr<SilentListener> listener = std::make_unique<SilentListener>();
    PlainSmtpClient client(listener->port());
    ASSERT_TRUE(listener->waitForConnections(1));
    listener.reset();
    EXPECT_EQ(client.waitForEnd(), PlainSmtpClient::End::Closed);
}

TEST(TestPortsTest, AConnectToAnUnansweringPortStaysUnderWay) {
    const UnansweringPort port;
    const ScopedDescriptor socket = ConnectingSocket(port.port(), SOCK_NONBLOCK);
    pollfd watched{socket.get(), POLLOUT, 0};
    EXPECT_EQ(poll(&watched, 1, 50), 0);
}
