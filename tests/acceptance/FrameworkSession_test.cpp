#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "Eventually.h"
#include "FrameworkKit.h"
#include "KvconThreadPool.h"

using namespace kvframework;
using kvtest::Severity;

namespace {

constexpr const char* kEntering = "Entering KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession()";
constexpr const char* kLeavingTrue =
    "Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with TRUE.";
constexpr const char* kLeavingFalse =
    "Leaving KvSmartAsynProtocolDriverMultiThreaded::ProcessCarrierSession() with FALSE.";

/// A driver after Setup, with one worker, whose delegates are FakeDelegates.
class FrameworkSession : public FrameworkTest {
protected:
    FrameworkSession() {
        driver.CleanupExt();
        driver.Setup(nullptr);
        driver.makeDelegate = [this] { return make(); };
        session.m_strCacheKey = "key";
        session.m_strCarrierName = "mail";
        host.log.clear();
    }
    ~FrameworkSession() override {
        closeAllInUse();
        driver.Cleanup();
    }

    FakeDelegate* make() {
        auto* delegate = new FakeDelegate(journal);
        delegate->onDispatch = onDispatch;
        last = delegate;
        return delegate;
    }
    void fill(std::vector<int> sizes) {
        for (std::size_t n = 0; n < sizes.size(); ++n) {
            const std::string key = "G" + std::to_string(n + 1);
            session.m_vecMsgFileGroups.push_back(files(key, sizes[n]));
            session.m_mapGroupIndex[key] = static_cast<unsigned int>(n);
            session.m_pLastMsgFile = session.m_vecMsgFileGroups.back().back();
        }
    }
    bool process() { return driver.ProcessCarrierSession(session, errText); }
    bool waitForEnd() {
        return kvtest::Eventually([this] { return journal.count("delegate deleted") == 1; });
    }
    std::vector<std::size_t> groupSizes() const {
        std::vector<std::size_t> sizes;
        for (const auto& group : session.m_vecMsgFileGroups) {
            sizes.push_back(group.size());
        }
        return sizes;
    }
    /// Log lines of this operation alone: what the cache and the worker log is left out.
    std::vector<std::pair<Severity, std::string>> own(const Texts& wanted) const {
        std::vector<std::pair<Severity, std::string>> result;
        for (const kvtest::LogEntry& entry : host.log.entries()) {
            if (std::find(wanted.begin(), wanted.end(), entry.text) != wanted.end()) {
                result.emplace_back(entry.severity, entry.text);
            }
        }
        return result;
    }
    void file(KvMessageFile* msgFile) {
        KvMessengerReportsMngrInterface::ReportsStatus status = KvMessengerReportsMngrInterface::REPORT_NONE;
        ASSERT_TRUE(driver.SendAMessage(msgFile, status));
        ASSERT_EQ(status, KvMessengerReportsMngrInterface::REPORT_ACCEPTED);
    }
    using FrameworkTest::file;

