#include "JobFeed.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Eventually.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

Carrier TestCarrier(const std::string& name) {
    return {.name = name,
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

class JobFeedTest : public testing::Test {
protected:
    JobFeedTest() {
        for (const char* name : {"alarms", "pager"}) {
            m_config.carriers[name] = TestCarrier(name);
        }
    }

    static std::string Line(const std::string& id, const std::string& more = "",
                            const std::string& carrier = "alarms") {
        return R"({"id":")" + id + R"(","carrier":")" + carrier + R"(","text":"text")" +
               (more.empty() ? R"(,"recipient":"ops@b")" : "," + more) + "}\n";
    }

    static std::string Lines(std::size_t count) {
        std::string lines;
        for (std::size_t i = 0; i < count; ++i) {
            lines += Line(std::to_string(i));
        }
        return lines;
    }

    JobFeed& Open(const std::string& jobs, std::size_t readAhead = JobFeed::kReadAhead) {
        return Open(std::vector<std::string>{m_folder.write("jobs.jsonl", jobs)}, readAhead);
    }
    JobFeed& Open(const std::vector<std::string>& paths, std::size_t readAhead = JobFeed::kReadAhead) {
        m_pFeed = std::make_unique<JobFeed>(paths, m_config, m_outcomes, readAhead);
        return *m_pFeed;
    }
    /// All jobs of the carrier, once everything is read.
    std::vector<JobFeed::Files> AllOf(const std::string& jobs) {
        JobFeed& feed = Open(jobs);
        feed.WaitUntilRead();
        return feed.Take("alarms", 1000);
    }

    static constexpr std::size_t kTogether = JobFeed::kTogether;

    const kvtest::TempDir m_folder;
    HostConfig m_config;
    Outcomes m_outcomes;
    std::unique_ptr<JobFeed> m_pFeed;
};

TEST_F(JobFeedTest, AFileCarriesTheJobAndTheCarrier) {
    const std::string plan = m_folder.write("plan.pdf", "%PDF");
    const auto jobs = AllOf(Line("fire", R"("recipient":"ops@b","subject":"Hi","attachments":["plan.pdf"])"));
    const HostMessageFile& file = *jobs.at(0).at(0);
    EXPECT_EQ(file.m_strMsgFileID, "fire_1");
    EXPECT_EQ(file.m_strJobID, "fire");
    EXPECT_EQ(file.m_strRecipient, "ops@b");
    EXPECT_EQ(file.m_strSubject, "Hi");
    EXPECT_EQ(file.m_strMessage, "text");
    EXPECT_THAT(file.m_vecAttachments, ElementsAre(plan));
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

TEST_F(JobFeedTest, SeveralRecipientsAreFilesThatAgreeUpToTheLastUnderscore) {
    const auto jobs = AllOf(Line("a_b", R"("recipients":["one@b","two@b","three@b"])"));
    ASSERT_THAT(jobs, SizeIs(1));
    ASSERT_THAT(jobs[0], SizeIs(3));
    EXPECT_EQ(jobs[0][0]->m_strMsgFileID, "a_b_1");
    EXPECT_EQ(jobs[0][1]->m_strMsgFileID, "a_b_2");
    EXPECT_EQ(jobs[0][2]->m_strMsgFileID, "a_b_3");
    EXPECT_EQ(jobs[0][2]->m_strRecipient, "three@b");
}

TEST_F(JobFeedTest, JobsWhoseIdsDifferAfterAnUnderscoreDoNotAgreeUpToTheLastOne) {
    const auto jobs = AllOf(Line("a_1") + Line("a_2") + Line("a"));
    ASSERT_THAT(jobs, SizeIs(3));
    EXPECT_EQ(jobs[0][0]->m_strMsgFileID, "a_1_1");
    EXPECT_EQ(jobs[1][0]->m_strMsgFileID, "a_2_1");
    EXPECT_EQ(jobs[2][0]->m_strMsgFileID, "a_1");
}

TEST_F(JobFeedTest, EveryFileHasAnEntryOfTheOutcomes) {
    const auto jobs = AllOf(Line("a", R"("recipients":["one@b","two@b"])"));
    const std::vector<Outcome> outcomes = m_outcomes.All();
    ASSERT_THAT(outcomes, SizeIs(2));
    EXPECT_EQ(outcomes[1].job, "a");
    EXPECT_EQ(outcomes[1].carrier, "alarms");
    EXPECT_EQ(outcomes[1].recipient, "two@b");
    EXPECT_EQ(outcomes[1].status, OutcomeStatus::Waiting);
    EXPECT_EQ(jobs.at(0).at(1)->OutcomeIndex(), 1U);
}

TEST_F(JobFeedTest, ARefusedJobHasAnOutcomeAndNoFile) {
    JobFeed& feed = Open(R"({"id":"a","carrier":"alarms","recipients":["one@b","two@b"],"text":5,"x":1})");
    EXPECT_FALSE(feed.WaitForJobs());
    const std::string place = m_folder.file("jobs.jsonl") + ":1: ";
    const std::vector<Outcome> outcomes = m_outcomes.All();
    ASSERT_THAT(outcomes, SizeIs(1));
    EXPECT_EQ(outcomes[0].status, OutcomeStatus::Refused);
    EXPECT_EQ(outcomes[0].recipient, "one@b +1");
    EXPECT_THAT(outcomes[0].reason,
                testing::StartsWith(place + "text: expected a string, found a number; " + place + "x: "));
    EXPECT_THAT(feed.TakeProblems(), SizeIs(2));
    EXPECT_THAT(feed.TakeProblems(), IsEmpty());
    EXPECT_TRUE(feed.IsThrough());
}

TEST_F(JobFeedTest, BlankLinesAreSkippedAndCounted) {
    JobFeed& feed = Open("\n \t\r\n" + Line("a") + "{\n");
    feed.WaitUntilRead();
    EXPECT_THAT(feed.Next("alarms", 10), ElementsAre(1));
    const auto problems = feed.TakeProblems();
    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_EQ(problems[0].line, 4U);
}

TEST_F(JobFeedTest, EachCarrierHasItsJobsInTheOrderOfTheLines) {
    JobFeed& feed = Open(Line("a") + Line("b", "", "pager") + Line("c") + Line("d"));
    feed.WaitUntilRead();
    EXPECT_THAT(feed.Carriers(), ElementsAre("alarms", "pager"));
    EXPECT_THAT(feed.Next("alarms", 2), ElementsAre(1, 3));
    const auto first = feed.Take("alarms", 2);
    ASSERT_THAT(first, SizeIs(2));
    EXPECT_EQ(first[1][0]->m_strJobID, "c");
    EXPECT_THAT(feed.Next("alarms", 10), ElementsAre(4));
    EXPECT_THAT(feed.Next("nobody", 10), IsEmpty());
    feed.Take("pager", 10);
    EXPECT_THAT(feed.Carriers(), ElementsAre("alarms"));
    EXPECT_FALSE(feed.IsThrough());
    feed.Take("alarms", 1);
    EXPECT_TRUE(feed.IsThrough());
}

TEST_F(JobFeedTest, ReadingPausesWhileEnoughWaits) {
    JobFeed& feed = Open(Lines(3 * kTogether), 1);
    EXPECT_TRUE(feed.WaitForJobs());
    EXPECT_TRUE(kvtest::Eventually([this] { return m_outcomes.Count().Total() == 2 * kTogether; }));
    EXPECT_EQ(feed.CountOf("alarms"), kTogether);  // as many again are read and wait for room
    EXPECT_THAT(feed.Take("alarms", 1000), SizeIs(kTogether));
    EXPECT_TRUE(kvtest::Eventually([&] { return feed.CountOf("alarms") == kTogether; }));
    EXPECT_EQ(feed.Next("alarms", 1), std::vector<std::int64_t>{kTogether + 1});
    EXPECT_TRUE(kvtest::Eventually([this] { return m_outcomes.Count().Total() == 3 * kTogether; }));
    feed.Take("alarms", 1000);
    feed.WaitUntilRead();
    EXPECT_FALSE(feed.IsThrough());
    EXPECT_THAT(feed.Take("alarms", 1000), SizeIs(kTogether));
    EXPECT_TRUE(feed.IsThrough());
}

TEST_F(JobFeedTest, AStopReadsTheRestOfAFileForTheOutcomesAlone) {
    JobFeed& feed = Open(Lines(3 * kTogether), 1);
    EXPECT_TRUE(feed.WaitForJobs());
    feed.Stop();
    feed.WaitUntilRead();
    EXPECT_TRUE(feed.IsThrough());
    EXPECT_THAT(feed.Take("alarms", 1000), IsEmpty());
    EXPECT_EQ(m_outcomes.Count().Of(OutcomeStatus::Waiting), 3 * kTogether);
    EXPECT_THAT(feed.CutShort(), IsEmpty());
}

TEST_F(JobFeedTest, AnAbortReadsNothingMore) {
    JobFeed& feed = Open(std::vector<std::string>{m_folder.write("jobs.jsonl", Lines(3 * kTogether)),
                                                  m_folder.write("more", Line("d"))},
                         1);
    EXPECT_TRUE(kvtest::Eventually([this] { return m_outcomes.Count().Total() == 2 * kTogether; }));
    feed.Abort();
    feed.WaitUntilRead();
    EXPECT_EQ(m_outcomes.Count().Total(), 2 * kTogether);
    EXPECT_THAT(feed.CutShort(), ElementsAre(m_folder.file("jobs.jsonl"), m_folder.file("more")));
    EXPECT_THAT(feed.Faults(), IsEmpty());
}

TEST_F(JobFeedTest, AStopCutsTheWaitForAPipeShortAndLeavesHalfALineOut) {
    const std::string path = m_folder.file("pipe");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const int keeper = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    const std::string text = Line("a") + "{\"id\":";
    ASSERT_EQ(::write(keeper, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    JobFeed& feed = Open(std::vector<std::string>{path});
    EXPECT_TRUE(feed.WaitForJobs());
    feed.Stop();
    feed.WaitUntilRead();
    EXPECT_THAT(feed.CutShort(), ElementsAre(path));
    EXPECT_EQ(m_outcomes.Count().Total(), 1U);
    ::close(keeper);
}

TEST_F(JobFeedTest, JobsOfAPipeAreThereAsSoonAsTheyAreWritten) {
    const std::string path = m_folder.file("pipe");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const int keeper = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    JobFeed& feed = Open(std::vector<std::string>{path});
    for (const char* id : {"a", "b"}) {
        const std::string text = Line(id);
        ASSERT_EQ(::write(keeper, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        EXPECT_TRUE(feed.WaitForJobs());
        const auto jobs = feed.Take("alarms", 10);
        ASSERT_THAT(jobs, SizeIs(1));
        EXPECT_EQ(jobs[0][0]->m_strJobID, id);
    }
    ::close(keeper);
}

TEST_F(JobFeedTest, AnIdIsUsedOnceInAllFiles) {
    JobFeed& feed =
        Open(std::vector<std::string>{m_folder.write("one", Line("a")), m_folder.write("two", Line("a"))});
    feed.WaitUntilRead();
    const auto problems = feed.TakeProblems();
    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_EQ(Describe(problems[0]), m_folder.file("two") +
                                         ":1: id: expected an id of its own, \"a\" is used at " +
                                         m_folder.file("one") + ":1");
}

TEST_F(JobFeedTest, AFileThatCannotBeReadThrowsBeforeAnythingIsRead) {
    const std::string good = m_folder.write("good", Line("a"));
    EXPECT_THROW(Open(std::vector<std::string>{good, m_folder.file("nosuch")}), BadInput);
    EXPECT_THROW(Open(std::vector<std::string>{good, "/tmp"}), BadInput);
    EXPECT_EQ(m_outcomes.Count().Total(), 0U);
}

TEST_F(JobFeedTest, WhatCannotBeReadOnTheWayIsAFaultAndTheJobsAroundItStay) {
    // Reading from it fails, although it can be opened.
    JobFeed& feed = Open(std::vector<std::string>{m_folder.write("good", Line("a")), "/proc/self/mem",
                                                  m_folder.write("more", Line("b"))});
    feed.WaitUntilRead();
    EXPECT_THAT(feed.Faults(), ElementsAre(testing::StartsWith("/proc/self/mem:1: cannot be read: ")));
    EXPECT_THAT(feed.Take("alarms", 10), SizeIs(2));
}

TEST_F(JobFeedTest, TheJobsBeforeALineThatIsTooLongStay) {
    const std::string path = m_folder.write("jobs.jsonl", Line("a") + Line("b"));
    std::filesystem::resize_file(path, std::size_t{257} << 20U);  // NUL bytes behind the lines
    JobFeed& feed = Open(std::vector<std::string>{path});
    feed.WaitUntilRead();
    EXPECT_THAT(feed.Faults(), ElementsAre(path + ":3: expected at most 256 MiB, found more"));
    EXPECT_THAT(feed.Take("alarms", 10), SizeIs(2));
}

TEST_F(JobFeedTest, APipeThatNobodyWritesHoldsUpNoStop) {
    const std::string path = m_folder.file("pipe");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    JobFeed& feed = Open(std::vector<std::string>{m_folder.write("good", Line("a")), path});
    EXPECT_TRUE(feed.WaitForJobs());
    feed.Stop();
    feed.WaitUntilRead();
    EXPECT_THAT(feed.CutShort(), ElementsAre(path));
}

TEST_F(JobFeedTest, APipeIsReadToItsEndOnceItsWriterHasCome) {
    const std::string path = m_folder.file("pipe");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    JobFeed& feed = Open(std::vector<std::string>{m_folder.write("good", Line("a")), path});
    EXPECT_TRUE(feed.WaitForJobs());
    const std::string text = Line("b");
    const int writer = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(writer);
    feed.WaitUntilRead();
    EXPECT_THAT(feed.Take("alarms", 10), SizeIs(2));
    EXPECT_THAT(feed.CutShort(), IsEmpty());
}

TEST_F(JobFeedTest, AnEmptyFileHasNoJobs) {
    JobFeed& feed = Open("");
    EXPECT_FALSE(feed.WaitForJobs());
    EXPECT_TRUE(feed.IsThrough());
}

}  // namespace
}  // namespace kvhost
