#include "KvProtocolDriverInterface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "driver/FrameworkDoubles.h"

namespace {

using kvtest::HostDoubles;
using kvtest::MessageBuilder;
using kvtest::ReportsStatus;
using kvtest::SlotOf;
using kvtest::TestMessageFile;
using Interface = KvMessengerReportsMngrInterface;

/// A driver that overrides what it must and nothing else.
class BareDriver : public KvProtocolDriverInterface {
public:
    explicit BareDriver(bool* destroyed = nullptr) : m_pDestroyed(destroyed) {}
    ~BareDriver() override {
        if (m_pDestroyed != nullptr) {
            *m_pDestroyed = true;
        }
    }
    const char* GetName() override { return "name"; }
    const char* GetVersion() override { return "version"; }
    const char* GetProtocolName() override { return "protocol"; }
    const char* GetCarrierName() override { return "carrier"; }
    bool SendAMessage(KvMessageFile*, ReportsStatus&) override { return false; }

private:
    bool* m_pDestroyed;
};

class KvProtocolDriverInterfaceTest : public testing::Test {
protected:
    KvProtocolDriverInterfaceTest() { m_host.lendTo(m_driver); }

    HostDoubles m_host;
    BareDriver m_driver;
    std::unique_ptr<TestMessageFile> m_file = MessageBuilder().build();
};

TEST_F(KvProtocolDriverInterfaceTest, ANewDriverHasNoHost) {
    const BareDriver driver;
    EXPECT_EQ(driver.m_pLog, nullptr);
    EXPECT_EQ(driver.m_pReportsMngr, nullptr);
    EXPECT_EQ(driver.m_pMsgFileQueue, nullptr);
}

TEST_F(KvProtocolDriverInterfaceTest, TheOperationsLieInTheirSlots) {
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::GetName), 2U);  // 0 and 1 are the destructor
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::GetVersion), 3U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::GetProtocolName), 4U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::GetCarrierName), 5U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::Configure), 6U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::Setup), 7U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::PeriodicEvent), 8U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::ResetDevice), 9U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::Send2WayRespQuery), 10U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::SendAMessage), 11U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::Cleanup), 12U);
    EXPECT_EQ(SlotOf(&KvProtocolDriverInterface::ProcessSignal), 13U);
}

TEST_F(KvProtocolDriverInterfaceTest, TheMembersLieInTheirOrderBehindTheTable) {
    const auto* const words =
        reinterpret_cast<void* const*>(static_cast<KvProtocolDriverInterface*>(&m_driver));
    EXPECT_EQ(words + 1, static_cast<const void*>(&m_driver.m_pLog));
    EXPECT_EQ(words + 2, static_cast<const void*>(&m_driver.m_pReportsMngr));
    EXPECT_EQ(words + 3, static_cast<const void*>(&m_driver.m_pMsgFileQueue));
    EXPECT_EQ(sizeof(KvProtocolDriverInterface), 4 * sizeof(void*));
}

TEST_F(KvProtocolDriverInterfaceTest, TheDefaultsDoNothingAndReportSuccess) {
    std::map<std::string, std::string> settings{{"key", "value"}};
    EXPECT_TRUE(m_driver.Configure(settings));
    EXPECT_TRUE(m_driver.Setup(&m_host.instanceConf));
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_TRUE(m_driver.ResetDevice());
    EXPECT_TRUE(m_driver.Cleanup());
    EXPECT_TRUE(m_driver.ProcessSignal());
    EXPECT_EQ(settings, (std::map<std::string, std::string>{{"key", "value"}}));
    EXPECT_EQ(m_host.log.count(), 0);
}

TEST_F(KvProtocolDriverInterfaceTest, TheDefaultQueryLeavesTheStatusAlone) {
    ReportsStatus status = Interface::REPORT_COMPLETED;
    EXPECT_TRUE(m_driver.Send2WayRespQuery(m_file.get(), status));
    EXPECT_EQ(status, Interface::REPORT_COMPLETED);
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvProtocolDriverInterfaceTest, ADriverIsDestroyedThroughItsRootAndTheHostsObjectsStay) {
    bool destroyed = false;
    KvProtocolDriverInterface* const driver = new BareDriver(&destroyed);
    m_host.lendTo(*driver);
    delete driver;
    EXPECT_TRUE(destroyed);
    m_host.log.LogInfo("still there", 1, "test");
    EXPECT_EQ(m_host.log.count(), 1);
}

// --- PushBackMsgFile

