#include "SubmissionTaker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Doorbell.h"
#include "JobViews.h"
#include "StoreError.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Status = SubmissionReceipt::Status;

class SubmissionTakerTest : public testing::Test {
protected:
    static SubmissionDraft Mail(const std::string& id, const std::string& text = "x") {
        SubmissionDraft draft;
        draft.submission.id = id;
        draft.submission.carrier = "pager";
        draft.submission.recipients = {"ops@example.org"};
        draft.submission.text = text;
        return draft;
    }
    static SubmissionDraft MailWithFile(const std::string& id, const std::string& path,
                                        const std::string& name = "") {
        SubmissionDraft draft = Mail(id);
        draft.attachments.push_back({name, path, ""});
        return draft;
    }

    std::vector<SubmissionReceipt> Take(std::vector<SubmissionDraft> drafts) {
        return SubmissionTaker(m_store, m_config, m_files.path()).Take(std::move(drafts), StoreNow());
    }
    std::vector<JobHistory> Show(const std::string& id) { return JobViews(m_store).Show(id); }

    static std::string ContentOf(const std::filesystem::path& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    HostConfig m_config;
    const kvtest::TempDir m_folder;
    const kvtest::TempDir m_files;
    StoreDatabase m_store{m_folder.path(), StoreDatabase::Access::Create};
};

TEST_F(SubmissionTakerTest, ReceiptsStandInTheOrderOfTheDrafts) {
    SubmissionDraft wrong = Mail("b");
    wrong.faults.push_back({"text", "expected another one"});
    const auto receipts = Take({Mail("a"), wrong, Mail("c"), Mail("a"), Mail("c", "y")});
    ASSERT_EQ(receipts.size(), 5U);
    EXPECT_EQ(receipts[0].status, Status::Stored);
    EXPECT_EQ(receipts[1].status, Status::Refused);
    EXPECT_EQ(receipts[1].faults.at(0).text, "expected another one");
    EXPECT_EQ(receipts[2].status, Status::Stored);
    EXPECT_EQ(receipts[3].status, Status::Repeated);
    EXPECT_EQ(receipts[4].status, Status::Conflict);
    EXPECT_EQ(
        Describe(receipts[4].faults.at(0)),
        "id: expected an identifier of its own, another submission is stored under \"c\"; choose another "
        "one, or leave it out");
    EXPECT_EQ(receipts[4].id, "c");
    EXPECT_THAT(Show("b"), IsEmpty());
    EXPECT_EQ(Show("c").at(0).text, "x");
}

TEST_F(SubmissionTakerTest, WhatIsStoredIsThereForAnotherConnection) {
    Take({Mail("a", "the text")});
    StoreDatabase other(m_folder.path(), StoreDatabase::Access::Existing);
    const auto found = JobViews(other).Show("a");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].text, "the text");
    EXPECT_EQ(found[0].job.state, JobState::Queued);
}

TEST_F(SubmissionTakerTest, AttachmentsAreCopiedUnderTheirNames) {
    m_files.write("plan.pdf", "%PDF");
    SubmissionDraft draft = MailWithFile("a", "plan.pdf");
    draft.attachments.push_back({"other.pdf", m_files.file("plan.pdf"), ""});
    draft.attachments.push_back({"note.txt", "", std::string("a\0b", 3)});
    ASSERT_EQ(Take({draft}).at(0).status, Status::Stored);
    std::filesystem::remove(m_files.file("plan.pdf"));
    const auto kept = Show("a").at(0).attachments;
    ASSERT_EQ(kept.size(), 3U);
    AttachmentStore contents(m_folder.path(), 100);
    EXPECT_EQ(kept[0].name, "plan.pdf");
    EXPECT_EQ(ContentOf(contents.PathOf(kept[0])), "%PDF");
    EXPECT_EQ(kept[1].name, "other.pdf");
    EXPECT_EQ(ContentOf(contents.PathOf(kept[1])), "%PDF");
    EXPECT_EQ(kept[2].name, "note.txt");
    EXPECT_EQ(ContentOf(contents.PathOf(kept[2])), std::string("a\0b", 3));
}

TEST_F(SubmissionTakerTest, AnAttachmentThatCannotBeTakenRefusesItsSubmissionAlone) {
    m_files.write("plan.pdf", "%PDF");
    std::filesystem::create_symlink(m_files.file("plan.pdf"), m_files.file("link.pdf"));
    const auto receipts = Take({MailWithFile("a", "no-such"), MailWithFile("b", "link.pdf"),
                                MailWithFile("c", "../plan.pdf"), MailWithFile("d", "plan.pdf")});
    ASSERT_EQ(receipts.size(), 4U);
    EXPECT_EQ(receipts[0].status, Status::Refused);
    EXPECT_THAT(Describe(receipts[0].faults.at(0)),
                HasSubstr("attachments[1]: no-such: it cannot be opened: No such file"));
    EXPECT_THAT(Describe(receipts[1].faults.at(0)), HasSubstr("symbolic link"));
    EXPECT_THAT(Describe(receipts[2].faults.at(0)), HasSubstr("it lies outside of the folder"));
    EXPECT_EQ(receipts[3].status, Status::Stored);
    EXPECT_THAT(Show("a"), IsEmpty());
}

TEST_F(SubmissionTakerTest, AFileThatIsTooLargeIsRefused) {
    m_config.limits.attachmentBytes = 3;
    m_files.write("plan.pdf", "%PDF");
    const auto receipts = Take({MailWithFile("a", "plan.pdf")});
    EXPECT_EQ(receipts.at(0).status, Status::Refused);
    EXPECT_THAT(Describe(receipts[0].faults.at(0)), HasSubstr("larger than 3 bytes"));
}

TEST_F(SubmissionTakerTest, AnotherAttachmentUnderTheSameIdIsAConflict) {
    SubmissionDraft draft = Mail("a");
    draft.attachments.push_back({"note.txt", "", "one"});
    EXPECT_EQ(Take({draft}).at(0).status, Status::Stored);
    EXPECT_EQ(Take({draft}).at(0).status, Status::Repeated);
    draft.attachments[0].content = "two";
    EXPECT_EQ(Take({draft}).at(0).status, Status::Conflict);
}

TEST_F(SubmissionTakerTest, TheRunningHostIsWokenByWhatIsNewAlone) {
    Doorbell bell(m_folder.path());
    Take({Mail("a")});
    EXPECT_TRUE(bell.Answer());
    Take({Mail("a"), Mail("a", "y")});
    EXPECT_FALSE(bell.Answer());
}

TEST_F(SubmissionTakerTest, AStoreThatCannotBeWrittenIsNoFaultOfTheAttachment) {
    std::ofstream(m_folder.file("attachments")) << "a file where the folder has to be";
    SubmissionDraft draft = Mail("a");
    draft.attachments.push_back({"note.txt", "", "one"});
    EXPECT_THROW(Take({draft}), StoreError);
    EXPECT_THAT(Show("a"), IsEmpty());
}

TEST_F(SubmissionTakerTest, EveryStatusHasItsName) {
    EXPECT_STREQ(SubmissionStatusName(Status::Stored), "stored");
    EXPECT_STREQ(SubmissionStatusName(Status::Repeated), "repeated");
    EXPECT_STREQ(SubmissionStatusName(Status::Conflict), "conflict");
    EXPECT_STREQ(SubmissionStatusName(Status::Refused), "refused");
}

}  // namespace
}  // namespace kvhost
