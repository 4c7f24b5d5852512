#include "JobReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "TempDir.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class JobReaderTest : public testing::Test {
protected:
    JobReaderTest() {
        m_config.carriers["pager"].name = "pager";
        m_config.refusedCarriers["broken"] = "kvhost.toml:1: carrier.broken.server: expected a string";
    }

    /// Reads the lines of `text` as those of the file "jobs.jsonl" of the current folder.
    std::vector<Job> Read(const std::string& text) {
        JobReader reader(m_config);
        std::vector<Job> jobs;
        std::istringstream stream(text);
        std::string line;
        for (unsigned long number = 1; std::getline(stream, line); ++number) {
            jobs.push_back(reader.Read(line, "jobs.jsonl", number));
        }
        return jobs;
    }

    /// The faults of a single line.
    std::vector<std::string> FaultsOf(const std::string& line) {
        std::vector<std::string> faults;
        for (const Job& job : Read(line)) {
            for (const Problem& problem : job.problems) {
                faults.push_back(Describe(problem));
            }
        }
        return faults;
    }

    HostConfig m_config;
};

TEST_F(JobReaderTest, AJobIsReadWholly) {
    const kvtest::TempDir folder;
    const std::string plan = folder.write("plan.pdf", "%PDF");
    const std::string jobs = folder.file("jobs.jsonl");
    const Job job = JobReader(m_config).Read(
        R"({"id":"a_1","carrier":"pager","recipient":"ops@b","subject":"Hi","text":"x\ny","attachments":["plan.pdf"]})",
        jobs, 1);
    EXPECT_FALSE(job.IsRefused());
    EXPECT_EQ(job.file, jobs);
    EXPECT_EQ(job.line, 1U);
    EXPECT_EQ(job.id, "a_1");
    EXPECT_EQ(job.carrier, "pager");
    EXPECT_THAT(job.recipients, ElementsAre("ops@b"));
    EXPECT_EQ(job.subject, "Hi");
    EXPECT_EQ(job.text, "x\ny");
    EXPECT_THAT(job.attachments, ElementsAre(plan));
}

TEST_F(JobReaderTest, SubjectAndAttachmentsMayBeAbsent) {
    const auto jobs = Read(R"({"id":"a","carrier":"pager","recipient":"a@b","text":""})");
    ASSERT_FALSE(jobs.at(0).IsRefused());
    EXPECT_EQ(jobs[0].subject, "");
    EXPECT_THAT(jobs[0].attachments, IsEmpty());
}

TEST_F(JobReaderTest, SeveralRecipientsKeepTheirOrder) {
    const auto jobs = Read(R"({"id":"a","carrier":"pager","recipients":["c@d","a@b","c@d"],"text":"x"})");
    EXPECT_THAT(jobs.at(0).recipients, ElementsAre("c@d", "a@b", "c@d"));
}

TEST_F(JobReaderTest, ARefusedLineLeavesTheOthers) {
    const auto jobs = Read(
        "{\n"
        R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x"})");
    ASSERT_EQ(jobs.size(), 2U);
    EXPECT_TRUE(jobs[0].IsRefused());
    EXPECT_FALSE(jobs[1].IsRefused());
}

TEST_F(JobReaderTest, MalformedJsonIsRefused) {
    EXPECT_THAT(FaultsOf(R"({"id":"a",)"),
                ElementsAre("jobs.jsonl:1: malformed JSON at byte 11, expected one JSON object"));
}

TEST_F(JobReaderTest, TextThatIsNoUtf8IsMalformed) {
    EXPECT_THAT(FaultsOf("{\"id\":\"\xff\"}"),
                ElementsAre("jobs.jsonl:1: malformed JSON at byte 8, expected one JSON object"));
}

TEST_F(JobReaderTest, AValueThatIsNoObjectIsRefused) {
    EXPECT_THAT(FaultsOf("[1]"), ElementsAre("jobs.jsonl:1: expected one JSON object, found an array"));
}

TEST_F(JobReaderTest, AFieldThatIsGivenTwiceIsRefused) {
    EXPECT_THAT(FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x","text":"y"})"),
                ElementsAre("jobs.jsonl:1: expected every field once, found \"text\" twice"));
}

TEST_F(JobReaderTest, MissingFieldsAreRefused) {
    EXPECT_THAT(
        FaultsOf("{}"),
        ElementsAre("jobs.jsonl:1: id: expected a string, the field is missing",
                    "jobs.jsonl:1: carrier: expected a string, the field is missing",
                    "jobs.jsonl:1: recipient: expected recipient or recipients, both fields are missing",
                    "jobs.jsonl:1: text: expected a string, the field is missing"));
}

TEST_F(JobReaderTest, UnknownFieldsAreRefused) {
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x","cc":"c@d"})"),
        ElementsAre("jobs.jsonl:1: cc: unknown field, expected id, carrier, recipient, recipients, subject, "
                    "text or attachments"));
}

TEST_F(JobReaderTest, FieldsOfAnotherTypeAreRefused) {
    EXPECT_THAT(
        FaultsOf(R"({"id":1,"carrier":null,"recipient":{},"subject":true,"text":[],"attachments":"f"})"),
        ElementsAre("jobs.jsonl:1: id: expected a string, found a number",
                    "jobs.jsonl:1: carrier: expected a string, found null",
                    "jobs.jsonl:1: recipient: expected a string, found an object",
                    "jobs.jsonl:1: subject: expected a string, found a boolean",
                    "jobs.jsonl:1: text: expected a string, found an array",
                    "jobs.jsonl:1: attachments: expected an array of strings, found a string"));
}

