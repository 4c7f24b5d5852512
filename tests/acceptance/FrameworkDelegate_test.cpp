#include <gtest/gtest.h>

#include <ctime>
#include <stdexcept>

#include "FrameworkKit.h"

using namespace kvframework;
using kvtest::Severity;

namespace {

constexpr const char* kAllEmpty = "All message groups are empty. Dropping current dispatch cycle.";
constexpr const char* kNoConnInHand = "Unable to get connection. Dropping current dispatch cycle.";

class FrameworkDelegate : public FrameworkTest {
protected:
    /// A delegate that holds `groups` and a connection of "key".
    FakeDelegate& with(const Groups& groups, int pins = 10) {
        m_delegate = std::make_unique<FakeDelegate>(journal);
        KvConn* conn = forget(take("key"));
        m_delegate->Initialize(&driver, "key", conn, groups, pins, driver.m_pLog);
        journal.clear();
        driver.journal.clear();
        host.log.clear();
        return *m_delegate;
    }
    FakeDelegate& withoutConnection(const Groups& groups) {
        FakeDelegate& delegate = with(groups);
        giveBack(std::exchange(delegate.m_pConn, nullptr));
        driver.journal.clear();
        host.log.clear();
        return delegate;
    }
    void end() { m_delegate.reset(); }

