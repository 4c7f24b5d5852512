#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Descriptors.h"
#include "KvEndSignals.h"
#include "KvSmartProtocolDriverDelegateIface.h"
#include "ScopedDescriptor.h"
#include "driver/DelegateTest.h"

// A delegate that ends early hands every file back that it still holds, once, and leaves nothing else behind.

namespace {

using kvtest::Files;
using kvtest::OpenDescriptorCount;
using kvtest::ScopedDescriptor;
using kvtest::ScriptedDelegate;
using kvtest::Strings;
using kvtest::TryLockOnAnotherThread;

const std::string kFailed = std::string(":2 ") + kvtest::kInternalError;
constexpr int kShortStopMs = 200;

class KvSmartProtocolDriverDelegateIfaceEarlyEndTest : public kvtest::DelegateTest {
protected:
    /// Two groups wait for carrier 1: A_1, A_2, A_3 and B_1.
    void FileMessages() {
        for (const char* id : {"A_1", "A_2", "A_3", "B_1"}) {
            kvtest::ReportsStatus status = KvMessengerReportsMngrInterface::REPORT_NONE;
            EXPECT_TRUE(m_driver.SendAMessage(m_files.add(id), status));
        }
    }
    void ExpectEveryFileBackOnce() { EXPECT_TRUE(m_host.queue.eachReturnedOnce()); }
    /// The pool's failure stands in the driver's log.
    void ExpectPoolFailureLogged(const std::string& message) {
        EXPECT_THAT(kvtest::NotesFrom(m_host.log, kvtest::kPoolSource),
                    testing::Contains(
                        testing::MatchesRegex("error: Error: Exception raised! ThreadID\\[-?[0-9]+\\] "
                                              "File\\[../src/KvconThreadPool\\] Line\\[[0-9]+\\] Msg\\[" +
                                              message + "\\] SysMsg\\[.*\\]")));
    }
    void ExpectNoConnectionLeft() {
        EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
        EXPECT_EQ(m_driver.IdleCount("1"), 0U);
        EXPECT_EQ(m_driver.m_mapConnCache["1"].m_nConnCount, 0U);
        EXPECT_EQ(m_driver.calls().back(), "close 1");
    }

    /// Waits for a peer that never says anything; only the end of its worker ends it.
    void WaitForSilentPeer() {
        int ends[2] = {-1, -1};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        const ScopedDescriptor ours(ends[0]);
        const ScopedDescriptor theirs(ends[1]);
        pollfd wait{ours.get(), POLLIN, 0};
        m_waiting.Open();
        KvEndSignals::Poll(&wait, 1, -1);
        ADD_FAILURE() << "the wait ended";
    }
    /// Starts a cycle on a pool of one worker and ends the worker where it waits for its peer.
    void EndWorkerWhileItWaits() {
        kvtest::TidyPool& pool = m_driver.MakePool(1);
        FileMessages();
        m_driver.PeriodicEvent();
        ASSERT_TRUE(m_waiting.Wait());
        pool.Stop(kShortStopMs);
        EXPECT_EQ(pool.RunningSize(), 0U);
        EXPECT_EQ(m_script.deleted, 1);
    }

    kvtest::Latch m_waiting;
    const int m_descriptors = OpenDescriptorCount();
};

// --- Deleted before it ran

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest,
       ADelegateDeletedWhileItWaitsInTheQueueHandsItsFilesBack) {
    kvtest::TidyPool& pool = m_driver.MakePool(0);
    FileMessages();
    m_driver.PeriodicEvent();
    EXPECT_EQ(m_host.queue.count(), 0);
    pool.Stop(kShortStopMs);
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    EXPECT_EQ(m_script.deleted, 1);
    EXPECT_EQ(m_driver.IdleCount("1"), 1U);  // unused: as good as before
    EXPECT_EQ(m_script.dispatches(), Strings{});
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest,
       CleanupHandsBackWhatWaitsInTheQueueAndClosesItsConnection) {
    const kvtest::SavedSignalHandlers handlers;
    delete std::exchange(m_driver.m_pCacheLock, nullptr);
    m_driver.m_nThreadPoolSize = 0;
    m_driver.SetupExt(nullptr);
    FileMessages();
    m_driver.PeriodicEvent();
    m_driver.CleanupExt();
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "close 1"}));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AFileHandedBackFromTheQueueIsLoggedLikeAnyFailedFile) {
    { const auto deleted = Make({{m_files.add("A_1")}}); }
    EXPECT_EQ(Notes(), Strings{"error: Failing message job id: job-A_1. Reason: Messenger internal error."});
    EXPECT_EQ(Returns(), Strings{"A_1" + kFailed});
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest,
       ADelegateThatHasDoneItsWorkHandsNothingBackWhenItIsDeleted) {
    Run(Make({m_files.addGroup("A", 2)}));
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "A_2:3"}));
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, ADelegateThatWasNeverInitializedIsDeletedQuietly) {
    { const ScriptedDelegate unused(m_script); }
    EXPECT_EQ(m_host.queue.count(), 0);
}