TEST_F(KvProtocolDriverInterfaceTest, PushBackStoresTheOutcomeAndQueuesTheFile) {
    m_file->m_bForDeletion = true;
    const time_t before = time(nullptr);
    EXPECT_TRUE(m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_FAILED, true, "text"));
    const time_t after = time(nullptr);
    EXPECT_EQ(m_file->m_eStatus, 2);
    EXPECT_GE(m_file->m_tStatusTime, before);
    EXPECT_LE(m_file->m_tStatusTime, after);
    EXPECT_TRUE(m_file->m_bDriverFlag);
    EXPECT_FALSE(m_file->m_bForDeletion);
    EXPECT_EQ(m_file->statusTexts(), std::vector<std::string>{"text"});
    EXPECT_EQ(m_file->failureReasons(), std::vector<std::string>{});
    EXPECT_EQ(m_host.queue.drain(), std::vector<KvMessageFile*>{m_file.get()});
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackWithoutTheFlagClearsIt) {
    m_file->m_bDriverFlag = true;
    EXPECT_TRUE(m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_COMPLETED, false, ""));
    EXPECT_FALSE(m_file->m_bDriverFlag);
    EXPECT_EQ(m_file->statusTexts(), std::vector<std::string>{""});
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackWithStatus0LeavesTheStatusAndSetsTheTimeTo0) {
    m_file->m_eStatus = Interface::REPORT_COMPLETED;
    m_file->m_tStatusTime = 4711;
    EXPECT_TRUE(m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_NONE, false, ""));
    EXPECT_EQ(m_file->m_eStatus, Interface::REPORT_COMPLETED);
    EXPECT_EQ(m_file->m_tStatusTime, 0);
    EXPECT_EQ(m_host.queue.timesReturned(m_file.get()), 1);
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackAppendsAtTheBack) {
    const auto second = MessageBuilder().build();
    m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_FAILED, false, "");
    m_driver.PushBackMsgFile(second.get(), Interface::REPORT_FAILED, false, "");
    EXPECT_EQ(m_host.queue.drain(), (std::vector<KvMessageFile*>{m_file.get(), second.get()}));
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackWithoutAQueueDoesNothing) {
    m_driver.m_pMsgFileQueue = nullptr;
    m_file->m_tStatusTime = 4711;
    m_file->m_bForDeletion = true;
    EXPECT_FALSE(m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_FAILED, true, "text"));
    EXPECT_EQ(m_file->m_eStatus, Interface::REPORT_NONE);
    EXPECT_EQ(m_file->m_tStatusTime, 4711);
    EXPECT_FALSE(m_file->m_bDriverFlag);
    EXPECT_TRUE(m_file->m_bForDeletion);
    EXPECT_EQ(m_file->statusTexts(), std::vector<std::string>{});
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackOfNoFileDoesNothing) {
    EXPECT_FALSE(m_driver.PushBackMsgFile(nullptr, Interface::REPORT_FAILED, false, ""));
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackStoresTheTextBeforeItQueuesTheFile) {
    struct WatchfulFile : TestMessageFile {
        explicit WatchfulFile(KvMessageFileQueue& queue) : m_queue(queue) {}
        void SetStatusText(const std::string&) override { m_queuedBefore = m_queue.m_dqMsgFiles.size(); }
        KvMessageFileQueue& m_queue;
        std::size_t m_queuedBefore = 99;
    } file(m_host.queue);
    EXPECT_TRUE(m_driver.PushBackMsgFile(&file, Interface::REPORT_COMPLETED, false, ""));
    EXPECT_EQ(file.m_queuedBefore, 0U);
    EXPECT_EQ(m_host.queue.count(), 1);
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackWaitsForTheQueuesLock) {
    std::atomic<bool> released{false};
    bool releasedBeforeReturn = false;
    kvtest::Latch pushing;
    m_host.queue.m_lock.Lock();
    std::thread other([&] {
        pushing.Open();
        m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_COMPLETED, false, "");
        releasedBeforeReturn = released;
    });
    EXPECT_TRUE(pushing.Wait());
    EXPECT_EQ(m_host.queue.m_dqMsgFiles.size(), 0U);
    released = true;
    m_host.queue.m_lock.Unlock();
    other.join();
    EXPECT_TRUE(releasedBeforeReturn);
    EXPECT_EQ(m_host.queue.count(), 1);
}

