#include "KvSmartProtocolDriverDelegateIface.h"

#include <gtest/gtest.h>

#include "driver/DelegateTest.h"

// The walk over the groups of a session. What happens when it ends early has a file of its own.

namespace {

using kvtest::Files;
using kvtest::Groups;
using kvtest::LinesFrom;
using kvtest::LinesOf;
using kvtest::ScriptedDelegate;
using kvtest::SlotOf;
using kvtest::Strings;

const std::string kNoConnection = kvtest::kNoConnection;

class KvSmartProtocolDriverDelegateIfaceTest : public kvtest::DelegateTest {
protected:
    const Groups m_twoSingles{{m_files.add("A_1")}, {m_files.add("B_1")}};
};

// --- Construction

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, ANewDelegateHoldsNothing) {
    const ScriptedDelegate delegate(m_script);
    EXPECT_EQ(delegate.m_pDriver, nullptr);
    EXPECT_EQ(delegate.m_pConn, nullptr);
    EXPECT_EQ(delegate.m_pLog, nullptr);
    EXPECT_EQ(delegate.m_strCacheKey, "");
    EXPECT_TRUE(delegate.m_vecMsgFileGroups.empty());
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, TheOperationsLieInTheirSlots) {
    using Delegate = KvSmartProtocolDriverDelegateIface;
    EXPECT_EQ(SlotOf(&Delegate::DoWork), 2U);  // 0 and 1 are the destructor
    EXPECT_EQ(SlotOf(&Delegate::StopWork), 3U);
    EXPECT_EQ(SlotOf(&Delegate::PauseWork), 4U);
    EXPECT_EQ(SlotOf(&Delegate::ResumeWork), 5U);
    EXPECT_EQ(SlotOf(&Delegate::InitializeSpecial), 6U);
    EXPECT_EQ(SlotOf(&Delegate::FinalizeSpecial), 7U);
    EXPECT_EQ(SlotOf(&Delegate::SendMessageGroup), 8U);
    EXPECT_EQ(SlotOf(&Delegate::SendMessage), 9U);
    EXPECT_EQ(SlotOf(&Delegate::Send2WayMessage), 10U);
    EXPECT_EQ(SlotOf(&Delegate::Query2WayResponse), 11U);
    EXPECT_EQ(SlotOf(&Delegate::ProcessMessageFileGroups), 12U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, TheMembersLieInTheirOrderBehindTheWorkObject) {
    const ScriptedDelegate delegate(m_script);
    const auto* const words =
        reinterpret_cast<void* const*>(static_cast<const KvSmartProtocolDriverDelegateIface*>(&delegate));
    EXPECT_EQ(words + 2, static_cast<const void*>(&delegate.m_pDriver));  // the table, the user data
    EXPECT_EQ(words + 3, static_cast<const void*>(&delegate.m_pConn));
    EXPECT_EQ(words + 4, static_cast<const void*>(&delegate.m_pLog));
    EXPECT_EQ(words + 5, static_cast<const void*>(&delegate.m_strCacheKey));
    EXPECT_LT(static_cast<const void*>(&delegate.m_strCacheKey),
              static_cast<const void*>(&delegate.m_vecMsgFileGroups));
    EXPECT_LT(static_cast<const void*>(&delegate.m_vecMsgFileGroups),
              static_cast<const void*>(&delegate.m_nMaxPinsPerTransaction));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, TheSpecialStepsReportSuccessUnlessOverridden) {
    ScriptedDelegate delegate(m_script);
    EXPECT_TRUE(delegate.KvSmartProtocolDriverDelegateIface::InitializeSpecial());
    EXPECT_TRUE(delegate.KvSmartProtocolDriverDelegateIface::FinalizeSpecial());
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, InitializeTakesCopiesOfTheGroupsAndAnswersItsSpecialStep) {
    kvtest::KvConn* const conn = m_driver.Take("key");
    const auto delegate = std::make_unique<ScriptedDelegate>(m_script);
    EXPECT_TRUE(delegate->Initialize(&m_driver, "key", conn, m_twoSingles, 7, &m_delegateLog));
    EXPECT_EQ(delegate->m_pDriver, &m_driver);
    EXPECT_EQ(delegate->m_strCacheKey, "key");
    EXPECT_EQ(delegate->m_pConn, conn);
    EXPECT_EQ(delegate->m_vecMsgFileGroups, m_twoSingles);
    EXPECT_EQ(delegate->m_nMaxPinsPerTransaction, 7);
    EXPECT_EQ(delegate->m_pLog, &m_delegateLog);
    m_script.onInitialize = [] { return false; };
    EXPECT_FALSE(delegate->Initialize(&m_driver, "key", conn, {}, 7, &m_delegateLog));
    EXPECT_EQ(m_script.initialized, 2);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, InitializePutsItsGroupsBeforeThoseAlreadyThere) {
    const auto delegate = Make({m_twoSingles[1]});
    delegate->Initialize(&m_driver, "key", delegate->m_pConn, {m_twoSingles[0]}, 10, &m_delegateLog);
    EXPECT_EQ(delegate->m_vecMsgFileGroups, m_twoSingles);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, FinalizeIgnoresItsSpecialStep) {
    m_script.onFinalize = [](ScriptedDelegate&) { return false; };
    ScriptedDelegate delegate(m_script);
    EXPECT_TRUE(delegate.Finalize());
    EXPECT_EQ(m_script.finalized, 1);
}

// --- DoWork

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, WorkIsDispatchedLoggedAndTheConnectionReleased) {
    Run(Make(m_twoSingles));
    EXPECT_EQ(
        LinesFrom(m_delegateLog, kvtest::kDelegateSource),
        (Strings{
            "info: Processing session with 2 msg files group ...",
            "trace: Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()",
            "info:  >> Processing message group #0.", "debug:  >>>> Dispatching 1way message jobid:'A_1'.",
            "info:  >> Processing message group #1.", "debug:  >>>> Dispatching 1way message jobid:'B_1'.",
            "trace: Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with TRUE.",
            "info: Ending session ..."}));
    EXPECT_EQ(LinesOf(m_delegateLog).size(), 8U);
    EXPECT_EQ(m_script.dispatches(), (Strings{"SendMessage: A_1", "SendMessage: B_1"}));
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "B_1:3"}));
    EXPECT_EQ(m_driver.calls(), (Strings{"test 1", "test 1"}));
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, TheConnectionIsReleasedBeforeTheSpecialLastStep) {
    std::size_t idle = 0;
    std::size_t groups = 99;
    m_script.onFinalize = [&](ScriptedDelegate& delegate) {
        idle = m_driver.IdleCount("key");
        groups = delegate.m_vecMsgFileGroups.size();
        return true;
    };
    Run(Make(m_twoSingles));
    EXPECT_EQ(m_script.finalized, 1);
    EXPECT_EQ(idle, 1U);
    EXPECT_EQ(groups, 0U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, WorkNeedsNoLog) {
    auto delegate = Make(m_twoSingles);
    delegate->m_pLog = nullptr;
    LoseConnectionAtTest(2);
    m_script.onDispatch = [](ScriptedDelegate& self, const Files& files) {
        self.completeAll(files);
        return false;
    };
    Run(std::move(delegate));
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "B_1:2 " + kNoConnection}));
    EXPECT_EQ(m_delegateLog.count(), 0);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, StoppingPausingAndResumingChangeNothing) {
    auto delegate = Make({{m_files.add("A_1")}});
    delegate->StopWork();
    delegate->PauseWork();
    Run(std::move(delegate));
    EXPECT_EQ(Returns(), Strings{"A_1:3"});
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, WorkWithoutGroupsReleasesTheConnection) {
    Run(Make({}));
    EXPECT_EQ(LinesOf(m_delegateLog), Strings{});
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
    EXPECT_EQ(m_script.finalized, 1);
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, WorkWithEmptyGroupsOnlyIsDropped) {
    Run(Make({{}, {}}));
    EXPECT_EQ(LinesOf(m_delegateLog),
              Strings{"error: All message groups are empty. Dropping current dispatch cycle."});
    EXPECT_EQ(m_driver.calls(), Strings{});
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
    EXPECT_EQ(m_script.finalized, 1);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AnEmptyGroupAmongOthersIsPassedOver) {
    Run(Make({{}, {m_files.add("A_1")}}));
    EXPECT_EQ(Notes(),
              (Strings{"info: Processing session with 2 msg files group ...",
                       "info:  >> Processing message group #0.", "info:  >> Processing message group #1.",
                       "debug:  >>>> Dispatching 1way message jobid:'A_1'.", "info: Ending session ..."}));
    EXPECT_EQ(m_driver.calls(), Strings{"test 1"});
    EXPECT_EQ(Returns(), Strings{"A_1:3"});
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, WorkWithoutConnectionFailsEveryFile) {
    auto delegate = std::make_unique<ScriptedDelegate>(m_script);
    delegate->Initialize(&m_driver, "key", nullptr, m_twoSingles, 10, &m_delegateLog);
    Run(std::move(delegate));
    EXPECT_EQ(LinesOf(m_delegateLog),
              (Strings{"error: Unable to get connection. Dropping current dispatch cycle.",
                       "error: Failing message job id: job-A_1. Reason: " + kNoConnection,
                       "error: Failing message job id: job-B_1. Reason: " + kNoConnection}));
    EXPECT_EQ(Returns(), (Strings{"A_1:2 " + kNoConnection, "B_1:2 " + kNoConnection}));
    EXPECT_EQ(m_driver.calls(), Strings{});
    EXPECT_EQ(m_script.dispatches(), Strings{});
    EXPECT_EQ(m_script.finalized, 1);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AFailedFileComesBackWithoutFlagOrText) {
    auto* const file = m_files.add("A_1");
    file->m_bDriverFlag = true;
    auto delegate = std::make_unique<ScriptedDelegate>(m_script);
    delegate->Initialize(&m_driver, "key", nullptr, {{file}}, 10, &m_delegateLog);
    Run(std::move(delegate));
    EXPECT_EQ(file->failureReasons(), Strings{kNoConnection});
    EXPECT_EQ(file->statusTexts(), Strings{""});
    EXPECT_FALSE(file->m_bDriverFlag);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AnOverriddenWalkThatFailsHasItsFilesFailed) {
    struct OwnWalk : ScriptedDelegate {
        using ScriptedDelegate::ScriptedDelegate;
        bool ProcessMessageFileGroups() override { return false; }
    };
    auto delegate = std::make_unique<OwnWalk>(m_script);
    delegate->Initialize(&m_driver, "key", m_driver.Take("key"), m_twoSingles, 10, &m_delegateLog);
    Run(std::move(delegate));
    EXPECT_EQ(LinesOf(m_delegateLog),
              (Strings{"info: Processing session with 2 msg files group ...", "info: Ending session ...",
                       "error: Failing message job id: job-A_1. Reason: " + kNoConnection,
                       "error: Failing message job id: job-B_1. Reason: " + kNoConnection}));
    EXPECT_EQ(Returns(), (Strings{"A_1:2 " + kNoConnection, "B_1:2 " + kNoConnection}));
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
}