TEST_F(JobReaderTest, ARecipientsListHoldsStringsOnly) {
    EXPECT_THAT(FaultsOf(R"({"id":"a","carrier":"pager","recipients":["a@b",2],"text":"x"})"),
                ElementsAre("jobs.jsonl:1: recipients: expected an array of strings, found a number in it"));
}

TEST_F(JobReaderTest, ARecipientsListIsNotEmpty) {
    EXPECT_THAT(FaultsOf(R"({"id":"a","carrier":"pager","recipients":[],"text":"x"})"),
                ElementsAre("jobs.jsonl:1: recipients: expected at least one recipient"));
}

TEST_F(JobReaderTest, RecipientAndRecipientsExcludeEachOther) {
    EXPECT_THAT(FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","recipients":["c@d"],"text":"x"})"),
                ElementsAre("jobs.jsonl:1: recipient: expected either recipient or recipients, found both"));
}

TEST_F(JobReaderTest, AnEmptyRecipientIsRefused) {
    EXPECT_THAT(FaultsOf(R"({"id":"a","carrier":"pager","recipient":"","text":"x"})"),
                ElementsAre("jobs.jsonl:1: recipient: expected a mail address, found an empty one"));
}

TEST_F(JobReaderTest, ARecipientThatCouldAddACommandIsRefused) {
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pager","recipients":["a@b","c@d>\r\nDATA"],"text":"x"})"),
        ElementsAre("jobs.jsonl:1: recipients: expected a mail address without control characters and "
                    "without \"<\" and \">\""));
}

TEST_F(JobReaderTest, ASubjectIsOneLine) {
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","subject":"a\nBcc: x","text":"x"})"),
        ElementsAre("jobs.jsonl:1: subject: expected one line of text, without CR, LF and NUL"));
}

TEST_F(JobReaderTest, ATextHasNoNul) {
    EXPECT_THAT(FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":"a\u0000b"})"),
                ElementsAre("jobs.jsonl:1: text: expected a text without NUL"));
}

TEST_F(JobReaderTest, ATextMayHaveALineOfASingleDot) {
    EXPECT_THAT(FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":"a\n.\nb"})"), IsEmpty());
}

TEST_F(JobReaderTest, ATextThatCanOnlyBeAttachedIsRefusedWithTheRemedy) {
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":")" + std::string(999, 'x') +
                 R"("})"),
        ElementsAre("jobs.jsonl:1: text: expected a text that mail can carry, it has a line of more than 998 "
                    "bytes; attach it as a file instead"));
}

TEST_F(JobReaderTest, AnAttachmentWhoseNameWouldNotArriveIsRefusedWithTheRemedy) {
    const kvtest::TempDir folder;
    const std::string path = folder.write("caf\xC3\xA9.txt", "x");
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x","attachments":[")" + path +
                 R"("]})"),
        ElementsAre("jobs.jsonl:1: attachments: expected a file name in ASCII: other characters arrive as "
                    "something else in some mail programs; rename \"" +
                    path + "\""));
}

TEST_F(JobReaderTest, AnUnknownCarrierIsRefused) {
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pigeon","recipient":"a@b","text":"x"})"),
        ElementsAre("jobs.jsonl:1: carrier: expected a carrier of the configuration, found \"pigeon\""));
}

TEST_F(JobReaderTest, AJobOfARefusedCarrierIsRefusedWithItsReason) {
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"broken","recipient":"a@b","text":"x"})"),
        ElementsAre("jobs.jsonl:1: carrier: the carrier is refused: kvhost.toml:1: carrier.broken.server: "
                    "expected a string"));
}

TEST_F(JobReaderTest, AnAttachmentThatCannotBeReadIsRefused) {
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x","attachments":["no/such"]})"),
        ElementsAre("jobs.jsonl:1: attachments: expected a readable file, \"no/such\": No such file or "
                    "directory"));
    EXPECT_THAT(
        FaultsOf(R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x","attachments":["/dev/null"]})"),
        ElementsAre("jobs.jsonl:1: attachments: expected a regular file, \"/dev/null\" is none"));
}

TEST_F(JobReaderTest, AnIdIsUsedOnceInAllFiles) {
    JobReader reader(m_config);
    const std::string line = R"({"id":"a","carrier":"pager","recipient":"a@b","text":"x"})";
    EXPECT_FALSE(reader.Read(line, "one.jsonl", 1).IsRefused());
    const Job second = reader.Read(line, "two.jsonl", 2);
    ASSERT_EQ(second.problems.size(), 1U);
    EXPECT_EQ(Describe(second.problems[0]),
              "two.jsonl:2: id: expected an id of its own, \"a\" is used at one.jsonl:1");
}

TEST_F(JobReaderTest, AnIdHasNoControlCharacters) {
    EXPECT_THAT(FaultsOf(R"({"id":"a\u001b","carrier":"pager","recipient":"a@b","text":"x"})"),
                ElementsAre("jobs.jsonl:1: id: expected a name without control characters"));
}

}  // namespace
}  // namespace kvhost
