// What becomes of jobs: the daemon as a process, with the real driver and a mail server that does as it is told.
#include "Duration.h"
#include "RunFixture.h"
#include "ScriptedSmtpServer.h"
#include "TestPorts.h"

namespace kvruntest {
namespace {

using kvhost::AttemptOutcome;
using kvhost::JobState;
using kvhost::Milliseconds;
using kvhost::StoreNow;
using testing::ElementsAre;
using testing::HasSubstr;

class RunDeliveryTest : public RunTest {
protected:
    RunDeliveryTest() { AddCarrier("east", m_server.address()); }

    /// The subjects of the accepted transactions, in their order.
    std::vector<std::string> Arrived() const {
        std::vector<std::string> recipients;
        for (const kvtest::TransactionRecord& transaction : m_server.transactions()) {
            if (transaction.accepted()) {
                recipients.push_back(transaction.recipientAddresses().at(0));
            }
        }
        return recipients;
    }

    kvtest::ScriptedSmtpServer m_server;
};

TEST_F(RunDeliveryTest, AJobSubmittedWhileTheHostRunsIsDelivered) {
    Start();
    Submit({Mail("a", "east")});
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Arrived(), ElementsAre("a@example.org"));
    const kvhost::JobHistory history = History("a");
    ASSERT_EQ(history.attempts.size(), 1U);
    EXPECT_EQ(history.attempts[0].outcome, AttemptOutcome::Delivered);
    ExpectSound();
}

TEST_F(RunDeliveryTest, JobsThatWaitedForTheHostGoOutAtItsStart) {
    Submit({Mail("a", "east"), Mail("b", "east")});
    Start();
    EXPECT_TRUE(WaitForCount(JobState::Delivered, 2)) << Host().Error();
}

TEST_F(RunDeliveryTest, AJobDoesNotWaitForATick) {
    Configure("[run]\ntick = \"60s\"\n");
    Start();
    for (const char* id : {"a", "b", "c"}) {
        const auto begun = std::chrono::steady_clock::now();
        Submit({Mail(id, "east")});
        EXPECT_TRUE(WaitForState(id, JobState::Delivered)) << Host().Error();
        // Wide of the few milliseconds that it takes, and far from the tick.
        EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(8));
    }
}

TEST_F(RunDeliveryTest, AChangeOfTheStoreThatNobodyRangForIsFound) {
    Start();
    kvhost::JobIntake(Store()).Submit({Mail("a", "east")}, StoreNow());
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
}

TEST_F(RunDeliveryTest, TextAndAttachmentsArrive) {
    kvhost::Submission mail = Mail("a", "east", "first\n.\n.second\n");
    mail.attachments = {
        kvhost::AttachmentStore(StoreFolder(), 1000).AddContent("plan.txt", "the content of the plan")};
    Start();
    Submit({mail});
    ASSERT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
    const std::string data = m_server.transactions().at(0).data;
    EXPECT_THAT(data, HasSubstr("first\r\n..\r\n..second\r\n"));
    EXPECT_THAT(data, HasSubstr("plan.txt"));
}