// --- The kinds of single messages

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AQueryIsDispatchedAsAQueryWhateverElseItIs) {
    auto* const file = m_files.add("A_1");
    file->m_bIs2WayQuery = true;
    file->m_bIs2Way = true;
    file->m_b2WayEnabled = true;
    Run(Make({{file}}));
    EXPECT_EQ(m_script.dispatches(), Strings{"Query2WayResponse: A_1"});
    EXPECT_EQ(m_delegateLog.countEqual(" >>>> Dispatching query for 2way response jobid:'A_1'."), 1);
    EXPECT_EQ(Returns(), Strings{"A_1:3"});
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AnEnabledTwoWayMessageIsDispatchedAsTwoWay) {
    auto* const file = m_files.add("A_1");
    file->m_bIs2Way = true;
    file->m_b2WayEnabled = true;
    Run(Make({{file}}));
    EXPECT_EQ(m_script.dispatches(), Strings{"Send2WayMessage: A_1"});
    EXPECT_TRUE(m_delegateLog.has(kvtest::Severity::Debug, " >>>> Dispatching 2way message jobid:'A_1'."));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, ATwoWayMessageThatIsNotEnabledIsDispatchedAs1Way) {
    auto* const file = m_files.add("A_1");
    file->m_bIs2Way = true;
    Run(Make({{file}}));
    EXPECT_EQ(m_script.dispatches(), Strings{"SendMessage: A_1"});
    EXPECT_TRUE(m_delegateLog.has(kvtest::Severity::Debug, " >>>> Dispatching 1way message jobid:'A_1'."));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AnEnabledMessageThatIsNotTwoWayIsDispatchedAs1Way) {
    auto* const file = m_files.add("A_1");
    file->m_b2WayEnabled = true;
    Run(Make({{file}}));
    EXPECT_EQ(m_script.dispatches(), Strings{"SendMessage: A_1"});
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, FailedDispatchesAreLoggedAndTheWalkGoesOn) {
    auto* const query = m_files.add("A_1");
    query->m_bIs2WayQuery = true;
    auto* const twoWay = m_files.add("B_1");
    twoWay->m_bIs2Way = twoWay->m_b2WayEnabled = true;
    m_script.onDispatch = [](ScriptedDelegate& self, const Files& files) {
        self.completeAll(files);  // whatever it says: the files are the dispatcher's
        return false;
    };
    Run(Make({{query}, {twoWay}, {m_files.add("C_1")}, m_files.addGroup("D", 2), {m_files.add("E_1")}}));
    EXPECT_EQ(
        Notes(),
        (Strings{
            "info: Processing session with 5 msg files group ...", "info:  >> Processing message group #0.",
            "debug:  >>>> Dispatching query for 2way response jobid:'A_1'.",
            "error:  >>>>>> Failed to dispatch query for 2way response.",
            "info:  >> Processing message group #1.", "debug:  >>>> Dispatching 2way message jobid:'B_1'.",
            "error:  >>>>>> Failed to dispatch 2way message.", "info:  >> Processing message group #2.",
            "debug:  >>>> Dispatching 1way message jobid:'C_1'.",
            "error:  >>>>>> Failed to dispatch 1way message.", "info:  >> Processing message group #3.",
            "debug:  >>>> Dispatching message group; cycle#1.",
            "error:  >>>>>> Failed to dispatch message group.", "info:  >> Processing message group #4.",
            "debug:  >>>> Dispatching 1way message jobid:'E_1'.",
            "error:  >>>>>> Failed to dispatch 1way message.", "info: Ending session ..."}));
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "B_1:3", "C_1:3", "D_1:3", "D_2:3", "E_1:3"}));
}

