#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "AttachmentStore.h"
#include "Doorbell.h"
#include "JobViews.h"
#include "StoreLock.h"
#include "TempDir.h"
#include "TimeText.h"
#include "host/ChildProcess.h"

namespace kvhosttest {
namespace {

using namespace kvhost;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

/// Runs "kvhost submit" with a configuration of one carrier, whose password is out of reach.
class SubmitCommandTest : public testing::Test {
protected:
    int Run(std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), {std::string(KV_BINARY_DIR) + "/kvhost", "submit"});
        ChildProcess child(arguments, {input, {{"KVHOST_CONFIG", m_strConfig}}});
        const int status = child.Wait();
        m_strOut = child.Output();
        m_strErr = child.Error();
        return status;
    }
    /// One job by options, with the text "cold".
    int RunJob(const std::string& id, std::vector<std::string> more = {}) {
        more.insert(more.begin(),
                    {"--carrier", "pager", "--to", "ops@example.org", "--text", "cold", "--id", id});
        return Run(more);
    }
    std::string StoreFolder() const { return m_folder.file("store"); }
    JobHistory Job(const std::string& id) {
        StoreDatabase store(StoreFolder(), StoreDatabase::Access::Existing);
        const std::vector<JobHistory> found = JobViews(store).Show(id);
        EXPECT_EQ(found.size(), 1U) << id;
        return found.empty() ? JobHistory() : found.front();
    }
    std::int64_t CountJobs() {
        StoreDatabase store(StoreFolder(), StoreDatabase::Access::Existing);
        return JobViews(store).Count()[JobState::Queued];
    }

    const kvtest::TempDir m_folder;
    const std::string m_strConfig = m_folder.write("kvhost.toml",
                                                   "store = \"store\"\n"
                                                   "[limits]\nrecipients = 2\n"
                                                   "[http]\nsubmit = true\ntoken_file = \"no-such-token\"\n"
                                                   "[carrier.pager]\n"
                                                   "server = \"mx.example.org\"\n"
                                                   "security = \"clear\"\n"
                                                   "sender = \"pager@example.org\"\n"
                                                   "user = \"u\"\n"
                                                   "password_file = \"no-such-password\"\n"
                                                   "[carrier.broken]\n"
                                                   "server = \"mx.example.org\"\n"
                                                   "security = \"loud\"\n"
                                                   "sender = \"pager@example.org\"\n");
    std::string m_strOut;
    std::string m_strErr;
};

TEST_F(SubmitCommandTest, OptionsMakeAJobAndTheStore) {
    EXPECT_EQ(RunJob("a", {"--subject", "Boiler", "--urgent", "--deadline", "2099-01-01T00:00:00Z",
                           "--not-before", "2098-01-01T00:00:00Z"}),
              0);
    EXPECT_EQ(m_strOut, "a stored\n");
    EXPECT_EQ(m_strErr, "");
    const JobHistory history = Job("a");
    EXPECT_EQ(history.job.carrier, "pager");
    EXPECT_EQ(history.job.recipient, "ops@example.org");
    EXPECT_EQ(history.job.subject, "Boiler");
    EXPECT_EQ(history.text, "cold");
    EXPECT_TRUE(history.job.isUrgent);
    EXPECT_EQ(history.job.deadline, ParseTime("2099-01-01T00:00:00Z"));
    EXPECT_EQ(history.job.due, *ParseTime("2098-01-01T00:00:00Z"));
}

TEST_F(SubmitCommandTest, TheSameAgainIsOneJobAndAnotherIsAConflict) {
    EXPECT_EQ(RunJob("a"), 0);
    EXPECT_EQ(RunJob("a"), 0);
    EXPECT_EQ(m_strOut, "a repeated\n");
    EXPECT_EQ(RunJob("a", {"--subject", "other"}), 1);
    EXPECT_THAT(m_strOut, StartsWith("a conflict: id: expected an identifier of its own"));
    EXPECT_EQ(CountJobs(), 1);
}

TEST_F(SubmitCommandTest, AnAbsentIdIsTold) {
    EXPECT_EQ(Run({"--carrier", "pager", "--to", "a@b", "--text", ""}), 0);
    EXPECT_THAT(m_strOut, MatchesRegex("[0-9a-f]{32} stored\n"));
}

TEST_F(SubmitCommandTest, RecipientsMayBeRepeatedAndStandAlone) {
    EXPECT_EQ(Run({"--carrier", "pager", "--to", "a@b", "--text", "x", "--id", "a", "c@d"}), 0);
    EXPECT_EQ(Job("a/1").job.recipient, "a@b");
    EXPECT_EQ(Job("a/2").job.recipient, "c@d");
}