TEST_F(RunDeliveryTest, ATextThatMailCannotCarryArrivesAsAnAttachmentAndLeavesNothingBehind) {
    Start();
    Submit({Mail("a", "east", std::string(2000, 'x'))});
    ASSERT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
    EXPECT_THAT(m_server.transactions().at(0).data, HasSubstr("message.txt"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(StoreFolder() + "/outgoing"));
}

TEST_F(RunDeliveryTest, AMissingAttachmentFailsTheJobAndNoOther) {
    kvhost::Submission mail = Mail("a", "east");
    mail.attachments = {{"plan.txt", std::string(64, '0'), 5}};
    Start();
    Submit({mail, Mail("b", "east")});
    EXPECT_TRUE(WaitForState("b", JobState::Delivered)) << Host().Error();
    EXPECT_TRUE(WaitForState("a", JobState::Failed)) << Host().Error();
    EXPECT_THAT(History("a").job.reason, HasSubstr("plan.txt"));
    EXPECT_THAT(Arrived(), ElementsAre("b@example.org"));
}

TEST_F(RunDeliveryTest, APassingFailureIsTriedAgainWhenItIsDue) {
    m_server.on("RCPT").times(1).reply("451 4.3.0 try later\r\n");
    Configure("[retry]\nfirst = \"300ms\"\njitter = 0\n");
    Start();
    Submit({Mail("a", "east")});
    ASSERT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
    const kvhost::JobHistory history = History("a");
    ASSERT_EQ(history.attempts.size(), 2U);
    EXPECT_EQ(history.attempts[0].outcome, AttemptOutcome::Failed);
    EXPECT_THAT(history.attempts[0].reason, HasSubstr("4.3.0 try later"));
    EXPECT_GE(history.attempts[1].begun - *history.attempts[0].ended, Milliseconds(290));
}

TEST_F(RunDeliveryTest, ALastingFailureIsForGood) {
    m_server.on("RCPT").recipient("a@example.org").reply("550 5.1.1 no such user\r\n");
    Start();
    Submit({Mail("a", "east"), Mail("b", "east")});
    EXPECT_TRUE(WaitForState("a", JobState::Failed)) << Host().Error();
    EXPECT_TRUE(WaitForState("b", JobState::Delivered)) << Host().Error();
    EXPECT_EQ(History("a").attempts.size(), 1U);
    EXPECT_THAT(History("a").job.reason, HasSubstr("no such user"));
}

TEST_F(RunDeliveryTest, AnUrgentJobOvertakesABacklog) {
    Configure("[run]\nslice = 4\n");
    kvtest::Gate gate;
    m_server.on("MAIL").occurrence(2).reply(kvtest::Reply("250 ok\r\n").heldBy(gate));
    std::vector<kvhost::Submission> backlog;
    for (int i = 0; i < 60; ++i) {
        backlog.push_back(Mail("old" + std::to_string(i), "east"));
    }
    Submit(backlog);
    Start();
    ASSERT_TRUE(m_server.waitForCommand("MAIL", 2));
    kvhost::Submission urgent = Mail("urgent", "east");
    urgent.isUrgent = true;
    Submit({urgent});
    gate.open();
    ASSERT_TRUE(WaitForCount(JobState::Delivered, 61)) << Host().Error();
    const std::vector<std::string> arrived = Arrived();
    const auto place = std::find(arrived.begin(), arrived.end(), "urgent@example.org") - arrived.begin();
    // Three slices of four were handed over at the most.
    EXPECT_LE(place, 12);
}

TEST_F(RunDeliveryTest, NoMoreJobsAreWithTheDriverThanTheCap) {
    Configure("[driver]\nthreadpool_size = 5\n[run]\nmax_under_way = 3\n");
    kvtest::Gate gate;
    m_server.on("MAIL").reply(kvtest::Reply("250 ok\r\n").heldBy(gate));
    std::vector<kvhost::Submission> mails;
    for (int i = 0; i < 10; ++i) {
        mails.push_back(Mail("a" + std::to_string(i), "east"));
    }
    Submit(mails);
    Start();
    ASSERT_TRUE(WaitForCount(JobState::HandedOver, 3)) << Host().Error();
    gate.open();
    std::int64_t most = 0;
    kvhost::JobViews views(Store());
    EXPECT_TRUE(kvtest::Eventually([&] {
        kvhost::StateCounts counts = views.Count();
        most = std::max(most, counts[JobState::HandedOver]);
        return counts[JobState::Delivered] == 10;
    })) << Host().Error();
    EXPECT_LE(most, 3);
}

TEST_F(RunDeliveryTest, ADeadlineThatPassesFailsTheJobUnattempted) {
    const kvtest::SilentListener silent;
    AddCarrier("west", silent.address());
    Configure("[run]\nprobe_limit = \"100ms\"\n");
    Start();
    kvhost::Submission mail = Mail("a", "west");
    mail.deadline = StoreNow() + Milliseconds(300);
    Submit({mail});
    ASSERT_TRUE(WaitForState("a", JobState::Failed)) << Host().Error();
    EXPECT_THAT(History("a").job.decision, HasSubstr("deadline"));
    EXPECT_EQ(History("a").attempts.size(), 0U);
    EXPECT_TRUE(Host().WaitForError("failed: the deadline passed before it was delivered")) << Host().Error();
    EXPECT_THAT(Host().Error(), HasSubstr("job a to "));
}

TEST_F(RunDeliveryTest, AJobOfAnUnknownCarrierWaitsAndIsToldOf) {
    Start();
    Submit({Mail("a", "nowhere"), Mail("b", "east")});
    EXPECT_TRUE(WaitForState("b", JobState::Delivered)) << Host().Error();
    EXPECT_TRUE(Host().WaitForError(
        "1 queued jobs wait for the carrier nowhere: the configuration has no carrier of this name"))
        << Host().Error();
    EXPECT_EQ(StateOf("a"), JobState::Queued);
}

TEST_F(RunDeliveryTest, AJobOfARefusedCarrierWaitsAndIsToldOf) {
    AddCarrier("broken", m_server.address(), "unknown_field = 1\n");
    Start();
    Submit({Mail("a", "broken")});
    EXPECT_TRUE(
        Host().WaitForError("wait for the carrier broken: the configuration of this carrier is refused: "))
        << Host().Error();
    EXPECT_EQ(StateOf("a"), JobState::Queued);
}

}  // namespace
}  // namespace kvruntest
