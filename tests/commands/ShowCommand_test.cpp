#include <gmock/gmock.h>

#include "AttachmentStore.h"
#include "CommandFixture.h"

namespace kvhosttest {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

using ShowCommandTest = CommandTest;

TEST_F(ShowCommandTest, TellsWhatTheJobIsAndWhenItGoesOn) {
    kvhost::Submission mail = Mail("a");
    mail.isUrgent = true;
    mail.notBefore = kvhost::StoreNow() + std::chrono::hours(2) + std::chrono::seconds(59);
    Submit(mail);
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(Output(), ContainsRegex("^Job        a\n"
                                        "State      queued, since 2023-11-14 22:13:20, [^\n]* ago\n"
                                        "Next try   in 2 h, at [0-9-]* [0-9:]*\n"
                                        "Carrier    east\n"
                                        "Recipient  ops@example.org\n"
                                        "Subject    Boiler\n"
                                        "Urgent     yes\n"
                                        "Submitted  2023-11-14 22:13:20, [^\n]* ago\n$"));
}

TEST_F(ShowCommandTest, AJobThatIsDueSaysSinceWhen) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(Output(), HasSubstr("\nNext try   now, since 2023-11-14 22:13:20, "));
}

TEST_F(ShowCommandTest, TellsEveryAttemptWithReasonAndDecision) {
    Submit(Mail("a"));
    const std::int64_t key = KeyOf("a");
    Ledger().BeginAttempts({key}, Now());
    Later(std::chrono::milliseconds(1500));
    Ledger().EndAttempts({RetryAt(key, Now() + std::chrono::minutes(1))}, Now());
    Later(std::chrono::minutes(1));
    Ledger().BeginAttempts({key}, Now());
    Later(std::chrono::seconds(12));
    Ledger().EndAttempts({Failed(key, "550 no such user")}, Now());
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(Output(), HasSubstr("\nWhy        final\nReason     550 no such user\n"));
    EXPECT_THAT(Output(),
                HasSubstr("\nAttempts\n"
                          "  #  BEGUN                 TOOK  OUTCOME  REASON            DECISION\n"
                          "  1  2023-11-14 22:13:20  1.5 s  failed   busy              again later\n"
                          "  2  2023-11-14 22:14:21   12 s  failed   550 no such user  final\n"));
    EXPECT_THAT(Output(), Not(HasSubstr("Next try")));
}

TEST_F(ShowCommandTest, AnAttemptUnderWayIsToldAsSuch) {
    Submit(Mail("a"));
    Ledger().BeginAttempts({KeyOf("a")}, Now());
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(Output(), ContainsRegex("  1  2023-11-14 22:13:20  [^\n]*  under way  -       -\n"));
}

TEST_F(ShowCommandTest, TellsWhatTheOperatorDid) {
    Submit(Mail("a"));
    kvhost::JobOperations(m_store).Hold("a", Now());
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(Output(), HasSubstr("\nState      held, since "));
    EXPECT_THAT(Output(), HasSubstr("\nWhy        held by an operator\n"));
    EXPECT_THAT(Output(), HasSubstr("\nEvents\n"
                                    "  AT                   WHAT\n"
                                    "  2023-11-14 22:13:20  held by an operator\n"));
}

TEST_F(ShowCommandTest, TellsNameSizeAndDigestOfAttachments) {
    kvhost::Submission mail = Mail("a");
    mail.attachments = {kvhost::AttachmentStore(m_dir.path(), 1000).AddContent("plan.txt", "hello")};
    Submit(mail);
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(
        Output(),
        HasSubstr("\nAttachments\n"
                  "  NAME      SIZE  SHA-256\n"
                  "  plan.txt   5 B  2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824\n"));
    EXPECT_EQ(Run("show", {"a", "--json"}), 0);
    EXPECT_EQ(Json()["jobs"][0]["attachments"],
              nlohmann::json::parse(R"([{"name": "plan.txt", "size": 5, "sha256":
              "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"}])"));
}

TEST_F(ShowCommandTest, TheTextIsShownOnlyWhenItIsAskedFor) {
    kvhost::Submission mail = Mail("a");
    mail.text = "The boiler is cold.\r\n\x1b[1mNow.";
    Submit(mail);
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(Output(), Not(HasSubstr("cold")));
    EXPECT_EQ(Run("show", {"a", "--json"}), 0);
    EXPECT_FALSE(Json()["jobs"][0].contains("text"));
    EXPECT_EQ(Run("show", {"a", "--text"}), 0);
    EXPECT_THAT(Output(), HasSubstr("\nText\n  The boiler is cold.\n  <ESC>[1mNow.\n"));
    EXPECT_EQ(Run("show", {"a", "--text", "--json"}), 0);
    EXPECT_EQ(Json()["jobs"][0]["text"], "The boiler is cold.\r\n\x1b[1mNow.");
}

TEST_F(ShowCommandTest, ASubmissionStandsForAllOfItsJobs) {
    kvhost::Submission mail = Mail("a");
    mail.recipients = {"one@example.org", "two@example.org"};
    Submit(mail);
    EXPECT_EQ(Run("show", {"a"}), 0);
    EXPECT_THAT(Output(), ContainsRegex("^Job        a/1\n(.|\n)*\n\nJob        a/2\n"));
    EXPECT_EQ(Run("show", {"a", "--json"}), 0);
    EXPECT_EQ(Json()["jobs"].size(), 2U);
    EXPECT_EQ(Run("show", {"a/2", "--json"}), 0);
    EXPECT_EQ(Json()["jobs"].size(), 1U);
}

TEST_F(ShowCommandTest, JsonHasTheHistory) {
    SubmitFailed("a", "550 no");
    kvhost::JobOperations(m_store).Retry("a", Now());
    EXPECT_EQ(Run("show", {"a", "--json"}), 0);
    EXPECT_EQ(Json()["jobs"][0]["history"], nlohmann::json::parse(R"({
        "attempts": [{"number": 1, "begun": "2023-11-14T22:13:20.000Z", "ended": "2023-11-14T22:13:20.000Z",
                      "outcome": "failed", "reason": "550 no", "decision": "final"}],
        "events": [{"at": "2023-11-14T22:13:20.000Z", "text": "queued again by an operator"}]})"));
}

TEST_F(ShowCommandTest, AnUnknownJobIsToldWithStatusOne) {
    EXPECT_EQ(Run("show", {"nobody"}), 1);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(Error(), "kvhost: nobody: there is no such job; `kvhost list` names them\n");
}

}  // namespace
}  // namespace kvhosttest