    Journal journal;
    CarrierSess session;
    std::string errText = "untouched";
    FakeDelegate* last = nullptr;
    std::function<bool(const std::string&)> onDispatch;
};

TEST_F(FrameworkSession, ItsGroupsGoToADelegateInTheirOrder) {
    fill({1, 3, 1});
    EXPECT_TRUE(process());
    EXPECT_EQ(errText, "untouched");
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(journal.events(), (Texts{"initialize", "single G1_1", "group G2_1 G2_2 G2_3", "single G3_1",
                                       "finalize", "delegate deleted"}));
    EXPECT_EQ(returned(), (Texts{"G1_1:3", "G2_1:3", "G2_2:3", "G2_3:3", "G3_1:3"}));
}

TEST_F(FrameworkSession, IsEmptyAfterwards) {
    fill({2, 1});
    session.m_bConnFailed = false;
    EXPECT_TRUE(process());
    EXPECT_TRUE(session.m_vecMsgFileGroups.empty());
    EXPECT_TRUE(session.m_mapGroupIndex.empty());
    EXPECT_EQ(session.m_strCacheKey, "key");
    EXPECT_EQ(session.m_strCarrierName, "mail");
    EXPECT_TRUE(waitForEnd());
}

TEST_F(FrameworkSession, ItsFilesAreSentOnAnotherThread) {
    std::thread::id worker;
    onDispatch = [&](const std::string&) {
        worker = std::this_thread::get_id();
        return true;
    };
    fill({1});
    EXPECT_TRUE(process());
    ASSERT_TRUE(waitForEnd());
    EXPECT_NE(worker, std::thread::id());
    EXPECT_NE(worker, std::this_thread::get_id());
}

TEST_F(FrameworkSession, LogsItsStepsInOrder) {
    fill({1});
    EXPECT_TRUE(process());
    ASSERT_TRUE(waitForEnd());
    const std::vector<std::pair<Severity, std::string>> expected{
        {Severity::Trace, kEntering},
        {Severity::Trace, "Creating Message dispatch delegate."},
        {Severity::Debug, "Initializing message dispatch delegate."},
        {Severity::Trace, "Adding delegate the thread pool queue ..."},
        {Severity::Trace, kLeavingTrue}};
    EXPECT_EQ(own({kEntering, kLeavingTrue, "Creating Message dispatch delegate.",
                   "Initializing message dispatch delegate.", "Adding delegate the thread pool queue ..."}),
              expected);
}

TEST_F(FrameworkSession, TheLastFiledMessageIsTheTemplateOfTheConnection) {
    fill({1, 2});
    EXPECT_TRUE(process());
    ASSERT_TRUE(waitForEnd());
    ASSERT_EQ(driver.created.size(), 1U);
    EXPECT_EQ(driver.created[0].file, session.m_pLastMsgFile);
    EXPECT_EQ(driver.created[0].key, "key");
}

TEST_F(FrameworkSession, TheConnectionIsBackInTheCacheAfterwards) {
    fill({1});
    EXPECT_TRUE(process());
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(driver.idleNumbers("key"), (std::vector<int>{1}));
    fill({1});
    journal.clear();
    EXPECT_TRUE(process());
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(driver.created.size(), 1U);
    EXPECT_EQ(driver.line("key").m_lstIdleConns.front()->m_nUseCount, 2U);
}

TEST_F(FrameworkSession, TheTransactionLimitReachesTheDelegate) {
    driver.m_nMaxPinsPerTransaction = 2;
    fill({5});
    EXPECT_TRUE(process());
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(journal.events(), (Texts{"initialize", "group G1_1 G1_2", "group G1_3 G1_4", "group G1_5",
                                       "finalize", "delegate deleted"}));
}

TEST_F(FrameworkSession, WhenNoConnectionCanBeMadeItFails) {
    driver.onCreate = [] { return Create::Fails; };
    fill({2, 1});
    EXPECT_FALSE(process());
    EXPECT_EQ(errText, kNoConnection);
    EXPECT_TRUE(session.m_bConnFailed);
    EXPECT_TRUE(host.log.has(Severity::Info,
                             "Unable to get connection object. Incorrect carrier configuration key and/or "
                             "carrier serviceis unreachable."));
    EXPECT_EQ(host.log.texts().front(), kEntering);
    EXPECT_EQ(host.log.texts().back(), kLeavingFalse);
    EXPECT_EQ(groupSizes(), (std::vector<std::size_t>{2, 1}));
    EXPECT_EQ(driver.journal.count("delegate"), 0);
}

TEST_F(FrameworkSession, AtALimitItIsLeftForLater) {
    driver.m_nMaxSameCarrierConnections = 0;
    session.m_bConnFailed = true;
    fill({2, 1});
    EXPECT_TRUE(process());
    EXPECT_EQ(errText, "untouched");
    EXPECT_FALSE(session.m_bConnFailed);
    EXPECT_TRUE(host.log.has(Severity::Info,
                             "Unable to get connection object. Delaying carrier session 'key' processing."));
    EXPECT_EQ(host.log.texts().back(), kLeavingTrue);
    EXPECT_EQ(groupSizes(), (std::vector<std::size_t>{2, 1}));
    EXPECT_EQ(session.m_mapGroupIndex.size(), 2U);
    EXPECT_EQ(driver.journal.count("delegate"), 0);
}

TEST_F(FrameworkSession, AtTheTotalLimitItIsLeftForLaterToo) {
    driver.m_nMaxConnections = 0;
    fill({1});
    EXPECT_TRUE(process());
    EXPECT_EQ(groupSizes(), (std::vector<std::size_t>{1}));
    EXPECT_TRUE(host.log.contains("Failed to make capacity for this one."));
    EXPECT_TRUE(host.log.contains("Delaying carrier session 'key' processing."));
}

TEST_F(FrameworkSession, WithoutADelegateItFailsAndKeepsTheConnection) {
    driver.makeDelegate = nullptr;
    fill({2});
    EXPECT_FALSE(process());
    EXPECT_EQ(errText, kInternalError);
    EXPECT_EQ(logged(Severity::Error), (Texts{"Failed to get delegate object for the message dispatcher."}));
    EXPECT_EQ(host.log.texts().back(), kLeavingFalse);
    EXPECT_EQ(groupSizes(), (std::vector<std::size_t>{2}));
    EXPECT_EQ(driver.idleNumbers("key"), (std::vector<int>{1}));
    EXPECT_EQ(driver.journal.count("close 1"), 0);
}

TEST_F(FrameworkSession, WhenTheDelegateIsNotReadyItFailsAndAbandonsTheDelegate) {
    driver.makeDelegate = [this] {
        make()->initializeResult = false;
        return last;
    };
    fill({2});
    EXPECT_FALSE(process());
    EXPECT_EQ(errText, kInternalError);
    EXPECT_EQ(logged(Severity::Error), (Texts{"Initialize call failed for the delegate object."}));
    EXPECT_EQ(host.log.texts().back(), kLeavingFalse);
    EXPECT_EQ(groupSizes(), (std::vector<std::size_t>{2}));
    EXPECT_EQ(driver.idleNumbers("key"), (std::vector<int>{1}));
    EXPECT_EQ(journal.events(), (Texts{"initialize"}));
    // The abandoned delegate is ours now; it must neither hand anything back nor touch the connection.
    last->m_vecMsgFileGroups.clear();
    last->m_pConn = nullptr;
    delete last;
}

TEST_F(FrameworkSession, WorksWithoutALog) {
    driver.m_pLog = nullptr;
    fill({1, 2});
    EXPECT_TRUE(process());
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(returned(), (Texts{"G1_1:3", "G2_1:3", "G2_2:3"}));
    EXPECT_EQ(host.log.count(), 0);
}

TEST_F(FrameworkSession, ACycleFailsTheFilesForWhichNoConnectionCanBeMade) {
    driver.onCreate = [] { return Create::Throws; };
    const std::list<KvMessageFile*> group = files("A", 2);
    for (KvMessageFile* each : group) {
        file(each);
    }
    EXPECT_TRUE(driver.PeriodicEvent());
    EXPECT_EQ(returned(), (Texts{"A_1:2", "A_2:2"}));
    for (KvMessageFile* each : group) {
        EXPECT_EQ(testFile(each).failureReasons(), (Texts{kNoConnection}));
    }
    EXPECT_EQ(host.log.countEqual(std::string("Failing message job id: job A_1. Reason: ") + kNoConnection),
              1);
}

TEST_F(FrameworkSession, ACycleFailsTheFilesForWhichThereIsNoDelegate) {
    driver.makeDelegate = nullptr;
    KvMessageFile* msgFile = file("A_1");
    file(msgFile);
    EXPECT_TRUE(driver.PeriodicEvent());
    EXPECT_EQ(returned(), (Texts{"A_1:2"}));
    EXPECT_EQ(testFile(msgFile).failureReasons(), (Texts{kInternalError}));
}

TEST_F(FrameworkSession, ACycleTriesAPostponedSessionAgainUntilItsTurnComes) {
    driver.m_nMaxSameCarrierConnections = 1;
    const std::string key = driver.GetCacheKey(file(kvtest::MessageBuilder()));
    KvConn* held = forget(take(key));
    file(file("A_1"));
    const auto start = std::chrono::steady_clock::now();
    std::thread other([&] {
        host.log.waitForContaining("Delaying carrier session", 2);
        driver.ReleaseConnToCache(held);
    });
    EXPECT_TRUE(driver.PeriodicEvent());
    // Two pauses of 200 ms at least lie before the pass that found the connection.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(380));
    other.join();
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(returned(), (Texts{"A_1:3"}));
    EXPECT_GE(host.log.countContaining("Delaying connection creation."), 2);
}

TEST_F(FrameworkSession, AFourthBatchOfOneAccountIsPostponedNotFailed) {
    for (int n = 0; n < 3; ++n) {
        take("key");
    }
    fill({1});
    EXPECT_TRUE(process());
    EXPECT_EQ(groupSizes(), (std::vector<std::size_t>{1}));
    EXPECT_EQ(host.queue.count(), 0);
    EXPECT_TRUE(host.log.contains("(=3) has reached. Delaying connection creation."));
}

TEST_F(FrameworkSession, WorkersNeverWaitForTheDriverLock) {
    driver.m_pLock->Lock();
    fill({1, 2});
    EXPECT_TRUE(process());
    EXPECT_TRUE(waitForEnd());
    EXPECT_EQ(host.queue.count(), 3);
    driver.m_pLock->Unlock();
}

TEST_F(FrameworkSession, SeveralDelegatesRunAtOnce) {
    driver.Cleanup();
    std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "2"}};
    driver.Configure(settings);
    driver.Setup(nullptr);
    kvtest::Gate gate;
    onDispatch = [gate](const std::string&) { return kvtest::Eventually([&] { return gate.isOpen(); }); };
    for (const unsigned long carrier : {1UL, 2UL}) {
        file(file(kvtest::MessageBuilder().id("A").carrier(carrier, "mail")));
    }
    EXPECT_TRUE(driver.PeriodicEvent());
    EXPECT_TRUE(kvtest::Eventually([this] { return journal.count("single A") == 2; }));
    EXPECT_EQ(host.queue.count(), 0);
    gate.open();
    EXPECT_TRUE(host.queue.waitFor(2));
    EXPECT_TRUE(kvtest::Eventually([this] { return journal.count("delegate deleted") == 2; }));
}

TEST_F(FrameworkSession, FilesOfADelegateThatStillWaitsAtCleanupComeBackAsFailed) {
    driver.Cleanup();
    std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "0"}};
    driver.Configure(settings);
    driver.Setup(nullptr);
    fill({1, 2});
    EXPECT_TRUE(process());
    EXPECT_EQ(host.queue.count(), 0);
    driver.Cleanup();
    EXPECT_EQ(journal.count("delegate deleted"), 1);
    EXPECT_EQ(returned(), (Texts{"G1_1:2", "G2_1:2", "G2_2:2"}));
    EXPECT_EQ(driver.journal.count("close 1"), 1);
}

}  // namespace
