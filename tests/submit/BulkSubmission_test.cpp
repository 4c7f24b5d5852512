#include "BulkSubmission.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <thread>

#include "Eventually.h"
#include "JobViews.h"
#include "StoreError.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class BulkSubmissionTest : public testing::Test {
protected:
    BulkSubmissionTest() { m_config.carriers["pager"].name = "pager"; }

    static std::string Line(const std::string& id, const std::string& more = "") {
        return "{\"id\":\"" + id + "\",\"carrier\":\"pager\",\"recipient\":\"a@b\",\"text\":\"x\"" + more +
               "}\n";
    }

    /// Submits `text` as the file "jobs.jsonl" and answers what was told, with the folder's path taken out.
    std::string Submit(const std::string& text, BulkSubmission::Mode mode = BulkSubmission::Mode::EachAlone,
                       bool isJson = false) {
        std::ostringstream told;
        SubmissionReport report(told, isJson);
        LineReader lines(m_folder.write("jobs.jsonl", text));
        BulkSubmission(m_taker, m_config, report).Run(lines, mode);
        m_strSummary = report.Summary();
        m_nStatus = report.ExitStatus();
        std::string output = told.str();
        const std::string path = m_folder.path() + "/";
        for (auto at = output.find(path); at != std::string::npos; at = output.find(path)) {
            output.erase(at, path.size());
        }
        return output;
    }
    bool IsStored(const std::string& id) {
        StoreDatabase other(m_store.Folder(), StoreDatabase::Access::Existing);
        return !JobViews(other).Show(id).empty();
    }
    std::int64_t Queued() { return JobViews(m_store).Count()[JobState::Queued]; }

    HostConfig m_config;
    const kvtest::TempDir m_folder;
    StoreDatabase m_store{m_folder.file("store"), StoreDatabase::Access::Create};
    SubmissionTaker m_taker{m_store, m_config, m_folder.path()};
    std::string m_strSummary;
    int m_nStatus = -1;
};

TEST_F(BulkSubmissionTest, EveryLineGetsItsAnswerInItsPlace) {
    EXPECT_EQ(
        Submit(Line("a") + "\n  \r\n" + Line("b", ",\"cc\":1") + "{\n" + Line("a") +
               Line("a", ",\"urgent\":true") + "{\"id\":\"\xff\"}\n{\"n\":1e999}\n" + Line("c")),
        "a stored\n"
        "b refused: jobs.jsonl:4: cc: unknown field, expected id, carrier, recipient, recipients, subject, "
        "text, "
        "attachments, urgent, not_before or deadline\n"
        "- refused: jobs.jsonl:5: malformed JSON at byte 2, expected one JSON object\n"
        "a repeated\n"
        "a conflict: jobs.jsonl:7: id: expected an identifier of its own, another submission is stored under "
        "\"a\"; choose another one, or leave it out\n"
        "- refused: jobs.jsonl:8: expected UTF-8, found other bytes; convert the file to UTF-8\n"
        "- refused: jobs.jsonl:9: expected one JSON object, found a number that is too large in it\n"
        "c stored\n");
    EXPECT_EQ(m_strSummary, "2 stored, 1 repeated, 1 in conflict, 4 refused");
    EXPECT_EQ(m_nStatus, 1);
    EXPECT_EQ(Queued(), 2);
}

TEST_F(BulkSubmissionTest, StoredAndRepeatedAreASuccess) {
    Submit(Line("a") + Line("a") + Line("b"));
    EXPECT_EQ(m_nStatus, 0);
    Submit("");
    EXPECT_EQ(m_nStatus, 0);
}

TEST_F(BulkSubmissionTest, MoreLinesThanOneTransactionTakesAreAllStored) {
    std::string text;
    for (int i = 0; i < 1201; ++i) {
        text += Line("job-" + std::to_string(i));
    }
    text.pop_back();
    Submit(text);
    EXPECT_EQ(m_strSummary, "1201 stored, 0 repeated, 0 in conflict, 0 refused");
    EXPECT_EQ(Queued(), 1201);
    Submit(text);
    EXPECT_EQ(m_strSummary, "0 stored, 1201 repeated, 0 in conflict, 0 refused");
}

TEST_F(BulkSubmissionTest, AnswersInJsonHaveTheirPlace) {
    const std::string file = m_folder.file("jobs.jsonl");
    EXPECT_EQ(Submit(Line("a") + "7\n", BulkSubmission::Mode::EachAlone, true),
              "{\"file\":\"jobs.jsonl\",\"id\":\"a\",\"line\":1,\"status\":\"stored\"}\n"
              "{\"faults\":[{\"field\":\"\",\"text\":\"expected one JSON object, found a number\"}],"
              "\"file\":\"jobs.jsonl\",\"id\":null,\"line\":2,\"status\":\"refused\"}\n");
}