TEST_F(KvProtocolDriverInterfaceTest, TheQueuesLockIsFreeAfterAPush) {
    m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_COMPLETED, false, "");
    m_driver.PushBackMsgFileForDeletion(m_file.get());
    EXPECT_EQ(kvtest::TryLockOnAnotherThread(m_host.queue.m_lock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvProtocolDriverInterfaceTest, PushesOfSeveralThreadsAllArriveOnce) {
    constexpr int kThreads = 4;
    constexpr int kFilesEach = 200;
    std::vector<TestMessageFile> files(kThreads * kFilesEach);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, &files, thread] {
            for (int file = 0; file < kFilesEach; ++file) {
                m_driver.PushBackMsgFile(&files[static_cast<std::size_t>(thread * kFilesEach + file)],
                                         Interface::REPORT_COMPLETED, false, "");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(m_host.queue.count(), kThreads * kFilesEach);
    EXPECT_TRUE(m_host.queue.eachReturnedOnce());
}

// --- PushBackMsgFileForDeletion

TEST_F(KvProtocolDriverInterfaceTest, PushBackForDeletionMarksTheFileAndLeavesItsOutcomeAlone) {
    m_file->m_eStatus = Interface::REPORT_COMPLETED;
    m_file->m_tStatusTime = 4711;
    EXPECT_TRUE(m_driver.PushBackMsgFileForDeletion(m_file.get()));
    EXPECT_TRUE(m_file->m_bForDeletion);
    EXPECT_EQ(m_file->m_eStatus, Interface::REPORT_COMPLETED);
    EXPECT_EQ(m_file->m_tStatusTime, 4711);
    EXPECT_EQ(m_file->statusTexts(), std::vector<std::string>{});
    EXPECT_EQ(m_host.queue.drain(), std::vector<KvMessageFile*>{m_file.get()});
}

TEST_F(KvProtocolDriverInterfaceTest, PushBackForDeletionNeedsAQueueAndAFile) {
    EXPECT_FALSE(m_driver.PushBackMsgFileForDeletion(nullptr));
    EXPECT_EQ(m_host.queue.count(), 0);
    m_driver.m_pMsgFileQueue = nullptr;
    EXPECT_FALSE(m_driver.PushBackMsgFileForDeletion(m_file.get()));
    EXPECT_FALSE(m_file->m_bForDeletion);
}

TEST_F(KvProtocolDriverInterfaceTest, AFilePushedBackAfterAllIsNotForDeletionAnyMore) {
    m_driver.PushBackMsgFileForDeletion(m_file.get());
    m_driver.PushBackMsgFile(m_file.get(), Interface::REPORT_FAILED, false, "");
    EXPECT_FALSE(m_file->m_bForDeletion);
    EXPECT_EQ(m_host.queue.timesReturned(m_file.get()), 2);
}

// --- WriteMessageReport

TEST_F(KvProtocolDriverInterfaceTest, AReportStoresTheStatusAndIsWritten) {
    m_file->m_tStatusTime = 4711;
    EXPECT_TRUE(m_driver.WriteMessageReport(m_file.get(), Interface::REPORT_ACCEPTED, "text"));
    EXPECT_EQ(m_file->m_eStatus, Interface::REPORT_ACCEPTED);
    EXPECT_EQ(m_file->m_tStatusTime, 4711);
    ASSERT_EQ(m_host.reports.count(), 1);
    const auto entry = m_host.reports.entries().front();
    EXPECT_EQ(entry.file, m_file.get());
    EXPECT_EQ(entry.status, 7);
    EXPECT_EQ(entry.text, "text");
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvProtocolDriverInterfaceTest, AReportWithStatus0LeavesTheStatusAndIsWrittenWith0) {
    m_file->m_eStatus = Interface::REPORT_COMPLETED;
    EXPECT_TRUE(m_driver.WriteMessageReport(m_file.get(), Interface::REPORT_NONE, ""));
    EXPECT_EQ(m_file->m_eStatus, Interface::REPORT_COMPLETED);
    ASSERT_EQ(m_host.reports.count(), 1);
    EXPECT_EQ(m_host.reports.entries().front().status, 0);
    EXPECT_EQ(m_host.reports.entries().front().text, "");
}

TEST_F(KvProtocolDriverInterfaceTest, TheResultOfAReportIsTheHosts) {
    m_host.reports.answerWith(false);
    EXPECT_FALSE(m_driver.WriteMessageReport(m_file.get(), Interface::REPORT_FAILED, "text"));
    EXPECT_EQ(m_file->m_eStatus, Interface::REPORT_FAILED);
}

TEST_F(KvProtocolDriverInterfaceTest, AReportWithoutAReportsManagerDoesNothing) {
    m_driver.m_pReportsMngr = nullptr;
    EXPECT_FALSE(m_driver.WriteMessageReport(m_file.get(), Interface::REPORT_FAILED, "text"));
    EXPECT_EQ(m_file->m_eStatus, Interface::REPORT_NONE);
}

TEST_F(KvProtocolDriverInterfaceTest, AReportAboutNoFileIsPassedOn) {
    EXPECT_TRUE(m_driver.WriteMessageReport(nullptr, Interface::REPORT_FAILED, "text"));
    ASSERT_EQ(m_host.reports.count(), 1);
    EXPECT_EQ(m_host.reports.entries().front().file, nullptr);
    EXPECT_EQ(m_host.reports.entries().front().status, 2);
}

}  // namespace