// --- No worker takes it

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, APoolThatIsStoppingHasTheFilesHandedBack) {
    kvtest::TidyPool& pool = m_driver.MakePool(1);
    pool.SendWorkersHome();  // stopping from here on
    FileMessages();
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    EXPECT_EQ(m_script.deleted, 1);
    ExpectPoolFailureLogged("Thread Pool Is Stopping");
    EXPECT_EQ(m_driver.IdleCount("1"), 1U);
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pLock), KvconLock::LOCK_ACQUIRED);
}

/// New threads get a stack that no machine has.
class NoThreads {
public:
    NoThreads() {
        pthread_getattr_default_np(&m_saved);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, std::numeric_limits<std::size_t>::max() / 4 * 3);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }
    ~NoThreads() {
        pthread_setattr_default_np(&m_saved);
        pthread_attr_destroy(&m_saved);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t m_saved;
};

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AWorkerThatCannotBeMadeHasTheFilesHandedBack) {
    m_driver.MakePool(1);
    FileMessages();
    {
        const NoThreads noThreads;
        EXPECT_TRUE(m_driver.PeriodicEvent());
    }
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    EXPECT_EQ(m_script.deleted, 1);
    ExpectPoolFailureLogged("Create Thread Failed");
    EXPECT_EQ(m_driver.IdleCount("1"), 1U);
}

// --- An exception out of the dispatcher

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AnExceptionBeforeAnyPushHandsEveryFileBack) {
    m_script.onDispatch = [](ScriptedDelegate&, const Files&) -> bool { throw std::runtime_error("out"); };
    const auto delegate = Make({m_files.addGroup("A", 3), {m_files.add("B_1")}}, 2);
    EXPECT_THROW(delegate->DoWork(nullptr), std::runtime_error);
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    EXPECT_EQ(m_driver.calls(), (Strings{"test 1", "close 1"}));
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AnExceptionAfterAPartHandsBackTheRestOnly) {
    m_script.onDispatch = [](ScriptedDelegate& self, const Files& files) -> bool {
        self.complete(files.front());
        self.complete(files.back());
        throw 4711;
    };
    const auto delegate = Make({m_files.addGroup("A", 3), {m_files.add("B_1")}});
    EXPECT_THROW(delegate->DoWork(nullptr), int);
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "A_3:3", "A_2" + kFailed, "B_1" + kFailed}));
    ExpectEveryFileBackOnce();
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest,
       AnExceptionAfterTheLastPushHandsBackTheLaterGroupsOnly) {
    m_script.onDispatch = [](ScriptedDelegate& self, const Files& files) -> bool {
        self.completeAll(files);
        throw std::runtime_error("out");
    };
    const auto delegate = Make({{m_files.add("A_1")}, {m_files.add("B_1")}});
    EXPECT_THROW(delegate->DoWork(nullptr), std::runtime_error);
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "B_1" + kFailed}));
    ExpectEveryFileBackOnce();
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AnExceptionOutOfTheFirstBatchSparesWhatWasDoneBefore) {
    int dispatches = 0;
    m_script.onDispatch = [&](ScriptedDelegate& self, const Files& files) {
        if (++dispatches == 2) {
            throw std::runtime_error("out");
        }
        self.completeAll(files);
        return true;
    };
    const auto delegate = Make({m_files.addGroup("A", 5)}, 2);
    EXPECT_THROW(delegate->DoWork(nullptr), std::runtime_error);
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "A_2:3", "A_3" + kFailed, "A_4" + kFailed, "A_5" + kFailed}));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AnExceptionOutOfTheLastStepHandsNothingBackTwice) {
    m_script.onFinalize = [](ScriptedDelegate&) -> bool { throw std::runtime_error("out"); };
    const auto delegate = Make({{m_files.add("A_1")}});
    EXPECT_THROW(delegate->DoWork(nullptr), std::runtime_error);
    EXPECT_EQ(Returns(), Strings{"A_1:3"});
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AnExceptionEndsNeitherTheProcessNorTheWorker) {
    m_script.onDispatch = [](ScriptedDelegate& self, const Files& files) -> bool {
        if (files.front()->m_strMsgFileID == "A_1") {
            throw std::runtime_error("out");
        }
        self.completeAll(files);
        return true;
    };
    kvtest::TidyPool& pool = m_driver.MakePool(1);
    FileMessages();
    m_driver.PeriodicEvent();
    ASSERT_TRUE(m_host.queue.waitFor(4));
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    kvtest::ReportsStatus status = KvMessengerReportsMngrInterface::REPORT_NONE;
    m_driver.SendAMessage(m_files.add("C_1"), status);
    m_driver.PeriodicEvent();
    ASSERT_TRUE(m_host.queue.waitFor(5));
    EXPECT_EQ(Returns(), Strings{"C_1:3"});
    EXPECT_EQ(pool.RunningSize(), 1U);
    EXPECT_TRUE(kvtest::ComesTrue([this] { return m_script.deleted == 2; }));
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1", "close 1", "create 2", "test 2"}));
}