// --- Groups

TEST_F(KvSmartProtocolDriverDelegateIfaceTest,
       AGroupOf25GoesInThreeTransactionsEachOverAValidatedConnection) {
    struct Batches : ScriptedDelegate {
        using ScriptedDelegate::ScriptedDelegate;
        bool SendMessageGroup(Files batch) override {
            sizes.push_back(batch.size());
            testsBefore.push_back(dynamic_cast<kvtest::ScriptedDriver*>(m_pDriver)->calls().size());
            return ScriptedDelegate::SendMessageGroup(batch);
        }
        std::vector<std::size_t> sizes;
        std::vector<std::size_t> testsBefore;
    } delegate(m_script);
    kvtest::KvConn* const conn = m_driver.Take("key");
    m_driver.forgetCalls();
    delegate.Initialize(&m_driver, "key", conn, {m_files.addGroup("A", 25)}, 10, &m_delegateLog);
    delegate.DoWork(nullptr);
    EXPECT_EQ(delegate.sizes, (std::vector<std::size_t>{10, 10, 5}));
    EXPECT_EQ(delegate.testsBefore, (std::vector<std::size_t>{1, 2, 3}));
    EXPECT_EQ(m_driver.calls(), (Strings{"test 1", "test 1", "test 1"}));
    EXPECT_EQ(
        Notes(),
        (Strings{"info: Processing session with 1 msg files group ...",
                 "info:  >> Processing message group #0.", "debug:  >>>> Dispatching message group; cycle#1.",
                 "debug:  >>>> Dispatching message group; cycle#2.",
                 "debug:  >>>> Dispatching message group; cycle#3.", "info: Ending session ..."}));
    const Strings returns = Returns();
    ASSERT_EQ(returns.size(), 25U);
    for (std::size_t file = 0; file < returns.size(); ++file) {
        EXPECT_EQ(returns[file], "A_" + std::to_string(file + 1) + ":3");
    }
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, TheCycleNumberBeginsAnewInEveryGroup) {
    Run(Make({m_files.addGroup("A", 3), m_files.addGroup("B", 2)}, 2));
    EXPECT_EQ(m_script.dispatches(),
              (Strings{"SendMessageGroup: A_1 A_2", "SendMessageGroup: A_3", "SendMessageGroup: B_1 B_2"}));
    EXPECT_EQ(m_delegateLog.countEqual(" >>>> Dispatching message group; cycle#1."), 2);
    EXPECT_EQ(m_delegateLog.countEqual(" >>>> Dispatching message group; cycle#2."), 1);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, ALimitOf1SendsAGroupOneByOneAsAGroup) {
    Run(Make({m_files.addGroup("A", 2)}, 1));
    EXPECT_EQ(m_script.dispatches(), (Strings{"SendMessageGroup: A_1", "SendMessageGroup: A_2"}));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, ALimitOfZeroSendsEmptyBatchesWithoutEnd) {
    LoseConnectionAtTest(51);
    Run(Make({m_files.addGroup("A", 2)}, 0));
    EXPECT_EQ(m_script.dispatches(), Strings(50, "SendMessageGroup:"));
    EXPECT_EQ(m_delegateLog.countEqual(" >>>> Dispatching message group; cycle#50."), 1);
    EXPECT_EQ(Returns(), (Strings{"A_1:2 " + kNoConnection, "A_2:2 " + kNoConnection}));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, ANegativeLimitSendsEmptyBatchesToo) {
    LoseConnectionAtTest(4);
    Run(Make({m_files.addGroup("A", 2)}, -1));
    EXPECT_EQ(m_script.dispatches(), Strings(3, "SendMessageGroup:"));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, ALimitOfZeroStillSendsSingleFiles) {
    Run(Make({{m_files.add("A_1")}}, 0));
    EXPECT_EQ(Returns(), Strings{"A_1:3"});
}

