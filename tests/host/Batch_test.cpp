#include "Batch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kvhost {
namespace {

Carrier TestCarrier() {
    return {.name = "alarms",
            .id = 7,
            .server = "mx1:587",
            .security = SMTP_SECURITY_REQUIRED,
            .user = "u",
            .password = "p",
            .sender = "alarms@example.org",
            .caFile = "ca",
            .certFile = "cert",
            .keyFile = "key",
            .retry = {}};
}

Job TestJob(const std::string& id, const std::vector<std::string>& recipients) {
    Job job;
    job.id = id;
    job.carrier = "alarms";
    job.recipients = recipients;
    job.subject = "Hi";
    job.text = "text";
    job.attachments = {"plan.pdf"};
    return job;
}

HostConfig TestConfig() {
    HostConfig config;
    config.carriers["alarms"] = TestCarrier();
    return config;
}

TEST(BatchTest, AFileCarriesTheJobAndTheCarrier) {
    Outcomes outcomes;
    const Batch batch({TestJob("fire", {"ops@b"})}, TestConfig(), outcomes);
    const HostMessageFile& file = *batch.Jobs().at(0).at(0);
    EXPECT_EQ(file.m_strMsgFileID, "fire_1");
    EXPECT_EQ(file.m_strJobID, "fire");
    EXPECT_EQ(file.m_strRecipient, "ops@b");
    EXPECT_EQ(file.m_strSubject, "Hi");
    EXPECT_EQ(file.m_strMessage, "text");
    EXPECT_THAT(file.m_vecAttachments, testing::ElementsAre("plan.pdf"));
    EXPECT_EQ(file.m_strCarrierName, "alarms");
    EXPECT_EQ(file.m_ulCarrierID, 7U);
    EXPECT_EQ(file.m_strSmtpServer, "mx1:587");
    EXPECT_EQ(file.m_eSmtpSecurity, SMTP_SECURITY_REQUIRED);
    EXPECT_EQ(file.m_strSmtpUser, "u");
    EXPECT_EQ(file.m_strSmtpPassword, "p");
    EXPECT_EQ(file.m_strSmtpFrom, "alarms@example.org");
    EXPECT_EQ(file.m_strSmtpCAFile, "ca");
    EXPECT_EQ(file.m_strSmtpCertFile, "cert");
    EXPECT_EQ(file.m_strSmtpKeyFile, "key");
}

TEST(BatchTest, SeveralRecipientsAreFilesThatAgreeUpToTheLastUnderscore) {
    Outcomes outcomes;
    const Batch batch({TestJob("a_b", {"one@b", "two@b", "three@b"})}, TestConfig(), outcomes);
    const Batch::Files& files = batch.Jobs().at(0);
    ASSERT_EQ(files.size(), 3U);
    EXPECT_EQ(files[0]->m_strMsgFileID, "a_b_1");
    EXPECT_EQ(files[1]->m_strMsgFileID, "a_b_2");
    EXPECT_EQ(files[2]->m_strMsgFileID, "a_b_3");
    EXPECT_EQ(files[2]->m_strRecipient, "three@b");
}

TEST(BatchTest, JobsWhoseIdsDifferAfterAnUnderscoreDoNotAgreeUpToTheLastOne) {
    Outcomes outcomes;
    const Batch batch({TestJob("a_1", {"one@b"}), TestJob("a_2", {"two@b"}), TestJob("a", {"three@b"})},
                      TestConfig(), outcomes);
    EXPECT_EQ(batch.Jobs()[0][0]->m_strMsgFileID, "a_1_1");
    EXPECT_EQ(batch.Jobs()[1][0]->m_strMsgFileID, "a_2_1");
    EXPECT_EQ(batch.Jobs()[2][0]->m_strMsgFileID, "a_1");
}

TEST(BatchTest, EveryFileHasAnEntryOfTheOutcomes) {
    Outcomes outcomes;
    const Batch batch({TestJob("a", {"one@b", "two@b"})}, TestConfig(), outcomes);
    ASSERT_EQ(outcomes.All().size(), 2U);
    EXPECT_EQ(outcomes.All()[1].job, "a");
    EXPECT_EQ(outcomes.All()[1].carrier, "alarms");
    EXPECT_EQ(outcomes.All()[1].recipient, "two@b");
    EXPECT_EQ(outcomes.All()[1].status, OutcomeStatus::Waiting);
    EXPECT_EQ(batch.Jobs()[0][1]->OutcomeIndex(), 1U);
}

TEST(BatchTest, ARefusedJobHasAnOutcomeAndNoFile) {
    Job refused = TestJob("a", {"one@b", "two@b"});
    refused.problems = {{"jobs.jsonl", 3, "text", "expected a string"}, {"jobs.jsonl", 3, "id", "bad"}};
    Outcomes outcomes;
    const Batch batch({refused}, TestConfig(), outcomes);
    EXPECT_TRUE(batch.Jobs().empty());
    ASSERT_EQ(outcomes.All().size(), 1U);
    EXPECT_EQ(outcomes.All()[0].status, OutcomeStatus::Refused);
    EXPECT_EQ(outcomes.All()[0].recipient, "one@b +1");
    EXPECT_EQ(outcomes.All()[0].reason, "jobs.jsonl:3: text: expected a string; jobs.jsonl:3: id: bad");
}

TEST(BatchTest, OnlyItsOwnFilesAreFound) {
    Outcomes outcomes;
    const Batch batch({TestJob("a", {"one@b"})}, TestConfig(), outcomes);
    const HostMessageFile stranger(TestJob("b", {"x@y"}), TestCarrier(), 0, 0);
    EXPECT_EQ(batch.Find(batch.Jobs()[0][0].get()), batch.Jobs()[0][0].get());
    EXPECT_EQ(batch.Find(&stranger), nullptr);
    EXPECT_EQ(batch.Find(nullptr), nullptr);
}

}  // namespace
}  // namespace kvhost
