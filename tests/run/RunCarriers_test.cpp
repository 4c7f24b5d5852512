// Carriers that cannot be reached: the daemon as a process.
#include "RunFixture.h"
#include "ScriptedSmtpServer.h"
#include "TestPorts.h"

namespace kvruntest {
namespace {

using kvhost::JobState;
using testing::HasSubstr;

class RunCarriersTest : public RunTest {
protected:
    RunCarriersTest() {
        AddCarrier("good", m_server.address());
        Configure("[run]\nprobe_limit = \"200ms\"\n[retry]\nfirst = \"100ms\"\njitter = 0\n");
    }

    /// Jobs of the carrier "bad" wait, and those of the other one do not wait for them.
    void ExpectThatOthersGoOn() {
        Start();
        Submit({Mail("bad1", "bad"), Mail("bad2", "bad")});
        ASSERT_TRUE(Host().WaitForError("`kvhost carrier test bad` tells more")) << Host().Error();
        for (const char* id : {"a", "b", "c"}) {
            const auto begun = std::chrono::steady_clock::now();
            Submit({Mail(id, "good")});
            EXPECT_TRUE(WaitForState(id, JobState::Delivered)) << Host().Error();
            // The driver would wait for a minute and more.
            EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(8));
        }
        for (const char* id : {"bad1", "bad2"}) {
            EXPECT_EQ(StateOf(id), JobState::Queued);
            EXPECT_EQ(History(id).attempts.size(), 0U);
        }
    }

    kvtest::ScriptedSmtpServer m_server;
};

TEST_F(RunCarriersTest, ACarrierThatNeverConnectsDelaysNoOther) {
    const kvtest::UnansweringPort port;
    AddCarrier("bad", port.address());
    ExpectThatOthersGoOn();
    EXPECT_THAT(Host().Error(), HasSubstr("no connection came about within 200 ms"));
}

TEST_F(RunCarriersTest, ACarrierThatAcceptsAndSaysNothingDelaysNoOther) {
    const kvtest::SilentListener silent;
    AddCarrier("bad", silent.address());
    ExpectThatOthersGoOn();
    EXPECT_THAT(Host().Error(), HasSubstr("a connection, but no greeting within 200 ms"));
}

TEST_F(RunCarriersTest, ARefusedConnectionCostsOneJobOneAttempt) {
    const kvtest::RefusingPort port;
    AddCarrier("bad", port.address());
    Start();
    std::vector<kvhost::Submission> mails;
    for (int i = 0; i < 30; ++i) {
        mails.push_back(Mail("a" + std::to_string(i), "bad"));
    }
    Submit(mails);
    const auto attempts = [&] {
        int count = 0;
        for (int i = 0; i < 30; ++i) {
            count += static_cast<int>(History("a" + std::to_string(i)).attempts.size());
        }
        return count;
    };
    ASSERT_TRUE(kvtest::Eventually([&] { return attempts() > 0; })) << Host().Error();
    Submit({Mail("b", "good")});
    ASSERT_TRUE(WaitForState("b", JobState::Delivered)) << Host().Error();
    EXPECT_EQ(attempts(), 1) << Host().Error();
    EXPECT_TRUE(WaitForCount(JobState::Queued, 30));
}

TEST_F(RunCarriersTest, ACarrierThatComesBackGetsItsJobs) {
    auto gone = std::make_unique<kvtest::ScriptedSmtpServer>();
    const int port = gone->port();
    AddCarrier("bad", gone->address());
    gone->on("EHLO").reply(kvtest::Reply("421 4.3.2 closing\r\n").thenClose());
    gone->on("HELO").reply(kvtest::Reply("421 4.3.2 closing\r\n").thenClose());
    Start();
    Submit({Mail("a", "bad"), Mail("b", "bad"), Mail("c", "bad")});
    ASSERT_TRUE(Host().WaitForError("`kvhost carrier test bad` tells more")) << Host().Error();
    gone->clearScript();
    EXPECT_TRUE(WaitForCount(JobState::Delivered, 3)) << Host().Error();
    EXPECT_TRUE(Host().WaitForError("carrier bad works again")) << Host().Error();
    EXPECT_EQ(gone->port(), port);
}

TEST_F(RunCarriersTest, ASlowCarrierDelaysNoOther) {
    Configure("[driver]\nthreadpool_size = 2\n");
    kvtest::ScriptedSmtpServer slow;
    AddCarrier("bad", slow.address());
    kvtest::Gate gate;
    slow.on("MAIL").reply(kvtest::Reply("250 ok\r\n").heldBy(gate));
    Start();
    std::vector<kvhost::Submission> mails;
    for (int i = 0; i < 100; ++i) {
        mails.push_back(Mail("slow" + std::to_string(i), "bad"));
    }
    Submit(mails);
    ASSERT_TRUE(slow.waitForCommand("MAIL"));
    Submit({Mail("a", "good"), Mail("b", "good")});
    EXPECT_TRUE(WaitForCount(JobState::Delivered, 2)) << Host().Error();
    gate.open();
    EXPECT_TRUE(WaitForCount(JobState::Delivered, 102)) << Host().Error();
}

}  // namespace
}  // namespace kvruntest