TEST_F(SubmitCommandTest, RefusedJobsAreToldAndEndWithOne) {
    EXPECT_EQ(RunJob("a", {"--to", "b@c", "--to", "d@e", "--deadline", "soon"}), 1);
    EXPECT_THAT(m_strOut, StartsWith("a refused: deadline: expected a time"));
    EXPECT_THAT(m_strOut, HasSubstr("; recipients: expected at most 2 recipients"));
    EXPECT_EQ(Run({"--carrier", "broken", "--to", "a@b", "--text", "x", "--id", "a"}), 1);
    EXPECT_THAT(m_strOut, HasSubstr("carrier: the carrier is refused: "));
    EXPECT_EQ(CountJobs(), 0);
}

TEST_F(SubmitCommandTest, JsonTellsTheSame) {
    EXPECT_EQ(RunJob("a", {"--json"}), 0);
    EXPECT_EQ(json::parse(m_strOut), json({{"id", "a"}, {"status", "stored"}}));
    EXPECT_EQ(RunJob("a/b", {"--json"}), 1);
    const json answer = json::parse(m_strOut);
    EXPECT_EQ(answer["status"], "refused");
    EXPECT_EQ(answer["faults"][0]["field"], "id");
}

TEST_F(SubmitCommandTest, ATextOfStandardInputIsStoredByteForByte) {
    const std::string text = "caf\xc3\xa9\n.\n..\r\n" + std::string(2000, 'x') + "\r\nno end";
    EXPECT_EQ(Run({"--carrier", "pager", "--to", "a@b", "--text-file", "-", "--id", "a"}, text), 0);
    EXPECT_EQ(Job("a").text, text);
    EXPECT_EQ(
        Run({"--carrier", "pager", "--to", "a@b", "--text-file", m_folder.write("t", text), "--id", "a"}), 0);
    EXPECT_EQ(m_strOut, "a repeated\n");
}

TEST_F(SubmitCommandTest, AttachmentsAreSeenFromTheCurrentFolderAndAnywhere) {
    m_folder.write("plan.pdf", "%PDF");
    const std::string relative =
        std::filesystem::relative(m_folder.file("plan.pdf"), std::filesystem::current_path()).string();
    EXPECT_EQ(RunJob("a", {"--attach", relative, "--attach", m_folder.file("plan.pdf")}), 0);
    EXPECT_EQ(Job("a").attachments.size(), 2U);
    EXPECT_EQ(RunJob("b", {"--attach", m_folder.file("no-such")}), 1);
    EXPECT_THAT(m_strOut, HasSubstr("b refused: attachments[1]: "));
}

TEST_F(SubmitCommandTest, LinesSeeAttachmentsFromTheirFile) {
    m_folder.write("plan.pdf", "%PDF");
    const std::string jobs = m_folder.write(
        "jobs.jsonl",
        R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x","attachments":["plan.pdf"]})"
        "\n");
    EXPECT_EQ(Run({"--jsonl", jobs}), 0);
    EXPECT_EQ(m_strErr, "kvhost: 1 stored, 0 repeated, 0 in conflict, 0 refused\n");
    EXPECT_EQ(Job("a").attachments.at(0).name, "plan.pdf");
}

TEST_F(SubmitCommandTest, LinesOfStandardInputAreAnsweredOneByOne) {
    const std::string lines =
        "{\"id\":\"a\",\"carrier\":\"pager\",\"recipient\":\"a@b\",\"text\":\"x\"}\n{\"id\":\"b\"}\n";
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--jsonl"}, std::vector<std::string>{"--jsonl", "-"}}) {
        EXPECT_EQ(Run(arguments, lines), 1);
        EXPECT_THAT(
            m_strOut,
            HasSubstr("b refused: standard input:2: carrier: expected a string, the field is missing; "
                      "standard input:2: recipient: "));
    }
    EXPECT_THAT(m_strOut, StartsWith("a repeated\n"));
    EXPECT_EQ(m_strErr, "kvhost: 0 stored, 1 repeated, 0 in conflict, 1 refused\n");
}

TEST_F(SubmitCommandTest, StrictLinesAreStoredAllOrNotAtAll) {
    EXPECT_EQ(
        Run({"--jsonl", "--strict"},
            "{\"id\":\"a\",\"carrier\":\"pager\",\"recipient\":\"a@b\",\"text\":\"x\"}\n{\"id\":\"b\"}\n"),
        1);
    EXPECT_EQ(CountJobs(), 0);
}

