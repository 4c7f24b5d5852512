#include "StoreCheck.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "AttachmentStore.h"
#include "StoreFixture.h"

namespace kvhost {
namespace {

using testing::Contains;
using testing::HasSubstr;

/// A sound store with one job of each kind, for the faults to be put into.
class StoreCheckTest : public kvhosttest::StoreTest {
protected:
    StoreCheckTest() {
        Start(m_ledger);
        for (const char* id : {"queued", "under-way", "delivered", "doubt"}) {
            Submit(Mail(id));
        }
        m_ledger.BeginAttempts({KeyOf("doubt")}, Now());
        Start(m_ledger, DoubtPolicy::Hold);
        m_ledger.BeginAttempts({KeyOf("delivered"), KeyOf("under-way")}, Now());
        m_ledger.EndAttempts({Delivered(KeyOf("delivered"))}, Now());
    }

    /// Changes the store behind its back.
    void Spoil(const std::string& sql) {
        m_store.Connection().exec("PRAGMA foreign_keys = OFF");
        m_store.Connection().exec(sql);
    }

    void ExpectFault(const std::string& fault) {
        const StoreCheckResult result = CheckStore(m_store);
        EXPECT_FALSE(result.IsSound());
        EXPECT_THAT(result.faults, Contains(HasSubstr(fault)));
    }

    JobLedger m_ledger{m_store};
};

TEST_F(StoreCheckTest, ASoundStoreHasNoFaultAndIsCounted) {
    const StoreCheckResult result = CheckStore(m_store);
    EXPECT_TRUE(result.IsSound()) << (result.faults.empty() ? "" : result.faults.front());
    EXPECT_EQ(result.jobs, 4);
    EXPECT_EQ(result.attempts, 3);
}

TEST_F(StoreCheckTest, TwoDeliveriesOfAJobAreFound) {
    Spoil("INSERT INTO attempt SELECT job, 2, run, begun, ended, 0, '', '' FROM attempt WHERE outcome = 0");
    ExpectFault("job delivered was delivered twice");
}

TEST_F(StoreCheckTest, AnAttemptAfterADeliveryIsFound) {
    Spoil("INSERT INTO attempt SELECT job, 2, run, begun, ended, 1, '', '' FROM attempt WHERE outcome = 0");
    ExpectFault("job delivered was attempted again after it was delivered");
    ExpectFault("job delivered has attempts that are not numbered from 1 without a gap");
}

TEST_F(StoreCheckTest, AJobWithoutASubmissionIsFound) {
    Spoil("DELETE FROM submission WHERE id = 'queued'");
    ExpectFault("job queued has no submission");
}

TEST_F(StoreCheckTest, AJobHandedOverWithoutAnOpenAttemptIsFound) {
    Spoil("UPDATE job SET state = 1 WHERE id = 'queued'");
    ExpectFault("job queued is handed over without exactly one open attempt");
}

TEST_F(StoreCheckTest, AnOpenAttemptOfAJobThatIsNotHandedOverIsFound) {
    Spoil("UPDATE job SET state = 0 WHERE id = 'under-way'");
    ExpectFault("job under-way has an open attempt and is not handed over");
}

TEST_F(StoreCheckTest, ADeliveredJobWithoutADeliveryIsFound) {
    Spoil("UPDATE job SET state = 2 WHERE id = 'queued'");
    ExpectFault("job queued is delivered without a delivery, or has one and is not delivered");
}

TEST_F(StoreCheckTest, ADeliveryOfAJobThatIsNotDeliveredIsFound) {
    Spoil("UPDATE job SET state = 3 WHERE id = 'delivered'");
    ExpectFault("job delivered is delivered without a delivery, or has one and is not delivered");
}

TEST_F(StoreCheckTest, AJobInDoubtWhoseLastAttemptIsNotIsFound) {
    Spoil("UPDATE attempt SET outcome = 1 WHERE outcome = 2");
    ExpectFault("job doubt is in doubt and its last attempt is not");
}

TEST_F(StoreCheckTest, AWrongTallyIsFound) {
    Spoil("UPDATE tally SET jobs = jobs + 1 WHERE state = 2");
    ExpectFault("has a tally that is not that of its jobs");
}

TEST_F(StoreCheckTest, AMissingTallyIsFound) {
    Spoil("DELETE FROM tally WHERE state = 4");
    ExpectFault("has a tally that is not that of its jobs");
}

TEST_F(StoreCheckTest, AnAttachmentThatIsMissingShortOrChangedIsFound) {
    AttachmentStore attachments(m_dir.path(), 100);
    Submission mail = Mail("with");
    mail.attachments = {attachments.AddContent("plan.pdf", "0123456789")};
    Submit(mail);
    EXPECT_TRUE(CheckStore(m_store).IsSound());
    EXPECT_EQ(CheckStore(m_store).attachments, 1);
    const std::filesystem::path content = attachments.ContentPath(mail.attachments[0].digest);
    std::ofstream(content) << "012345678X";
    ExpectFault("(\"plan.pdf\") has another content than its digest tells");
    std::ofstream(content) << "0123";
    ExpectFault("(\"plan.pdf\") has 4 bytes instead of 10");
    std::filesystem::remove(content);
    ExpectFault("(\"plan.pdf\") is missing");
    std::filesystem::remove(content.parent_path());
    std::ofstream(content.parent_path()) << "a file where a folder was";
    ExpectFault("(\"plan.pdf\") cannot be read: Not a directory");
}

TEST_F(StoreCheckTest, ABrokenIndexIsFound) {
    Spoil(
        "PRAGMA writable_schema = ON; "
        "UPDATE sqlite_master SET sql = 'CREATE INDEX job_state ON job(changed, key)' WHERE name = "
        "'job_state'; "
        "PRAGMA writable_schema = OFF");
    StoreDatabase other(m_dir.path(), StoreDatabase::Access::Existing);
    const StoreCheckResult result = CheckStore(other);
    EXPECT_FALSE(result.IsSound());
    EXPECT_THAT(result.faults, Contains(HasSubstr("database: ")));
}

}  // namespace
}  // namespace kvhost
