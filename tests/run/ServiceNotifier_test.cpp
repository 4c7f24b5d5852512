#include "ServiceNotifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "NotifySocket.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::MatchesRegex;

class ServiceNotifierTest : public testing::Test {
protected:
    ~ServiceNotifierTest() override {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            ::unsetenv(name);
        }
    }
    static void Set(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }

    const kvtest::TempDir m_dir;
};

TEST_F(ServiceNotifierTest, TellsTheSocketOfTheEnvironment) {
    kvruntest::NotifySocket socket(m_dir.file("notify"));
    Set("NOTIFY_SOCKET", socket.Name());
    const ServiceNotifier notifier;
    notifier.Ready("running");
    EXPECT_EQ(socket.Receive(), "READY=1\nSTATUS=running\n");
    notifier.Status("one\nline");
    EXPECT_EQ(socket.Receive(), "STATUS=one<LF>line\n");
    notifier.Reloading();
    EXPECT_THAT(socket.Receive(), MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+\n"));
    notifier.Stopping("waiting");
    EXPECT_EQ(socket.Receive(), "STOPPING=1\nSTATUS=waiting\n");
    notifier.StillAlive();
    EXPECT_EQ(socket.Receive(), "WATCHDOG=1\n");
    EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), nullptr) << "the driver's children have no business there";
}

TEST_F(ServiceNotifierTest, AnAbstractNameWorksToo) {
    kvruntest::NotifySocket socket("@kvhost-test-" + std::to_string(::getpid()));
    Set("NOTIFY_SOCKET", socket.Name());
    ServiceNotifier().Ready("running");
    EXPECT_EQ(socket.Receive(), "READY=1\nSTATUS=running\n");
}

TEST_F(ServiceNotifierTest, WithoutAManagerNothingHappens) {
    Set("WATCHDOG_USEC", "1000000");
    const ServiceNotifier notifier;
    notifier.Ready("running");
    EXPECT_EQ(notifier.WatchdogInterval(), std::nullopt);
}

TEST_F(ServiceNotifierTest, AManagerThatIsGoneIsNoTrouble) {
    Set("NOTIFY_SOCKET", m_dir.file("nobody"));
    ServiceNotifier().Ready("running");
    Set("NOTIFY_SOCKET", "not an address");
    ServiceNotifier().Ready("running");
    Set("NOTIFY_SOCKET", "/" + std::string(200, 'x'));
    ServiceNotifier().Ready("running");
}

TEST_F(ServiceNotifierTest, TheWatchdogIsToldTwiceInItsTime) {
    Set("NOTIFY_SOCKET", m_dir.file("nobody"));
    Set("WATCHDOG_USEC", "3000000");
    EXPECT_EQ(ServiceNotifier().WatchdogInterval(), Milliseconds(1500));
}

TEST_F(ServiceNotifierTest, AWatchdogForAnotherProcessDoesNotConcernUs) {
    Set("NOTIFY_SOCKET", m_dir.file("nobody"));
    Set("WATCHDOG_USEC", "3000000");
    Set("WATCHDOG_PID", "1");
    EXPECT_EQ(ServiceNotifier().WatchdogInterval(), std::nullopt);
}

}  // namespace
}  // namespace kvhost
