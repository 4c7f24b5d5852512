#include "KvFilesUnderWay.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "driver/FrameworkDoubles.h"

namespace {

using kvtest::Files;
using kvtest::IdsOf;
using kvtest::Strings;

class KvFilesUnderWayTest : public kvtest::FrameworkTest {
protected:
    bool PushBack(KvMessageFile* file) {
        return m_driver.PushBackMsgFile(file, KvMessengerReportsMngrInterface::REPORT_COMPLETED, false, "");
    }

    const Files m_batch = m_files.addGroup("JOB", 3);
};

TEST_F(KvFilesUnderWayTest, AtFirstEveryFileIsMissing) {
    const KvFilesUnderWay underWay(m_batch);
    EXPECT_EQ(underWay.Missing(), m_batch);
}

TEST_F(KvFilesUnderWayTest, AFilePushedBackIsNotMissingAnyMore) {
    const KvFilesUnderWay underWay(m_batch);
    EXPECT_TRUE(PushBack(*std::next(m_batch.begin())));
    EXPECT_EQ(IdsOf(underWay.Missing()), (Strings{"JOB_1", "JOB_3"}));
}

TEST_F(KvFilesUnderWayTest, AFilePushedBackForDeletionIsNotMissingAnyMore) {
    const KvFilesUnderWay underWay(m_batch);
    EXPECT_TRUE(m_driver.PushBackMsgFileForDeletion(m_batch.front()));
    EXPECT_EQ(IdsOf(underWay.Missing()), (Strings{"JOB_2", "JOB_3"}));
}

TEST_F(KvFilesUnderWayTest, AFileThatCouldNotBePushedBackIsStillMissing) {
    const KvFilesUnderWay underWay(m_batch);
    m_driver.m_pMsgFileQueue = nullptr;
    EXPECT_FALSE(PushBack(m_batch.front()));
    EXPECT_EQ(underWay.Missing(), m_batch);
}

TEST_F(KvFilesUnderWayTest, AFileIsStruckOffBeforeTheHostCanTakeIt) {
    const KvFilesUnderWay underWay(m_batch);
    m_host.queue.m_lock.Lock();
    PushBack(m_batch.front());  // the lock is recursive
    EXPECT_EQ(underWay.Missing().size(), 2U);
    m_host.queue.m_lock.Unlock();
}

TEST_F(KvFilesUnderWayTest, OtherFilesChangeNothing) {
    const KvFilesUnderWay underWay(m_batch);
    PushBack(m_files.add("OTHER_1"));
    EXPECT_EQ(underWay.Missing(), m_batch);
}

TEST_F(KvFilesUnderWayTest, PushesOfOtherThreadsChangeNothing) {
    const KvFilesUnderWay underWay(m_batch);
    std::thread other([this] { PushBack(m_batch.front()); });
    other.join();
    EXPECT_EQ(underWay.Missing(), m_batch);
}

TEST_F(KvFilesUnderWayTest, EveryThreadHasItsOwn) {
    const KvFilesUnderWay underWay(m_batch);
    Strings missingThere;
    std::thread other([&] {
        const KvFilesUnderWay theirs(m_batch);
        PushBack(m_batch.back());
        missingThere = IdsOf(theirs.Missing());
    });
    other.join();
    EXPECT_EQ(missingThere, (Strings{"JOB_1", "JOB_2"}));
    EXPECT_EQ(underWay.Missing(), m_batch);
}

TEST_F(KvFilesUnderWayTest, NotingAFileWithoutFilesUnderWayIsHarmless) {
    KvFilesUnderWay::NoteHandedBack(m_batch.front());
    { const KvFilesUnderWay ended(m_batch); }
    EXPECT_TRUE(PushBack(m_batch.front()));
    EXPECT_EQ(m_host.queue.count(), 1);
}

TEST_F(KvFilesUnderWayTest, AfterAnInnerDispatchTheOuterOneIsNotedAgain) {
    const KvFilesUnderWay outer(m_batch);
    std::optional<KvFilesUnderWay> inner;
    inner.emplace(m_files.addGroup("INNER", 1));
    inner.reset();
    PushBack(m_batch.front());
    EXPECT_EQ(IdsOf(outer.Missing()), (Strings{"JOB_2", "JOB_3"}));
}

}  // namespace
