#include <gmock/gmock.h>

#include <filesystem>

#include "AttachmentStore.h"
#include "CommandFixture.h"

namespace kvhosttest {
namespace {

using kvhost::JobState;
using testing::HasSubstr;

using PurgeCommandTest = CommandTest;

TEST_F(PurgeCommandTest, JobsThatEndedLongAgoAreDeleted) {
    SubmitFailed("old", "no");
    Submit(Mail("queued"));
    Later(kvhost::StoreNow() - Now());
    SubmitFailed("young", "no");
    EXPECT_EQ(Run("purge", {"--older", "30d"}), 0);
    EXPECT_EQ(Output(), "deleted 1 job, 1 submission, 0 attachments\n");
    EXPECT_EQ(StateOf("queued"), JobState::Queued);
    EXPECT_EQ(StateOf("young"), JobState::Failed);
    EXPECT_TRUE(kvhost::JobViews(m_store).Show("old").empty());
    ExpectSound();
}

TEST_F(PurgeCommandTest, OnlyThoseOfTheStateAndOnlySoMany) {
    SubmitFailed("a", "no");
    SubmitFailed("b", "no");
    Submit(Mail("c"));
    kvhost::JobOperations(m_store).Cancel("c", Now());
    EXPECT_EQ(Run("purge", {"--older", "1d", "--state", "failed", "--limit", "1", "--json"}), 0);
    EXPECT_EQ(Json(), (nlohmann::json{{"jobs", 1}, {"submissions", 1}, {"attachments", 0}}));
    EXPECT_EQ(Run("purge", {"--older", "1d", "--state", "failed"}), 0);
    EXPECT_EQ(Output(), "deleted 1 job, 1 submission, 0 attachments\n");
    EXPECT_EQ(StateOf("c"), JobState::Cancelled);
}

TEST_F(PurgeCommandTest, MoreJobsThanOnePortionAreDeleted) {
    std::vector<kvhost::Submission> mails;
    std::vector<std::string> names;
    for (int i = 0; i < 2100; ++i) {  // more than two portions
        names.push_back("job-" + std::to_string(i));
        mails.push_back(Mail(names.back()));
    }
    kvhost::JobIntake(m_store).Submit(mails, Now());
    kvhost::JobOperations(m_store).Apply(kvhost::JobOperation::Cancel, names, Now());
    EXPECT_EQ(Run("purge", {"--older", "1d"}), 0);
    EXPECT_EQ(Output(), "deleted 2100 jobs, 2100 submissions, 0 attachments\n");
}

TEST_F(PurgeCommandTest, AttachmentsThatNothingRefersToGoToo) {
    kvhost::AttachmentStore attachments(m_dir.path(), 1000);
    kvhost::Submission mail = Mail("a");
    mail.attachments = {attachments.AddContent("plan.txt", "hello")};
    Submit(mail);
    kvhost::JobOperations(m_store).Cancel("a", Now());
    const auto content = attachments.ContentPath(mail.attachments[0].digest);
    std::filesystem::last_write_time(content,
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(2));
    EXPECT_EQ(Run("purge", {"--older", "1d"}), 0);
    EXPECT_EQ(Output(), "deleted 1 job, 1 submission, 1 attachment\n");
    EXPECT_FALSE(std::filesystem::exists(content));
}

TEST_F(PurgeCommandTest, OnlyAnAgeAndAFinalStateAreTaken) {
    SubmitFailed("a", "no");
    EXPECT_EQ(Run("purge"), 2);
    EXPECT_THAT(Error(), HasSubstr("--older"));
    EXPECT_EQ(Run("purge", {"--older", "soon"}), 2);
    EXPECT_THAT(Error(), HasSubstr("expected a duration such as"));
    EXPECT_EQ(Run("purge", {"--older", "1d", "--state", "queued"}), 2);
    EXPECT_THAT(Error(), HasSubstr("expected delivered, failed or cancelled"));
    EXPECT_EQ(StateOf("a"), JobState::Failed);
}

}  // namespace
}  // namespace kvhosttest