// --- The connection is lost

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AReplacedConnectionIsUsedAndReleased) {
    int firstTest = 0;
    m_driver.onTest = [&](int number) { return number == 2 && ++firstTest > 0; };
    int usedConnection = 0;
    m_script.onDispatch = [&](ScriptedDelegate& self, const Files& files) {
        usedConnection = kvtest::ScriptedDriver::NumberOf(*self.m_pConn);
        self.completeAll(files);
        return true;
    };
    Run(Make({{m_files.add("A_1")}}));
    EXPECT_EQ(usedConnection, 2);
    EXPECT_EQ(m_driver.calls(), (Strings{"test 1", "close 1", "create 2"}));
    EXPECT_EQ(m_driver.IdleCount("key"), 1U);
    EXPECT_EQ(m_driver.templates().back()->m_strMsgFileID, "A_1");
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AReplacementForAGroupIsMadeFromItsFirstFileThatWaits) {
    int tests = 0;
    m_driver.onTest = [&](int) { return ++tests != 2; };
    Run(Make({m_files.addGroup("A", 4)}, 2));
    EXPECT_EQ(m_driver.calls(), (Strings{"test 1", "test 1", "close 1", "create 2"}));
    EXPECT_EQ(m_driver.templates().back()->m_strMsgFileID, "A_3");
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "A_2:3", "A_3:3", "A_4:3"}));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AConnectionLostInTheThirdOfFiveGroupsFailsExactlyTheRest) {
    LoseConnectionAtTest(4);
    Run(Make({{m_files.add("A_1")},
              m_files.addGroup("B", 2),
              m_files.addGroup("C", 5),
              {m_files.add("D_1")},
              m_files.addGroup("E", 2)},
             2));
    EXPECT_EQ(m_script.dispatches(),
              (Strings{"SendMessage: A_1", "SendMessageGroup: B_1 B_2", "SendMessageGroup: C_1 C_2"}));
    EXPECT_EQ(Returns(),
              (Strings{"A_1:3", "B_1:3", "B_2:3", "C_1:3", "C_2:3", "C_3:2 " + kNoConnection,
                       "C_4:2 " + kNoConnection, "C_5:2 " + kNoConnection, "D_1:2 " + kNoConnection,
                       "E_1:2 " + kNoConnection, "E_2:2 " + kNoConnection}));
    EXPECT_TRUE(m_host.queue.eachReturnedOnce());
    EXPECT_EQ(
        LinesFrom(m_delegateLog, kvtest::kDelegateSource),
        (Strings{
            "info: Processing session with 5 msg files group ...",
            "trace: Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()",
            "info:  >> Processing message group #0.", "debug:  >>>> Dispatching 1way message jobid:'A_1'.",
            "info:  >> Processing message group #1.", "debug:  >>>> Dispatching message group; cycle#1.",
            "info:  >> Processing message group #2.", "debug:  >>>> Dispatching message group; cycle#1.",
            "error: Unable to get connection object. Incorrect carrier configuration key and/or carrier "
            "service "
            "is unreachable. Dropping current dispatch cycle.",
            "trace: Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with FALSE.",
            "info: Ending session ...", "error: Failing message job id: job-C_3. Reason: " + kNoConnection,
            "error: Failing message job id: job-C_4. Reason: " + kNoConnection,
            "error: Failing message job id: job-C_5. Reason: " + kNoConnection,
            "error: Failing message job id: job-D_1. Reason: " + kNoConnection,
            "error: Failing message job id: job-E_1. Reason: " + kNoConnection,
            "error: Failing message job id: job-E_2. Reason: " + kNoConnection}));
    EXPECT_EQ(m_driver.m_nTotalConnections, 0U);
    EXPECT_EQ(m_script.finalized, 1);
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AFailedWalkLeavesTheCurrentAndTheLaterGroups) {
    LoseConnectionAtTest(3);
    const auto delegate =
        Make({{m_files.add("A_1")}, m_files.addGroup("B", 3), {m_files.add("C_1")}, {m_files.add("D_1")}}, 2);
    EXPECT_FALSE(delegate->ProcessMessageFileGroups());
    EXPECT_EQ(delegate->m_pConn, nullptr);
    ASSERT_EQ(delegate->m_vecMsgFileGroups.size(), 3U);
    EXPECT_EQ(kvtest::IdsOf(delegate->m_vecMsgFileGroups[0]), Strings{"B_3"});
    EXPECT_EQ(kvtest::IdsOf(delegate->m_vecMsgFileGroups[1]), Strings{"C_1"});
    EXPECT_EQ(kvtest::IdsOf(delegate->m_vecMsgFileGroups[2]), Strings{"D_1"});
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AConnectionLostBeforeASingleFileFailsItToo) {
    LoseConnectionAtTest(2);
    Run(Make(m_twoSingles));
    EXPECT_EQ(Returns(), (Strings{"A_1:3", "B_1:2 " + kNoConnection}));
}

TEST_F(KvSmartProtocolDriverDelegateIfaceTest, AConnectionPostponedForTheWalkFailsTheFilesToo) {
    m_driver.onTest = [](int) { return false; };
    auto delegate = Make(m_twoSingles);
    m_driver.m_nMaxSameCarrierConnections = 0;
    Run(std::move(delegate));
    EXPECT_EQ(Returns(), (Strings{"A_1:2 " + kNoConnection, "B_1:2 " + kNoConnection}));
}

}  // namespace
