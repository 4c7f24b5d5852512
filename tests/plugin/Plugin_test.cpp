// The plug-in as a host sees it: the shared library, loaded at run time.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "Descriptors.h"
#include "DynamicSymbols.h"
#include "Eventually.h"
#include "LoadedDriver.h"
#include "ScriptedSmtpServer.h"
#include "TestCertificates.h"
#include "TestMessageFile.h"

namespace {

using namespace kvtest;
using Reports = KvMessengerReportsMngrInterface;

const std::string kPlugin = KV_BINARY_DIR "/libkvsmtpdriver.so";

/// Hands one file over, ticks, and waits until it is back.
void Deliver(LoadedDriver& driver, HostDoubles& host, KvMessageFile& file) {
    const int before = host.queue.count();
    Reports::ReportsStatus status{};
    ASSERT_TRUE(driver->SendAMessage(&file, status));
    ASSERT_EQ(status, Reports::REPORT_ACCEPTED);
    ASSERT_TRUE(driver->PeriodicEvent());
    ASSERT_TRUE(host.queue.waitFor(before + 1));
}

TEST(PluginTest, ExportsExactlyItsTwoEntryPoints) {
    EXPECT_EQ(ExportedSymbols(kPlugin),
              (std::set<std::string>{"GetDriverInstance", "ReleaseDriverInstance"}));
}

TEST(PluginTest, AnswersTheSameDriverUntilItIsReleased) {
    LoadedDriver driver(kPlugin);
    const auto get = reinterpret_cast<KvProtocolDriverInterface* (*)()>(driver.symbol("GetDriverInstance"));
    EXPECT_EQ(get(), driver.get());
    EXPECT_EQ(get(), driver.get());
}

TEST(PluginTest, BuildsAFreshDriverAfterTheRelease) {
    LoadedDriver driver(kPlugin);
    const auto get = reinterpret_cast<KvProtocolDriverInterface* (*)()>(driver.symbol("GetDriverInstance"));
    const auto release =
        reinterpret_cast<void (*)(KvProtocolDriverInterface*)>(driver.symbol("ReleaseDriverInstance"));
    HostDoubles host;
    host.lendTo(*driver.get());
    release(driver.get());
    EXPECT_EQ(get()->m_pLog, nullptr) << "the services of the old driver are gone";
    release(get());
    get();  // for the release by LoadedDriver, which compares addresses only
}

TEST(PluginTest, IgnoresTheReleaseOfAForeignPointer) {
    LoadedDriver driver(kPlugin);
    HostDoubles host;
    host.lendTo(*driver.get());
    const auto release =
        reinterpret_cast<void (*)(KvProtocolDriverInterface*)>(driver.symbol("ReleaseDriverInstance"));
    release(nullptr);
    release(reinterpret_cast<KvProtocolDriverInterface*>(&host));
    EXPECT_EQ(driver->m_pLog, &host.log);
    EXPECT_STREQ(driver->GetName(), "SMTP");
}

TEST(PluginTest, DeliversAMessage) {
    ScriptedSmtpServer server;
    HostDoubles host;
    LoadedDriver driver(kPlugin);
    driver.start(host, {});
    const auto file = MessageBuilder().server(server.address()).build();
    Deliver(driver, host, *file);
    EXPECT_EQ(file->m_eStatus, Reports::REPORT_COMPLETED);
    EXPECT_EQ(server.acceptedTransactions(), 1);
}

TEST(PluginTest, DeliversOverDescriptorsAbove1024InClearAndInsideTls) {
    const OccupiedDescriptors occupied(1100);
    const TestCertificates& certificates = TestCertificates::Shared();
    const ScriptedSmtpServer server({.tls = certificates.serverTls()});
    HostDoubles host;
    LoadedDriver driver(kPlugin);
    driver.start(host, {});
    const auto clear = MessageBuilder().server(server.address()).build();
    Deliver(driver, host, *clear);
    const auto secure = MessageBuilder()
                            .server(server.address())
                            .security(SMTP_SECURITY_REQUIRED)
                            .caFile(certificates.caFile())
                            .build();
    Deliver(driver, host, *secure);
    EXPECT_EQ(clear->m_eStatus, Reports::REPORT_COMPLETED) << clear->failureReason();
    EXPECT_EQ(secure->m_eStatus, Reports::REPORT_COMPLETED) << secure->failureReason();
}

/// Delivers one message with a freshly loaded driver, and unloads it.
void LoadDeliverAndUnload() {
    const ScriptedSmtpServer server;
    HostDoubles host;
    LoadedDriver driver(kPlugin);
    driver.start(host, {});
    const auto file = MessageBuilder().server(server.address()).build();
    Deliver(driver, host, *file);
    driver.stop();
    driver.unload();
    EXPECT_EQ(file->m_eStatus, Reports::REPORT_COMPLETED);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(PluginTest, CanBeLoadedSetUpCleanedUpAndUnloadedAgainAndAgain) {
    const int descriptors = OpenDescriptorCount();
    for (int round = 0; round < 3; ++round) {
        LoadDeliverAndUnload();
        EXPECT_EQ(OpenDescriptorCount(), descriptors);
    }
}

/// In a process of its own, since the handlers of the end signals stay installed.
[[noreturn]] void EndAThreadAfterUnloading() {
    HostDoubles host;
    {
        LoadedDriver driver(kPlugin);
        driver.start(host, {});
        driver.stop();
        driver.unload();
    }
    std::thread waiting([] {
        for (;;) {
            pause();
        }
    });
    pthread_kill(waiting.native_handle(), SIGQUIT);
    waiting.join();
    _exit(0);
}

TEST(PluginDeathTest, AnEndSignalAfterUnloadingStillFindsItsHandler) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(EndAThreadAfterUnloading(), testing::ExitedWithCode(0), "");
}

}  // namespace