    Journal journal;

private:
    std::unique_ptr<FakeDelegate> m_delegate;
};

TEST_F(FrameworkDelegate, AFreshOneHoldsNothing) {
    const FakeDelegate delegate(journal);
    EXPECT_EQ(delegate.m_pDriver, nullptr);
    EXPECT_EQ(delegate.m_pConn, nullptr);
    EXPECT_EQ(delegate.m_pLog, nullptr);
    EXPECT_EQ(delegate.m_strCacheKey, "");
    EXPECT_TRUE(delegate.m_vecMsgFileGroups.empty());
}

TEST_F(FrameworkDelegate, InitializeStoresWhatItIsGiven) {
    FakeDelegate delegate(journal);
    KvConn* conn = take("key");
    const Groups groups{files("A", 2), files("B", 1)};
    EXPECT_TRUE(delegate.Initialize(&driver, "key", conn, groups, 7, &host.log));
    EXPECT_EQ(delegate.m_pDriver, &driver);
    EXPECT_EQ(delegate.m_pConn, conn);
    EXPECT_EQ(delegate.m_pLog, &host.log);
    EXPECT_EQ(delegate.m_strCacheKey, "key");
    EXPECT_EQ(delegate.m_nMaxPinsPerTransaction, 7);
    EXPECT_EQ(delegate.m_vecMsgFileGroups, groups);
    EXPECT_EQ(journal.events(), (Texts{"initialize"}));
    delegate.m_vecMsgFileGroups.clear();
    delegate.m_pConn = nullptr;
}

TEST_F(FrameworkDelegate, InitializeAnswersWhatInitializeSpecialAnswers) {
    FakeDelegate delegate(journal);
    delegate.initializeResult = false;
    EXPECT_FALSE(delegate.Initialize(&driver, "key", nullptr, {}, 7, nullptr));
}

TEST_F(FrameworkDelegate, InitializePutsTheGroupsInFrontOfThoseThatAreThere) {
    FakeDelegate delegate(journal);
    const Groups first{files("A", 1)};
    const Groups second{files("B", 1), files("C", 1)};
    delegate.Initialize(&driver, "key", nullptr, first, 7, nullptr);
    delegate.Initialize(&driver, "key", nullptr, second, 7, nullptr);
    EXPECT_EQ(delegate.m_vecMsgFileGroups, (Groups{second[0], second[1], first[0]}));
    delegate.m_vecMsgFileGroups.clear();
}

TEST_F(FrameworkDelegate, TheCallersGroupsAreCopied) {
    Groups groups{files("A", 2)};
    FakeDelegate& delegate = with(groups);
    groups[0].clear();
    groups.clear();
    EXPECT_EQ(delegate.m_vecMsgFileGroups.at(0).size(), 2U);
    delegate.DoWork(nullptr);
}

TEST_F(FrameworkDelegate, FinalizeIsAlwaysTrue) {
    FakeDelegate delegate(journal);
    delegate.finalizeResult = false;
    EXPECT_TRUE(delegate.Finalize());
    EXPECT_EQ(journal.events(), (Texts{"finalize"}));
}

TEST_F(FrameworkDelegate, TheThreeControlHooksDoNothing) {
    FakeDelegate& delegate = with({files("A", 1)});
    delegate.StopWork();
    delegate.PauseWork();
    delegate.ResumeWork();
    EXPECT_EQ(host.log.count(), 0);
    delegate.DoWork(nullptr);
    EXPECT_EQ(returned(), (Texts{"A_1:3"}));
}

TEST_F(FrameworkDelegate, ADelegateWithoutSpecialsInitialisesAndFinalises) {
    class Plain : public FakeDelegate {
    public:
        using FakeDelegate::FakeDelegate;
        bool InitializeSpecial() override { return KvSmartProtocolDriverDelegateIface::InitializeSpecial(); }
        bool FinalizeSpecial() override { return KvSmartProtocolDriverDelegateIface::FinalizeSpecial(); }
    };
    Plain delegate(journal);
    EXPECT_TRUE(delegate.InitializeSpecial());
    EXPECT_TRUE(delegate.FinalizeSpecial());
    EXPECT_TRUE(delegate.Initialize(&driver, "key", nullptr, {}, 1, nullptr));
}

TEST_F(FrameworkDelegate, DoWorkSendsEverythingAndReturnsTheConnection) {
    FakeDelegate& delegate = with({files("A", 1), files("B", 2)});
    delegate.DoWork(&delegate);
    EXPECT_EQ(journal.events(), (Texts{"single A_1", "group B_1 B_2", "finalize"}));
    EXPECT_EQ(logged(Severity::Info).front(), "Processing session with 2 msg files group ...");
    EXPECT_EQ(host.log.countEqual("Ending session ..."), 1);
    EXPECT_EQ(host.log.count(Severity::Error), 0);
    EXPECT_EQ(driver.idleNumbers("key"), (std::vector<int>{1}));
    EXPECT_TRUE(delegate.m_vecMsgFileGroups.empty());
    EXPECT_EQ(returned(), (Texts{"A_1:3", "B_1:3", "B_2:3"}));
}

TEST_F(FrameworkDelegate, DoWorkWithoutGroupsOnlyReturnsTheConnection) {
    with({}).DoWork(nullptr);
    EXPECT_EQ(journal.events(), (Texts{"finalize"}));
    EXPECT_EQ(host.log.count(Severity::Error), 0);
    EXPECT_EQ(host.log.countContaining("Processing session"), 0);
    EXPECT_EQ(driver.idleNumbers("key"), (std::vector<int>{1}));
    EXPECT_EQ(host.queue.count(), 0);
}

TEST_F(FrameworkDelegate, DoWorkWithEmptyGroupsSaysSo) {
    with({{}, {}, {}}).DoWork(nullptr);
    EXPECT_EQ(journal.events(), (Texts{"finalize"}));
    EXPECT_EQ(logged(Severity::Error), (Texts{kAllEmpty}));
    EXPECT_EQ(host.log.countContaining("Processing session"), 0);
    EXPECT_EQ(driver.idleNumbers("key"), (std::vector<int>{1}));
}

TEST_F(FrameworkDelegate, OneFileAmongEmptyGroupsIsEnough) {
    with({{}, files("A", 1), {}}).DoWork(nullptr);
    EXPECT_EQ(journal.events(), (Texts{"single A_1", "finalize"}));
    EXPECT_TRUE(host.log.has(Severity::Info, "Processing session with 3 msg files group ..."));
    EXPECT_EQ(host.log.countEqual(kAllEmpty), 0);
}

TEST_F(FrameworkDelegate, DoWorkWithoutAConnectionFailsEveryFile) {
    const Groups groups{files("A", 2), files("B", 1)};
    FakeDelegate& delegate = withoutConnection(groups);
    const time_t before = time(nullptr);
    delegate.DoWork(nullptr);
    const std::string reason = std::string(". Reason: ") + kNoConnection;
    EXPECT_EQ(logged(Severity::Error), (Texts{kNoConnInHand, "Failing message job id: job A_1" + reason,
                                              "Failing message job id: job A_2" + reason,
                                              "Failing message job id: job B_1" + reason}));
    EXPECT_EQ(journal.events(), (Texts{"finalize"}));
    EXPECT_EQ(host.log.countContaining("Processing session"), 0);
    EXPECT_EQ(returned(), (Texts{"A_1:2", "A_2:2", "B_1:2"}));
    for (const auto& group : groups) {
        for (KvMessageFile* each : group) {
            EXPECT_EQ(testFile(each).failureReasons(), (Texts{kNoConnection}));
            EXPECT_EQ(testFile(each).statusTexts(), (Texts{""}));
            EXPECT_FALSE(each->m_bDriverFlag);
            EXPECT_FALSE(each->m_bForDeletion);
            EXPECT_GE(each->m_tStatusTime, before);
        }
    }
    EXPECT_TRUE(delegate.m_vecMsgFileGroups.empty());
    EXPECT_TRUE(driver.journal.events().empty());
}

TEST_F(FrameworkDelegate, EmptyGroupsAreNoticedBeforeAMissingConnection) {
    withoutConnection({{}}).DoWork(nullptr);
    EXPECT_EQ(logged(Severity::Error), (Texts{kAllEmpty}));
}

TEST_F(FrameworkDelegate, AWalkThatSaysNoHasTheRestFailed) {
    class Refusing : public FakeDelegate {
    public:
        using FakeDelegate::FakeDelegate;
        bool ProcessMessageFileGroups() override {
            m_journal.add("walk");
            return false;
        }
    };
    Refusing delegate(journal);
    delegate.Initialize(&driver, "key", forget(take("key")), {files("A", 1)}, 10, &host.log);
    host.log.clear();
    journal.clear();
    delegate.DoWork(nullptr);
    EXPECT_EQ(journal.events(), (Texts{"walk", "finalize"}));
    EXPECT_EQ(logged(Severity::Error),
              (Texts{std::string("Failing message job id: job A_1. Reason: ") + kNoConnection}));
    EXPECT_EQ(host.log.countEqual("Ending session ..."), 1);
    EXPECT_EQ(returned(), (Texts{"A_1:2"}));
    EXPECT_EQ(driver.idleNumbers("key"), (std::vector<int>{1}));
}

TEST_F(FrameworkDelegate, AWalkThatSaysYesHasNothingFailed) {
    class Content : public FakeDelegate {
    public:
        using FakeDelegate::FakeDelegate;
        bool ProcessMessageFileGroups() override {
            m_vecMsgFileGroups.clear();
            return true;
        }
    };
    Content delegate(journal);
    delegate.Initialize(&driver, "key", forget(take("key")), {files("A", 1)}, 10, &host.log);
    delegate.DoWork(nullptr);
    EXPECT_EQ(host.queue.count(), 0);
    EXPECT_EQ(host.log.count(Severity::Error), 0);
}

TEST_F(FrameworkDelegate, WorksWithoutALog) {
    driver.m_pLog = nullptr;
    with({files("A", 1), files("B", 2)}).DoWork(nullptr);
    withoutConnection({files("C", 1)}).DoWork(nullptr);
    EXPECT_EQ(host.log.count(), 0);
    EXPECT_EQ(returned(), (Texts{"A_1:3", "B_1:3", "B_2:3", "C_1:2"}));
}

TEST_F(FrameworkDelegate, OneThatIsDestroyedUnrunHandsItsFilesBack) {
    const Groups groups{files("A", 2), files("B", 1)};
    with(groups);
    end();
    EXPECT_EQ(returned(), (Texts{"A_1:2", "A_2:2", "B_1:2"}));
    for (const auto& group : groups) {
        for (KvMessageFile* each : group) {
            EXPECT_EQ(testFile(each).failureReasons(), (Texts{kInternalError}));
        }
    }
}

TEST_F(FrameworkDelegate, OneThatHasRunHandsNothingBackAgain) {
    with({files("A", 1), files("B", 2)}).DoWork(nullptr);
    end();
    EXPECT_EQ(host.queue.count(), 3);
    EXPECT_TRUE(host.queue.eachReturnedOnce());
}

TEST_F(FrameworkDelegate, AnExceptionOutOfTheWalkLosesNoFile) {
    const Groups groups{files("A", 1), files("B", 3), files("C", 1)};
    FakeDelegate& delegate = with(groups, 2);
    delegate.onDispatch = [](const std::string& event) -> bool {
        if (event == "group B_1 B_2") {
            throw std::runtime_error("out of the walk");
        }
        return true;
    };
    try {
        delegate.DoWork(nullptr);
    } catch (const std::runtime_error&) {
        // Whether it goes further is the delegate's affair; what counts is where the files are.
    }
    end();
    EXPECT_EQ(host.queue.count(), 5);
    EXPECT_TRUE(host.queue.eachReturnedOnce());
    EXPECT_EQ(groups[0].front()->m_eStatus, KvMessengerReportsMngrInterface::REPORT_COMPLETED);
    for (KvMessageFile* each : groups[1]) {
        EXPECT_EQ(each->m_eStatus, KvMessengerReportsMngrInterface::REPORT_FAILED);
        EXPECT_EQ(testFile(each).failureReasons(), (Texts{kInternalError}));
    }
    EXPECT_EQ(testFile(groups[2].front()).failureReasons(), (Texts{kInternalError}));
}

}  // namespace
