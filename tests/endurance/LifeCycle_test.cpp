// Starting and stopping the driver: at every moment, again and again, and beside another one.
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <future>

#include "LoadedDriver.h"
#include "TempDir.h"
#include "TestPorts.h"
#include "endurance/Cycles.h"
#include "endurance/EnduranceHost.h"

namespace {

using namespace kvtest;

const std::string kPlugin = KV_BINARY_DIR "/libkvsmtpdriver.so";

using LifeCycleTest = EnduranceTest;

// --- A worker has lost its connection and makes another one

struct Phase {
    const char* name;
    Wire wire;
    const char* step;
    const char* said = "";  ///< what the server says before it falls silent
};

std::ostream& operator<<(std::ostream& out, const Phase& phase) {
    return out << phase.name;
}

class StopWhileConnectingTest : public EnduranceTest, public testing::WithParamInterface<Phase> {
protected:
    bool WaitUntilTheServerIsSilent() const {
        return m_server->waitUntil([this] {
            const ConnectionRecord second = m_server->connection(2);
            const auto steps = second.steps();
            return GetParam().step == std::string(step::Greeting)
                       ? second.number == 2
                       : std::find(steps.begin(), steps.end(), GetParam().step) != steps.end();
        });
    }
};

TEST_P(StopWhileConnectingTest, TheJobIsBackOnceAndADriverThatIsStartedAgainDelivers) {
    const auto& [name, wire, step, said] = GetParam();
    Serve().on("RSET").connection(1).reply(Reply().thenClose());
    m_server->on(step).connection(2).reply(Reply(said).thenStall());
    Start();
    const TestMessageFile& file = HandOver(wire);
    m_driver->PeriodicEvent();
    ASSERT_TRUE(WaitUntilTheServerIsSilent());
    m_driver->Cleanup();
    ExpectFailed(file, kInternalError);
    EXPECT_TRUE(m_server->waitForOpenConnections(0));
    m_driver->Start(m_host);
    ExpectTheNextJobIsDeliveredOver(3, wire);
}

INSTANTIATE_TEST_SUITE_P(Phases, StopWhileConnectingTest,
                         testing::Values(Phase{"BeforeTheGreeting", Wire::Clear, step::Greeting},
                                         Phase{"AtEhlo", Wire::Clear, "EHLO"},
                                         Phase{"AtAuth", Wire::Clear, "AUTH"},
                                         Phase{"AtTheCredentials", Wire::Clear, step::AuthPlain},
                                         Phase{"AtStartTls", Wire::Tls, "STARTTLS"},
                                         Phase{"InTheHandshake", Wire::Tls, "STARTTLS", "220 go ahead\r\n"},
                                         Phase{"AtAuthInsideTls", Wire::Tls, "AUTH"},
                                         Phase{"AtTheCredentialsInsideTls", Wire::Tls, step::AuthPlain}),
                         testing::PrintToStringParamName());

TEST_F(LifeCycleTest, AStopEndsAWorkerWhoseConnectGoesUnanswered) {
    Gate full;
    Serve().on("RSET").connection(1).reply(Reply().heldBy(full).thenClose());
    RecordingLog log;
    Start({}, &log);
    const TestMessageFile& file = HandOver(Wire::Clear);
    m_driver->PeriodicEvent();
    m_server->stopListening();
    const UnansweringPort port(m_server->port());
    full.open();
    ASSERT_TRUE(log.waitFor("Entering KvSMTPDriver::CreateConnection", 2));
    m_driver->Cleanup();
    ExpectFailed(file, kInternalError);
}

TEST_F(LifeCycleTest, AStopEndsAWorkerThatHangsInAHandshakeAlsoWhileOtherWorkWaits) {
    Gate bothAreQueued;
    Serve().on("RSET").connection(1).reply(Reply().heldBy(bothAreQueued).thenClose());
    m_server->on("STARTTLS").connection(3).reply(Reply("220 go ahead\r\n").thenStall());
    Start();  // one worker, which makes its connection with the cache locked
    const MessageBuilder mail = MailOver(Wire::Tls, m_server->address());
    TestMessageFile& hanging = HandOver(MessageBuilder(mail).carrier(1, "first"));
    TestMessageFile& waiting = HandOver(MessageBuilder(mail).carrier(2, "second"));
    m_driver->PeriodicEvent();
    bothAreQueued.open();
    ASSERT_TRUE(m_server->waitForCommand("STARTTLS", 3));
    std::future<bool> stop = std::async(std::launch::async, [this] { return m_driver->Cleanup(); });
    EXPECT_EQ(stop.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    m_server->closeConnections();  // ends a worker that the stop could not end
    stop.wait();
    ExpectFailed(hanging, kInternalError);
    ExpectFailed(waiting, kInternalError);
}

// --- Twice, and again

TEST_F(LifeCycleTest, ASecondStopDoesNothing) {
    Serve().on("DATA").reply(Reply().thenStall());
    Start();
    const TestMessageFile& file = HandOver(Wire::Clear);
    m_driver->PeriodicEvent();
    ASSERT_TRUE(m_server->waitForCommand("DATA"));
    EXPECT_TRUE(m_driver->Cleanup());
    EXPECT_TRUE(m_driver->Cleanup());
    ExpectFailed(file, kInternalError);
    EXPECT_EQ(m_host.queue.timesReturned(&file), 1);
}

TEST_F(LifeCycleTest, StartsAndStopsWithAMailBetweenThemLeaveNothingBehind) {
    const CyclesReport report = RunCycles(200);
    EXPECT_EQ(report.cycles, 200);
    EXPECT_EQ(report.completed, 200);
    EXPECT_EQ(report.descriptorsAfter, report.descriptorsBefore);
    EXPECT_EQ(report.threadsAfter, report.threadsBefore);
}

// --- Two drivers in one process

TEST_F(LifeCycleTest, ADriverThatIsStoppedWhileItHangsLeavesAnotherOneAlone) {
    ScriptedSmtpServer silent;
    silent.on("DATA").reply(Reply().thenStall());
    HostDoubles otherHost;
    WatchedDriver other(otherHost);
    const auto hanging = MailOver(Wire::Clear, silent.address()).build();
    ASSERT_TRUE(other.HandOver(*hanging));
    Serve();
    Start();
    for (int i = 0; i < 50; ++i) {
        HandOver(MailOver(i % 2 == 0 ? Wire::Clear : Wire::Tls, m_server->address()).neverGrouped());
    }
    other.PeriodicEvent();
    m_driver->PeriodicEvent();
    ASSERT_TRUE(silent.waitForCommand("DATA"));
    other.Cleanup();
    ExpectFailed(*hanging, kInternalError);
    EXPECT_EQ(otherHost.queue.count(), 1);
    ASSERT_TRUE(WaitUntilAllAreBack());
    for (const auto& file : m_files) {
        ExpectCompleted(*file);
    }
}

bool EndHandlerIsOfThisProgram() {
    struct sigaction action {};
    sigaction(SIGQUIT, nullptr, &action);
    return action.sa_handler == KvconThreadPool::EndThreadHandler;
}

void DeliverThrough(LoadedDriver& driver, HostDoubles& host, KvMessageFile& file) {
    const int before = host.queue.count();
    Reports::ReportsStatus status{};
    ASSERT_TRUE(driver->SendAMessage(&file, status));
    driver->PeriodicEvent();
    ASSERT_TRUE(host.queue.waitFor(before + 1));
}

TEST_F(LifeCycleTest, AWorkerIsEndedAlsoThroughTheHandlerOfALibraryThatWasSetUpLater) {
    Serve().on("DATA").connection(1).reply(Reply().thenStall());
    Start();
    const TestMessageFile& hanging = HandOver(Wire::Tls);
    m_driver->PeriodicEvent();
    ASSERT_TRUE(m_server->waitForCommand("DATA"));
    EXPECT_TRUE(EndHandlerIsOfThisProgram());

    HostDoubles host;
    LoadedDriver later(kPlugin);
    later.start(host, {});
    EXPECT_FALSE(EndHandlerIsOfThisProgram());
    m_driver->Cleanup();
    ExpectFailed(hanging, kInternalError);

    const auto file = MailOver(Wire::Tls, m_server->address()).build();
    DeliverThrough(later, host, *file);
    later.stop();
    ExpectCompleted(*file);
}

TEST_F(LifeCycleTest, TwoLoadedLibrariesDeliverSideBySide) {
    const TempDir folder;
    const std::string copy = folder.file("copy.so");
    std::filesystem::copy_file(kPlugin, copy);
    Serve();
    HostDoubles hosts[2];
    LoadedDriver first(kPlugin);
    LoadedDriver second(copy);
    ASSERT_NE(first.get(), second.get());
    first.start(hosts[0], {});
    second.start(hosts[1], {});
    const auto one = MailOver(Wire::Tls, m_server->address()).build();
    const auto two = MailOver(Wire::Tls, m_server->address()).build();
    const auto three = MailOver(Wire::Tls, m_server->address()).build();
    DeliverThrough(first, hosts[0], *one);
    DeliverThrough(second, hosts[1], *two);
    first.stop();
    DeliverThrough(second, hosts[1], *three);
    second.stop();
    for (const auto& file : {one.get(), two.get(), three.get()}) {
        ExpectCompleted(*file);
    }
    EXPECT_EQ(m_server->acceptedConnections(), 2) << "each has a cache of its own";
}

}  // namespace