// --- A worker that is ended

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AWorkerEndedInsideADispatchHandsEveryFileBack) {
    m_script.onDispatch = [this](ScriptedDelegate&, const Files&) {
        WaitForSilentPeer();
        return true;
    };
    EndWorkerWhileItWaits();
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    ExpectEveryFileBackOnce();
    ExpectNoConnectionLeft();
    EXPECT_EQ(OpenDescriptorCount(), m_descriptors);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AWorkerEndedAfterAPartHandsBackTheRestOnly) {
    m_script.onDispatch = [this](ScriptedDelegate& self, const Files& files) {
        self.complete(files.front());
        WaitForSilentPeer();
        return true;
    };
    EndWorkerWhileItWaits();
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    ExpectEveryFileBackOnce();
    ExpectNoConnectionLeft();
    EXPECT_EQ(OpenDescriptorCount(), m_descriptors);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AWorkerEndedInALaterGroupSparesWhatWasDoneBefore) {
    m_script.onDispatch = [this](ScriptedDelegate& self, const Files& files) {
        if (files.front()->m_strMsgFileID == "B_1") {
            WaitForSilentPeer();
        }
        self.completeAll(files);
        return true;
    };
    EndWorkerWhileItWaits();
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "A_2:3", "A_3:3", "B_1" + kFailed}));
    ExpectEveryFileBackOnce();
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest,
       AWorkerEndedWhileItTestsItsConnectionHandsEveryFileBack) {
    m_driver.onTest = [this](int) {
        WaitForSilentPeer();
        return true;
    };
    EndWorkerWhileItWaits();
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    ExpectEveryFileBackOnce();
    ExpectNoConnectionLeft();
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pCacheLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AWorkerEndedWhileItMakesAConnectionFreesTheCache) {
    m_driver.onTest = [](int) { return false; };
    m_driver.onCreate = [this](int number, const KvMessageFile*) {
        if (number == 2) {
            WaitForSilentPeer();
        }
        return true;
    };
    EndWorkerWhileItWaits();
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
    ExpectEveryFileBackOnce();
    EXPECT_EQ(m_driver.calls(), (Strings{"create 1", "test 1", "close 1", "create 2"}));
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    EXPECT_EQ(TryLockOnAnotherThread(*m_driver.m_pCacheLock), KvconLock::LOCK_ACQUIRED);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AWorkerIsNotEndedWhereItDoesNotWait) {
    std::atomic<bool> ended{false};
    m_script.onDispatch = [&](ScriptedDelegate& self, const Files& files) {
        m_waiting.Open();
        EXPECT_TRUE(kvtest::ComesTrue([] { return kvtest::IsPendingHere(SIGQUIT); }));
        self.completeAll(files);
        ended = files.front()->m_strMsgFileID == "B_1";
        return true;
    };
    EndWorkerWhileItWaits();
    EXPECT_TRUE(ended);
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "A_2:3", "A_3:3", "B_1:3"}));
    EXPECT_EQ(m_driver.IdleCount("1"), 1U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceEarlyEndTest, AWalkWithoutEndEndsWithItsWorker) {
    m_driver.m_nMaxPinsPerTransaction = 0;
    m_script.onDispatch = [this](ScriptedDelegate&, const Files&) {
        m_waiting.Open();
        return true;
    };
    m_driver.m_pLog = nullptr;  // it would fill the memory
    EndWorkerWhileItWaits();
    EXPECT_EQ(Returns(), (Strings{"A_1" + kFailed, "A_2" + kFailed, "A_3" + kFailed, "B_1" + kFailed}));
}

}  // namespace