TEST_F(SubmitCommandTest, AMessageIsSubmittedToItsRecipients) {
    EXPECT_EQ(Run({"--carrier", "pager", "--id", "a", "--eml"},
                  "To: Ops <ops@example.org>\nSubject: =?utf-8?Q?caf=C3=A9?=\n\ncold\n"),
              0);
    EXPECT_EQ(m_strOut, "a stored\n");
    EXPECT_EQ(Job("a").job.recipient, "ops@example.org");
    EXPECT_EQ(Job("a").job.subject, "caf\xc3\xa9");
    EXPECT_EQ(Job("a").text, "cold\n");
}

TEST_F(SubmitCommandTest, NamedRecipientsReplaceThoseOfTheMessage) {
    EXPECT_EQ(Run({"--carrier", "pager", "--id", "a", "--eml", "-", "duty@example.org"},
                  "To: ops@example.org\n\ncold\n"),
              0);
    EXPECT_EQ(Job("a").job.recipient, "duty@example.org");
}

TEST_F(SubmitCommandTest, AMessageThatCannotBeReadIsRefused) {
    EXPECT_EQ(Run({"--carrier", "pager", "--id", "a", "--eml"}, "no header here\n"), 1);
    EXPECT_THAT(m_strOut, StartsWith("a refused: expected a header field"));
    EXPECT_EQ(Run({"--carrier", "pager", "--id", "a", "--eml"}, "Subject: x\n\nno recipient\n"), 1);
    EXPECT_EQ(m_strOut, "a refused: recipients: expected at least one recipient\n");
}

TEST_F(SubmitCommandTest, ASubmissionBesideARunningHostWakesIt) {
    StoreDatabase store(StoreFolder(), StoreDatabase::Access::Create);
    const StoreLock lock(StoreFolder());
    Doorbell bell(StoreFolder());
    EXPECT_EQ(RunJob("a"), 0);
    EXPECT_TRUE(bell.Answer());
}

TEST_F(SubmitCommandTest, BadUsageEndsWithTwoAndItsRemedy) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> uses{
        {{"--to", "a@b", "--text", "x"}, "--carrier is missing"},
        {{"--carrier", "pager", "--text", "x"}, "--to is missing"},
        {{"--carrier", "pager", "--to", "a@b"}, "expected --text or --text-file"},
        {{"--carrier", "pager", "--to", "a@b", "--text", "x", "--text-file", "y"}, "found both"},
        {{"--jsonl", "-", "--carrier", "pager"}, "--carrier does not go with --jsonl"},
        {{"--jsonl", "-", "a@b"}, "recipients does not go with --jsonl"},
        {{"--jsonl", "-", "--eml", "-"}, "--eml does not go with --jsonl"},
        {{"--eml", "-", "--carrier", "pager", "--subject", "x"}, "--subject does not go with --eml"},
        {{"--carrier", "pager", "--to", "a@b", "--text", "x", "--strict"}, "--strict goes with --jsonl only"},
        {{"--jsonl", "/no/such/file"}, "/no/such/file: cannot be read: No such file or directory"},
        {{"--config", "/no/such/file", "--jsonl"}, "/no/such/file: expected a readable file"},
        {{"--colour"}, "--colour"}};
    for (const auto& [arguments, expected] : uses) {
        EXPECT_EQ(Run(arguments), 2) << expected;
        EXPECT_THAT(m_strErr, HasSubstr(expected));
        EXPECT_THAT(m_strOut, IsEmpty());
    }
}

TEST_F(SubmitCommandTest, AStoreThatCannotBeUsedEndsWithThree) {
    EXPECT_EQ(RunJob("a", {"--store", m_folder.write("file", "")}), 3);
    EXPECT_THAT(m_strErr, HasSubstr("the store's folder cannot be made"));
    EXPECT_THAT(m_strOut, IsEmpty());
}

TEST_F(SubmitCommandTest, AConfigurationWithoutAStoreIsRefused) {
    const std::string config = m_folder.write("other.toml", "");
    EXPECT_EQ(RunJob("a", {"--config", config}), 2);
    EXPECT_THAT(m_strErr, HasSubstr("store: expected the folder of the job store"));
}

TEST_F(SubmitCommandTest, AnswersThatCannotBeWrittenAreNoSuccess) {
    std::string command =
        std::string(KV_BINARY_DIR) + "/kvhost submit --carrier pager --to a@b --text x --id a >/dev/full";
    ChildProcess child({"/bin/sh", "-c", command}, {"", {{"KVHOST_CONFIG", m_strConfig}}});
    EXPECT_EQ(child.Wait(), 2);
    EXPECT_THAT(child.Error(), HasSubstr("the answers could not be written; what was submitted is stored"));
    EXPECT_EQ(Job("a").text, "x");
}

}  // namespace
}  // namespace kvhosttest
