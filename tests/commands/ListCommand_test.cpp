#include <gmock/gmock.h>

#include "CommandFixture.h"

namespace kvhosttest {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

class ListCommandTest : public CommandTest {
protected:
    std::vector<std::string> Ids(const std::vector<std::string>& arguments) {
        std::vector<std::string> options{"--json"};
        options.insert(options.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(Run("list", options), 0) << Error();
        std::vector<std::string> ids;
        const nlohmann::json document = Json();
        for (const auto& job : document["jobs"]) {
            ids.push_back(job["job"]);
        }
        return ids;
    }
};

TEST_F(ListCommandTest, TheNewestJobsComeFirstInAlignedColumns) {
    Submit(Mail("a"));
    SubmitFailed("größer", "550 5.1.1 unknown", "west");
    EXPECT_EQ(Run("list"), 0);
    EXPECT_THAT(
        Output(),
        MatchesRegex(
            "JOB     STATE   CARRIER  RECIPIENT        SUBMITTED            CHANGED  .*TRIES  REASON\n"
            "größer  failed  west     ops@example.org  2023-11-14 22:13:20  .* ago      1  550 5.1.1 "
            "unknown\n"
            "a       queued  east     ops@example.org  2023-11-14 22:13:20  .* ago      0\n"));
    EXPECT_EQ(Error(), "");
}

TEST_F(ListCommandTest, TimesAreThoseOfTheUsersZone) {
    Submit(Mail("a"));
    m_input.environment["TZ"] = "XYZ-2";  // two hours ahead of UTC
    EXPECT_EQ(Run("list"), 0);
    EXPECT_THAT(Output(), HasSubstr("2023-11-15 00:13:20"));
}

TEST_F(ListCommandTest, AnEmptyListSaysSo) {
    EXPECT_EQ(Run("list"), 0);
    EXPECT_EQ(Output(), "no jobs\n");
    EXPECT_EQ(Run("list", {"--json"}), 0);
    EXPECT_EQ(Json(), (nlohmann::json{{"jobs", nlohmann::json::array()}, {"next", nullptr}}));
}

TEST_F(ListCommandTest, JobsAreChosenByStateAndCarrier) {
    Submit(Mail("a"));
    Submit(Mail("b", "west"));
    SubmitFailed("c", "no", "west");
    EXPECT_EQ(Ids({"--state", "queued"}), (std::vector<std::string>{"b", "a"}));
    EXPECT_EQ(Ids({"--carrier", "west"}), (std::vector<std::string>{"c", "b"}));
    EXPECT_EQ(Ids({"--carrier", "west", "--state", "failed"}), std::vector<std::string>{"c"});
    EXPECT_EQ(Ids({"--state", "in-doubt"}), std::vector<std::string>{});
}

TEST_F(ListCommandTest, AnUnknownStateIsRefusedWithTheOnesThereAre) {
    EXPECT_EQ(Run("list", {"--state", "lost"}), 2);
    EXPECT_THAT(Error(),
                HasSubstr("expected queued, handed-over, delivered, failed, in-doubt, held or cancelled"));
}

TEST_F(ListCommandTest, AFullListNamesWhereTheNextOneBegins) {
    for (const char* id : {"a", "b", "c"}) {
        Submit(Mail(id));
    }
    EXPECT_EQ(Run("list", {"--limit", "2"}), 0);
    EXPECT_THAT(Output(), EndsWith("\n\nmore with --before " + std::to_string(KeyOf("b")) + "\n"));
    EXPECT_EQ(Ids({"--limit", "2", "--before", std::to_string(KeyOf("b"))}), std::vector<std::string>{"a"});
    EXPECT_EQ(Json()["next"], nullptr);
    EXPECT_EQ(Ids({"--limit", "2"}), (std::vector<std::string>{"c", "b"}));
    EXPECT_EQ(Json()["next"], KeyOf("b"));
}

TEST_F(ListCommandTest, JsonTellsEveryFieldOfAJob) {
    kvhost::Submission mail = Mail("a");
    mail.isUrgent = true;
    mail.notBefore = Now() + std::chrono::minutes(1);
    mail.deadline = Now() + std::chrono::hours(1);
    Submit(mail);
    EXPECT_EQ(Run("list", {"--json"}), 0);
    const nlohmann::json expected = {{"job", "a"},
                                     {"key", KeyOf("a")},
                                     {"state", "queued"},
                                     {"carrier", "east"},
                                     {"recipient", "ops@example.org"},
                                     {"subject", "Boiler"},
                                     {"urgent", true},
                                     {"submitted", "2023-11-14T22:13:20.000Z"},
                                     {"changed", "2023-11-14T22:13:20.000Z"},
                                     {"due", "2023-11-14T22:14:20.000Z"},
                                     {"deadline", "2023-11-14T23:13:20.000Z"},
                                     {"attempts", 0},
                                     {"crashes", 0},
                                     {"reason", ""},
                                     {"decision", ""}};
    EXPECT_EQ(Json()["jobs"][0], expected);
}

TEST_F(ListCommandTest, ControlCharactersSteerNoTerminal) {
    SubmitFailed("a", "550 \x1b[2J\xc2\x9bgone\nb  delivered");
    EXPECT_EQ(Run("list"), 0);
    EXPECT_THAT(Output(), HasSubstr("550 <ESC>[2J<C2><9B>gone<LF>b  delivered\n"));
    EXPECT_EQ(Run("list", {"--json"}), 0);
    EXPECT_EQ(Output().find('\x1b'), std::string::npos);
    EXPECT_EQ(Output().find('\x9b'), std::string::npos);
    EXPECT_EQ(Json()["jobs"][0]["reason"], "550 \x1b[2J\xc2\x9bgone\nb  delivered");
}

TEST_F(ListCommandTest, AJobThatWasStoppedTellsByWhom) {
    SubmitFailed("a", "550 no");
    kvhost::JobOperations(m_store).Retry("a", Now());
    EXPECT_EQ(Run("list"), 0);
    EXPECT_THAT(Output(), EndsWith("  550 no\n"));
    kvhost::JobOperations(m_store).Cancel("a", Now());
    EXPECT_EQ(Run("list"), 0);
    EXPECT_THAT(Output(), EndsWith("  cancelled by an operator\n"));
}

TEST_F(ListCommandTest, ALongReasonIsCutOff) {
    SubmitFailed("a", std::string(100, 'x'));
    EXPECT_EQ(Run("list"), 0);
    EXPECT_THAT(Output(), EndsWith("  " + std::string(59, 'x') + "…\n"));
}

TEST_F(ListCommandTest, AReaderThatGoesEarlyIsNoFault) {
    std::vector<kvhost::Submission> mails;
    for (int i = 0; i < 3000; ++i) {  // more than a pipe holds
        mails.push_back(Mail("job-" + std::to_string(i)));
    }
    kvhost::JobIntake(m_store).Submit(mails, Now());
    const std::string list = std::string(KV_BINARY_DIR) + "/kvhost list --limit 3000 --store " + m_dir.path();
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", "(" + list + "; echo status $? >&2) | head -n 1"}), 0);
    EXPECT_THAT(Output(), MatchesRegex("JOB [^\n]*\n"));
    EXPECT_EQ(Error(), "status 0\n");
}

TEST_F(ListCommandTest, AFullDiskIsTold) {
    const std::string list = std::string(KV_BINARY_DIR) + "/kvhost list --store " + m_dir.path();
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", list + " > /dev/full"}), 1);
    EXPECT_EQ(Error(), "kvhost: standard output cannot be written: No space left on device\n");
}

TEST_F(ListCommandTest, WithoutAStoreTheStatusIsThree) {
    const kvtest::TempDir empty;
    EXPECT_EQ(RunProgram({KV_BINARY_DIR "/kvhost", "list", "--store", empty.path()}), 3);
    EXPECT_THAT(Error(), HasSubstr("there is no store"));
}

TEST_F(ListCommandTest, TheStoreIsThatOfTheConfiguration) {
    Submit(Mail("a"));
    const kvtest::TempDir folder;
    m_input.environment["KVHOST_CONFIG"] = folder.write("kvhost.toml", "store = \"" + m_dir.path() + "\"\n");
    EXPECT_EQ(RunProgram({KV_BINARY_DIR "/kvhost", "list"}), 0) << Error();
    EXPECT_THAT(Output(), HasSubstr("ops@example.org"));
}

TEST_F(ListCommandTest, AConfigurationWithoutAStoreIsRefused) {
    const kvtest::TempDir folder;
    const std::string file = folder.write("kvhost.toml", "");
    EXPECT_EQ(RunProgram({KV_BINARY_DIR "/kvhost", "list", "--config", file}), 2);
    EXPECT_EQ(Error(),
              "kvhost: " + file + ": store: expected the folder of the job store; the field is missing\n");
}

}  // namespace
}  // namespace kvhosttest
