#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <chrono>

#include "KvioSSLClientSocket.h"
#include "StoppableDriver.h"
#include "TestCertificates.h"
#include "hostile/HostileDelivery.h"
#include "hostile/VirtualTime.h"
#include "src/SocketDoubles.h"
#include "src/TlsPeer.h"

// Servers that send faster than the driver reads: it never waits then, and must notice all the same that its time is
// over or that it is to end.

namespace {

using namespace kvtest;
using Clock = std::chrono::steady_clock;

constexpr int kTickets = 300;

int UnreadBytes(const KvioSocket& socket) {
    int bytes = 0;
    ioctl(socket.GetSocket(), FIONREAD, &bytes);
    return bytes;
}

TEST(TicketFloodTest, AReadWhoseTimeIsOverDoesNotGoOnForAsLongAsRecordsWithoutDataCome) {
    Latch sent;
    TlsPeer peer([&sent](TlsConnection& client) {
        for (int ticket = 0; ticket < kTickets; ++ticket) {
            SSL_new_session_ticket(client.Ssl());
            SSL_do_handshake(client.Ssl());
        }
        sent.Open();
        client.AwaitEnd();
    });
    KvioSSLClientSocket socket("", "", TestCertificates::Shared().caFile());
    socket.Connect("127.0.0.1", peer.Port(), KvioSocket::SOCKET_TCP);
    socket.StartSSL();
    ASSERT_TRUE(sent.Wait());
    unsigned char buffer[100];
    KvioSocket::SocketStatus status{};
    EXPECT_EQ(socket.Read(buffer, sizeof(buffer), 0, status), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_GT(UnreadBytes(socket), 0);
}

TEST(DemandFloodTest, AWorkerThatRepeatsAuthWithoutEverWaitingIsEndedByTheStopOfTheDriver) {
    const auto end = Clock::now() + std::chrono::seconds(10);
    ScriptedSmtpServer server(OfferingAccount());
    server.on("RSET").connection(1).reply("421 4.3.2 no\r\n");  // the next connection is the worker's
    server.on("AUTH").connection(2).answer([end](const CommandContext&) {
        return Clock::now() < end ? "530 5.7.0 Must issue a STARTTLS command first\r\n"
                                  : "535 5.7.8 enough\r\n";
    });
    HostDoubles host;
    const auto file = WithAccount(JobFor(server)).security(SMTP_SECURITY_ON_DEMAND).build();
    StoppableDriver driver(host);
    ASSERT_TRUE(driver.HandOver(*file));
    {
        const AlwaysReady ready;
        driver.PeriodicEvent();
        EXPECT_TRUE(server.waitForCommand("AUTH", 10));
        driver.StopAndCleanUp();
        EXPECT_LT(Clock::now(), end);
    }
    EXPECT_EQ(host.queue.timesReturned(file.get()), 1);
    EXPECT_EQ(file->failureReason(), "Messenger internal error.");
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

}  // namespace
