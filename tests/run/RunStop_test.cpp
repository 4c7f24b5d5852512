// Start, stop, signals and the service manager: the daemon as a process.
#include <SQLiteCpp/Transaction.h>

#include "NotifySocket.h"
#include "RunFixture.h"
#include "ScriptedSmtpServer.h"

namespace kvruntest {
namespace {

using kvhost::JobState;
using testing::HasSubstr;
using testing::Not;

class RunStopTest : public RunTest {
protected:
    RunStopTest() { AddCarrier("east", m_server.address()); }

    kvtest::ScriptedSmtpServer m_server;
};

TEST_F(RunStopTest, AStopWaitsForWhatIsUnderWay) {
    kvtest::Gate gate;
    m_server.on(kvtest::step::EndOfData).reply(kvtest::Reply("250 taken\r\n").heldBy(gate));
    Start();
    Submit({Mail("a", "east")});
    ASSERT_TRUE(m_server.waitForCommand("DATA"));
    Host().Signal(SIGTERM);
    ASSERT_TRUE(Host().WaitForError("stopping; 1 jobs are with the driver")) << Host().Error();
    Submit({Mail("b", "east")});
    gate.open();
    EXPECT_EQ(Host().Wait(), 0);
    EXPECT_EQ(StateOf("a"), JobState::Delivered);
    EXPECT_EQ(StateOf("b"), JobState::Queued) << "nothing more is handed over";
    ExpectSound();
}

TEST_F(RunStopTest, WhatDoesNotComeBackInTimeIsDecidedAtTheNextStart) {
    Configure("[run]\nstop_limit = \"100ms\"\n");
    AddCarrier("hold", m_server.address(), "on_doubt = \"hold\"\n");
    Start(kFakeDriver);
    Submit({Mail("a", "hold", "never"), Mail("b", "east", "cleanup")});
    ASSERT_TRUE(WaitForCount(JobState::HandedOver, 2)) << Host().Error();
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(StateOf("a"), JobState::HandedOver);
    EXPECT_EQ(StateOf("b"), JobState::HandedOver)
        << "the clean-up broke it off, perhaps after it had arrived";
    ExpectSound();
    Start();
    EXPECT_TRUE(WaitForState("b", JobState::Delivered)) << Host().Error();
    EXPECT_EQ(StateOf("a"), JobState::InDoubt);
    EXPECT_EQ(History("a").job.crashes, 0) << "a stop is no crash";
    EXPECT_EQ(Stop(), 0);
    ExpectSound();
}

TEST_F(RunStopTest, ASecondSignalEndsTheWait) {
    Start(kFakeDriver);
    Submit({Mail("a", "east", "never")});
    ASSERT_TRUE(WaitForState("a", JobState::HandedOver)) << Host().Error();
    Host().Signal(SIGINT);
    ASSERT_TRUE(Host().WaitForError("stopping;")) << Host().Error();
    Host().Signal(SIGTERM);
    EXPECT_EQ(Host().Wait(), 0);
}

TEST_F(RunStopTest, ADriverThatDoesNotReturnIsLeftBehind) {
    Configure("[run]\nstop_limit = \"0ms\"\ncleanup_limit = \"1s\"\n");
    Start(kFakeDriver, {{"KVFAKE_TICK", "hang"}});
    EXPECT_EQ(Stop(), 1);
    EXPECT_THAT(Host().Error(), HasSubstr("the driver does not return from its clean-up"));
}

TEST_F(RunStopTest, ADriverThatCannotBeSetUpEndsTheHost) {
    const auto host = Spawn(kFakeDriver, {{"KVFAKE_SETUP", "refuse"}});
    EXPECT_EQ(host->Wait(), 2);
    EXPECT_THAT(host->Error(), HasSubstr("kvhost: the driver could not set itself up"));
}

TEST_F(RunStopTest, ADriverThatBreaksDownEndsTheHost) {
    const auto host = Spawn(kFakeDriver, {{"KVFAKE_TICK", "throw"}});
    EXPECT_EQ(host->Wait(), 2);
    EXPECT_THAT(host->Error(), HasSubstr("the driver threw out of PeriodicEvent: clock is broken"));
}

TEST_F(RunStopTest, TheCleanUpLimitHoldsForADriverThatBrokeDown) {
    Configure("[run]\ncleanup_limit = \"1s\"\n");
    const auto host = Spawn(kFakeDriver, {{"KVFAKE_TICK", "throw"}, {"KVFAKE_CLEANUP", "hang"}});
    EXPECT_EQ(host->Wait(), 1);
    EXPECT_THAT(host->Error(), HasSubstr("the driver does not return from its clean-up"));
}

TEST_F(RunStopTest, ASecondHostOfAStoreIsRefused) {
    Start();
    const auto second = Spawn(kRealDriver);
    EXPECT_EQ(second->Wait(), 3);
    EXPECT_THAT(second->Error(), HasSubstr("another kvhost runs on this store (process "));
    Submit({Mail("a", "east")});
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << "the first one goes on";
}

TEST_F(RunStopTest, AConfigurationWithoutAStoreIsRefused) {
    const std::string config = m_dir.write("other.toml", "");
    kvhosttest::ChildProcess host({KV_BINARY_DIR "/kvhost", "run", "--config", config}, {});
    EXPECT_EQ(host.Wait(), 2);
    EXPECT_THAT(host.Error(), HasSubstr("store: expected the folder of the job store"));
}

TEST_F(RunStopTest, OutcomesAreKeptWhileTheStoreCannotBeWritten) {
    kvtest::Gate gate;
    m_server.on(kvtest::step::EndOfData).reply(kvtest::Reply("250 taken\r\n").heldBy(gate));
    Start();
    Submit({Mail("a", "east")});
    ASSERT_TRUE(m_server.waitForCommand("DATA"));
    {
        kvhost::StoreWrite writer(Store());
        gate.open();
        ASSERT_TRUE(Host().WaitForError("the job store cannot be used")) << Host().Error();
    }
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
    EXPECT_TRUE(Host().WaitForError("the job store can be used again")) << Host().Error();
    Submit({Mail("b", "east")});
    EXPECT_TRUE(WaitForState("b", JobState::Delivered)) << Host().Error();
    EXPECT_EQ(History("a").attempts.size(), 1U);
    ExpectSound();
}

TEST_F(RunStopTest, AHangUpAdoptsTheNewConfiguration) {
    Start();
    Submit({Mail("a", "west")});
    ASSERT_TRUE(Host().WaitForError("wait for the carrier west")) << Host().Error();
    AddCarrier("west", m_server.address());
    WriteConfig();
    Host().Signal(SIGHUP);
    EXPECT_TRUE(Host().WaitForError("the configuration was read anew: 2 carriers, before 1"))
        << Host().Error();
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
}

TEST_F(RunStopTest, AHangUpWithAFaultyConfigurationChangesNothing) {
    Start();
    m_dir.write("kvhost.toml", "store = \"store\"\n[run]\ntick = \"soon\"\n");
    Host().Signal(SIGHUP);
    EXPECT_TRUE(Host().WaitForError("the new configuration is refused, the old one stays: "))
        << Host().Error();
    EXPECT_THAT(Host().Error(), HasSubstr("run.tick"));
    Submit({Mail("a", "east")});
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
}

TEST_F(RunStopTest, AHangUpNamesWhatNeedsARestart) {
    Start();
    Configure("[driver]\nthreadpool_size = 7\n");
    WriteConfig();
    Host().Signal(SIGHUP);
    EXPECT_TRUE(Host().WaitForError("the new configuration needs a restart for [driver]")) << Host().Error();
}

TEST_F(RunStopTest, APasswordThatAHangUpBroughtIsMasked) {
    m_strLogLevel = "trace";
    Start(kFakeDriver);
    AddCarrier("west", m_server.address(), "user = \"anna\"\npassword = \"correct horse\"\n");
    WriteConfig();
    Host().Signal(SIGHUP);
    ASSERT_TRUE(Host().WaitForError("the configuration was read anew")) << Host().Error();
    Submit({Mail("a", "west", "secrets")});
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Host().Error(), HasSubstr("[masked]"));
    EXPECT_THAT(Host().Error(), Not(HasSubstr("correct horse")));
}

TEST_F(RunStopTest, TheServiceManagerIsToldOfEveryStep) {
    const NotifySocket socket(m_dir.file("notify"));
    Start(kRealDriver, {{"NOTIFY_SOCKET", socket.Name()}, {"WATCHDOG_USEC", "200000"}});
    EXPECT_TRUE(socket.WaitFor("READY=1\n"));
    EXPECT_TRUE(socket.WaitFor("WATCHDOG=1\n"));
    EXPECT_TRUE(socket.WaitFor("WATCHDOG=1\n"));
    Host().Signal(SIGHUP);
    EXPECT_TRUE(socket.WaitFor("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_TRUE(socket.WaitFor("READY=1\n"));
    Host().Signal(SIGTERM);
    EXPECT_TRUE(socket.WaitFor("STOPPING=1\n"));
    EXPECT_EQ(Host().Wait(), 0);
}

}  // namespace
}  // namespace kvruntest