TEST_F(BulkSubmissionTest, AllOrNothingStoresNothingWhenALineIsRefused) {
    const std::string text = Line("a") + "{}\n" + Line("b");
    EXPECT_THAT(
        Submit(text, BulkSubmission::Mode::AllOrNothing),
        HasSubstr("a refused: jobs.jsonl:1: not stored, because another line is refused (--strict)\n"));
    EXPECT_EQ(m_strSummary, "0 stored, 0 repeated, 0 in conflict, 3 refused");
    EXPECT_EQ(Queued(), 0);
}

TEST_F(BulkSubmissionTest, AllOrNothingMindsAttachments) {
    Submit(Line("a") + Line("b", ",\"attachments\":[\"no-such\"]"), BulkSubmission::Mode::AllOrNothing);
    EXPECT_EQ(Queued(), 0);
    m_folder.write("is-there", "x");
    Submit(Line("a") + Line("b", ",\"attachments\":[\"is-there\"]"), BulkSubmission::Mode::AllOrNothing);
    EXPECT_EQ(m_strSummary, "2 stored, 0 repeated, 0 in conflict, 0 refused");
}

/// Looks into the store whenever told lines are passed on.
class Witness : public std::stringbuf {
public:
    explicit Witness(std::function<bool(const std::string&)> isStored) : m_isStored(std::move(isStored)) {}
    int unstored = 0;
    int told = 0;

protected:
    int sync() override {
        std::istringstream lines(str());
        for (std::string line; std::getline(lines, line); ++told) {
            unstored += m_isStored(line.substr(0, line.find(' '))) ? 0 : 1;
        }
        str("");
        return 0;
    }

private:
    const std::function<bool(const std::string&)> m_isStored;
};

TEST_F(BulkSubmissionTest, WhatIsToldIsOnDiskForOthers) {
    Witness witness([this](const std::string& id) { return IsStored(id); });
    std::ostream output(&witness);
    SubmissionReport report(output, false);
    LineReader lines(m_folder.write("jobs.jsonl", Line("a") + Line("b")));
    BulkSubmission(m_taker, m_config, report).Run(lines, BulkSubmission::Mode::EachAlone);
    EXPECT_EQ(witness.told, 2);
    EXPECT_EQ(witness.unstored, 0);
}

TEST_F(BulkSubmissionTest, ALineIsStoredWhileTheNextIsWaitedFor) {
    const std::string fifo = m_folder.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::ostringstream told;
    SubmissionReport report(told, false);
    std::thread submitter([&] {
        LineReader lines(fifo);
        BulkSubmission(m_taker, m_config, report).Run(lines, BulkSubmission::Mode::EachAlone);
    });
    const int writer = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    const std::string text = Line("a") + Line("b").substr(0, 5);
    EXPECT_EQ(::write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    EXPECT_TRUE(kvtest::Eventually([this] { return IsStored("a"); }));
    EXPECT_FALSE(IsStored("b"));
    ::close(writer);
    submitter.join();
    EXPECT_THAT(told.str(), HasSubstr("a stored\n- refused: "));
}

class LineReaderTest : public testing::Test {
protected:
    const kvtest::TempDir m_folder;
};

TEST_F(LineReaderTest, LinesComeOneByOneWithTheirNumbers) {
    const std::string longLine(200000, 'x');
    LineReader reader(m_folder.write("f", "a\r\n\n" + longLine + "\nend"));
    for (const std::string& expected : {std::string("a\r"), std::string(), longLine, std::string("end")}) {
        EXPECT_TRUE(reader.IsReady());
        EXPECT_EQ(reader.Next(), expected);
    }
    EXPECT_EQ(reader.Line(), 4U);
    EXPECT_TRUE(reader.IsReady());
    EXPECT_EQ(reader.Next(), std::nullopt);
    EXPECT_EQ(reader.Next(), std::nullopt);
}

TEST_F(LineReaderTest, WhatIsLeftComesAtOnce) {
    LineReader reader(m_folder.write("f", "a\nb\nc\n"));
    reader.Next();
    EXPECT_EQ(reader.Rest(), "b\nc\n");
}

TEST_F(LineReaderTest, WhatCannotBeReadThrows) {
    EXPECT_THROW(LineReader(m_folder.file("none")), BadInput);
    LineReader folder(m_folder.path());
    EXPECT_THROW(folder.Next(), BadInput);
}

}  // namespace
}  // namespace kvhost
