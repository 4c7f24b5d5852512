#include "JobIntake.h"

#include <SQLiteCpp/Exception.h>

#include "StoreFixture.h"

namespace kvhost {
namespace {

class JobIntakeTest : public kvhosttest::StoreTest {
protected:
    SubmitResult SubmitOne(const Submission& submission) {
        return JobIntake(m_store).Submit({submission}, Now()).front();
    }
};

TEST_F(JobIntakeTest, AStoredSubmissionIsThereForTheNextConnection) {
    Submission mail = Mail("a");
    mail.subject = "Grüße";
    mail.text = std::string("one\0two\r\n.", 10);
    mail.attachments = {{"plan.pdf", std::string(64, 'a'), 7}, {"photo.png", std::string(64, 'b'), 9}};
    Submit(mail);
    StoreDatabase other(m_dir.path(), StoreDatabase::Access::Existing);
    const JobHistory history = JobViews(other).Show("a").at(0);
    EXPECT_EQ(history.job.subject, "Grüße");
    EXPECT_EQ(history.text, mail.text);
    EXPECT_EQ(history.job.recipient, "ops@example.org");
    EXPECT_EQ(history.job.carrier, "east");
    EXPECT_EQ(history.job.state, JobState::Queued);
    EXPECT_EQ(history.job.submitted, Now());
    EXPECT_EQ(history.job.due, Now());
    ASSERT_EQ(history.attachments.size(), 2U);
    EXPECT_EQ(history.attachments[0].name, "plan.pdf");
    EXPECT_EQ(history.attachments[1].digest, std::string(64, 'b'));
    EXPECT_EQ(history.attachments[1].size, 9U);
}

TEST_F(JobIntakeTest, EachRecipientIsAJobOfItsOwnNumberedFromOne) {
    Submission mail = Mail("a");
    mail.recipients = {"x@example.org", "y@example.org"};
    Submit(mail);
    EXPECT_EQ(Job("a/1").recipient, "x@example.org");
    EXPECT_EQ(Job("a/2").recipient, "y@example.org");
    EXPECT_EQ(JobViews(m_store).Show("a").size(), 2U);
}

TEST_F(JobIntakeTest, TheSameSubmissionTwiceIsOneJob) {
    Submit(Mail("a"));
    EXPECT_EQ(SubmitOne(Mail("a")), SubmitResult::Repeated);
    EXPECT_EQ(JobViews(m_store).Count()[JobState::Queued], 1);
}

TEST_F(JobIntakeTest, ARepetitionWithinOneTransactionIsOneJobToo) {
    const std::vector<SubmitResult> results =
        JobIntake(m_store).Submit({Mail("a"), Mail("b"), Mail("a")}, Now());
    EXPECT_EQ(results, (std::vector{SubmitResult::Stored, SubmitResult::Stored, SubmitResult::Repeated}));
    EXPECT_EQ(JobViews(m_store).Count()[JobState::Queued], 2);
}

TEST_F(JobIntakeTest, ARepetitionThatMeansTheSameTimeInOtherWordsIsARepetition) {
    Submission mail = Mail("a");
    mail.deadline = Now() + std::chrono::hours(1);
    Submit(mail);
    mail.deadline = Now() + std::chrono::hours(2);
    EXPECT_EQ(SubmitOne(mail), SubmitResult::Repeated);
    EXPECT_EQ(Job("a").deadline, Now() + std::chrono::hours(1));
}

TEST_F(JobIntakeTest, AnotherSubmissionOfTheSameNameIsAConflictAndIsNotStored) {
    Submit(Mail("a"));
    Submission other = Mail("a");
    other.text += " Really.";
    EXPECT_EQ(SubmitOne(other), SubmitResult::Conflict);
    EXPECT_EQ(History("a").text, "The boiler is cold.");
}

TEST_F(JobIntakeTest, ANameThatIsAJobOfAnotherSubmissionIsAConflict) {
    Submission mail = Mail("a");
    mail.recipients = {"x@example.org", "y@example.org"};
    Submit(mail);
    EXPECT_EQ(SubmitOne(Mail("a/2")), SubmitResult::Conflict);
    Submit(Mail("b/1"));
    mail.id = "b";
    EXPECT_EQ(SubmitOne(mail), SubmitResult::Conflict);
    ExpectSound();
}

TEST_F(JobIntakeTest, AConflictLeavesTheOthersOfItsTransactionAlone) {
    Submit(Mail("a"));
    Submission other = Mail("a");
    other.subject = "Other";
    EXPECT_EQ(JobIntake(m_store).Submit({Mail("b"), other, Mail("c")}, Now()),
              (std::vector{SubmitResult::Stored, SubmitResult::Conflict, SubmitResult::Stored}));
}

TEST_F(JobIntakeTest, AFailureStoresNothingOfItsTransaction) {
    m_store.Connection().exec(
        "CREATE TEMP TRIGGER fault BEFORE INSERT ON job WHEN new.id = 'b' BEGIN SELECT raise(ABORT, 'full'); "
        "END");
    EXPECT_THROW(JobIntake(m_store).Submit({Mail("a"), Mail("b")}, Now()), SQLite::Exception);
    EXPECT_TRUE(JobViews(m_store).Count().empty());
    EXPECT_TRUE(JobViews(m_store).Show("a").empty());
}

TEST_F(JobIntakeTest, AJobMayWaitForItsTimeAndHaveADeadline) {
    Submission mail = Mail("a");
    mail.notBefore = Now() + std::chrono::minutes(5);
    mail.deadline = Now() + std::chrono::minutes(9);
    Submit(mail);
    EXPECT_EQ(Job("a").due, Now() + std::chrono::minutes(5));
    EXPECT_EQ(Job("a").deadline, Now() + std::chrono::minutes(9));
}

class FingerprintTest : public JobIntakeTest, public testing::WithParamInterface<int> {
protected:
    static Submission Changed(Submission mail, int what) {
        switch (what) {
            case 0:
                mail.carrier = "west";
                break;
            case 1:
                mail.recipients.emplace_back("z@example.org");
                break;
            case 2:
                mail.subject += "!";
                break;
            case 3:
                mail.text += "!";
                break;
            case 4:
                mail.attachments.push_back({"plan.pdf", std::string(64, 'a'), 1});
                break;
            case 5:
                mail.isUrgent = true;
                break;
            default:  // the same characters, another division
                mail.subject += "T";
                mail.text.erase(0, 1);
        }
        return mail;
    }
};

TEST_P(FingerprintTest, DiffersWhenAnythingThatIsSentDiffers) {
    EXPECT_NE(Fingerprint(Mail("a")), Fingerprint(Changed(Mail("a"), GetParam())));
}

INSTANTIATE_TEST_SUITE_P(EveryField, FingerprintTest, testing::Range(0, 7));

TEST_F(JobIntakeTest, AFingerprintDoesNotDependOnTheName) {
    EXPECT_EQ(Fingerprint(Mail("a")), Fingerprint(Mail("b")));
    EXPECT_EQ(Fingerprint(Mail("a")).size(), 64U);
}

}  // namespace
}  // namespace kvhost
