#include "KvSmartAsynProtocolDriverSingleThreaded.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "driver/FrameworkDoubles.h"

// The operation of this class alone. A whole driver on top of it has a file of its own.

namespace {

using kvtest::Files;
using kvtest::FileShelf;
using kvtest::HostDoubles;
using kvtest::IdsOf;
using kvtest::KvCarrierSess;
using kvtest::LinesFrom;
using kvtest::LinesOf;
using kvtest::SlotOf;
using kvtest::Strings;
using KvSessionConn = KvSmartAsynProtocolDriver::KvSessionConn;

constexpr const char* kSource = "KvSmartAsynProtocolDriverSingleThreaded.cpp";

/// Does with connections and groups what the test says, and writes down every call. Unless told otherwise
/// everything succeeds, and a created connection gets the next number as its handle.
class ScriptedSessionDriver : public KvSmartAsynProtocolDriverSingleThreaded {
public:
    ~ScriptedSessionDriver() override { delete m_pLock; }

    using KvSmartAsynProtocolDriver::m_mapCarrierSessions;

    std::function<bool(KvSessionConn& copy)> onTest = [](KvSessionConn&) { return true; };
    std::function<bool()> onCreate = [] { return true; };
    std::function<bool()> onClose = [] { return true; };
    std::function<bool(const Files& group)> onSend = [](const Files&) { return true; };
    /// Every call in order: "test 1", "close 1", "create (open)" or "create (closed)", "send: id id".
    Strings calls;

    const char* GetName() override { return "Scripted"; }
    const char* GetVersion() override { return "1"; }
    const char* GetProtocolName() override { return "none"; }
    const char* GetCarrierName() override { return "none"; }

    bool ProcessCarrierSession(KvCarrierSess&, std::string&) override { return true; }
    bool TestSessionConnection(KvSessionConn conn) override {
        calls.push_back("test " + std::to_string(conn.m_hConnection));
        return onTest(conn);
    }
    bool CreateSessionConnection(KvSessionConn& conn) override {
        calls.emplace_back(conn.m_bOpen ? "create (open)" : "create (closed)");
        if (!onCreate()) {
            return false;
        }
        conn.m_hConnection = ++m_created;
        conn.m_bOpen = true;
        return true;
    }
    bool CloseSessionConnection(KvSessionConn& conn) override {
        calls.push_back("close " + std::to_string(conn.m_hConnection));
        return onClose();
    }
    bool SendSessionGroup(std::list<KvMessageFile*> group) override {
        std::string call = "send:";
        for (const std::string& id : IdsOf(group)) {
            call += " " + id;
        }
        calls.push_back(call);
        const bool result = onSend(group);
        group.clear();
        return result;
    }

    /// The operation under test, whose name this class has given to the framework's.
    bool Process(KvCarrierSess& session) {
        return KvSmartAsynProtocolDriverSingleThreaded::ProcessCarrierSession(session);
    }

private:
    std::uint32_t m_created = 0;
};

/// A driver and a session "7"/"mail" without groups.
class KvSmartAsynProtocolDriverSingleThreadedTest : public testing::Test {
protected:
    KvSmartAsynProtocolDriverSingleThreadedTest() {
        m_host.lendTo(m_driver);
        m_session.m_strCacheKey = "7";
        m_session.m_strCarrierName = "mail";
    }

    void AddGroup(const std::string& prefix, int files) {
        m_session.m_vecMsgFileGroups.push_back(m_files.addGroup(prefix, files));
    }
    void OpenConnection(std::uint32_t handle) {
        m_session.m_sessConn.m_bOpen = true;
        m_session.m_sessConn.m_hConnection = handle;
    }

    HostDoubles m_host;
    FileShelf m_files;
    ScriptedSessionDriver m_driver;
    KvCarrierSess m_session;
};

// --- Layout

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, ItsOperationsLieBehindThoseOfTheFramework) {
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverSingleThreaded::TestSessionConnection), 20U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverSingleThreaded::CreateSessionConnection), 21U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverSingleThreaded::CloseSessionConnection), 22U);
    EXPECT_EQ(SlotOf(&KvSmartAsynProtocolDriverSingleThreaded::SendSessionGroup), 23U);
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, ItAddsNoMembers) {
    EXPECT_EQ(sizeof(KvSmartAsynProtocolDriverSingleThreaded), sizeof(KvSmartAsynProtocolDriver));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, TheConnectionRecordIsAFlagAndTwoHandlesOf32Bits) {
    EXPECT_EQ(offsetof(KvSessionConn, m_bOpen), 0U);
    EXPECT_EQ(offsetof(KvSessionConn, m_hConnection), 4U);
    EXPECT_EQ(offsetof(KvSessionConn, m_hContext), 8U);
    EXPECT_EQ(sizeof(KvSessionConn), 12U);
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, ANewSessionHasAZeroedConnectionRecord) {
    m_driver.Setup(&m_host.instanceConf);
    auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
    ASSERT_TRUE(m_driver.SendAMessage(m_files.add("JOB_1"), status));
    const KvSessionConn& conn = m_driver.m_mapCarrierSessions.at("1").m_sessConn;
    EXPECT_FALSE(conn.m_bOpen);
    EXPECT_EQ(conn.m_hConnection, 0U);
    EXPECT_EQ(conn.m_hContext, 0U);
    m_driver.Cleanup();
}

// --- The connection

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, ASessionWithoutGroupsIsDoneWithoutTouchingTheConnection) {
    OpenConnection(5);
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, Strings{});
    EXPECT_TRUE(m_session.m_sessConn.m_bOpen);
    EXPECT_EQ(LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()",
                       "trace: Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, TheFirstProcessingCreatesTheConnection) {
    AddGroup("JOB", 2);
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"create (closed)", "send: JOB_1 JOB_2"}));
    EXPECT_TRUE(m_session.m_sessConn.m_bOpen);
    EXPECT_EQ(m_session.m_sessConn.m_hConnection, 1U);
    EXPECT_EQ(
        LinesOf(m_host.log),
        (Strings{"trace: Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()",
                 "info: Processing session 7/mail with 1 msg files ...", "debug:  >> Creating connection.",
                 "debug:  >> Dispatching message.", "info: Ending session 7/mail with 1 msg files ...",
                 "trace: Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, AnOpenConnectionThatPassesItsTestIsUsed) {
    OpenConnection(5);
    AddGroup("JOB", 1);
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"test 5", "send: JOB_1"}));
    EXPECT_EQ(
        LinesOf(m_host.log),
        (Strings{"trace: Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()",
                 "info: Processing session 7/mail with 1 msg files ...", "debug:  >> Testing connection ...",
                 "debug:  >> Dispatching message.", "info: Ending session 7/mail with 1 msg files ...",
                 "trace: Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest,
       AFailingTestClosesTheConnectionAndCreatesANewOneBeforeDispatching) {
    OpenConnection(5);
    AddGroup("JOB", 1);
    m_driver.onTest = [](KvSessionConn&) { return false; };
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"test 5", "close 5", "create (closed)", "send: JOB_1"}));
    EXPECT_TRUE(m_session.m_sessConn.m_bOpen);
    EXPECT_EQ(m_session.m_sessConn.m_hConnection, 1U);
    EXPECT_EQ(LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()",
                       "info: Processing session 7/mail with 1 msg files ...",
                       "debug:  >> Testing connection ...", "error:  >>>> Testing failed for connection.",
                       "debug:  >> Closing connection ...", "debug:  >> Creating connection.",
                       "debug:  >> Dispatching message.", "info: Ending session 7/mail with 1 msg files ...",
                       "trace: Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, AConnectionThatCannotBeClosedIsReplacedAllTheSame) {
    OpenConnection(5);
    AddGroup("JOB", 1);
    m_driver.onTest = [](KvSessionConn&) { return false; };
    m_driver.onClose = [] { return false; };
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"test 5", "close 5", "create (closed)", "send: JOB_1"}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, ATestThatClosesTheRecordCountsAsFailed) {
    OpenConnection(5);
    AddGroup("JOB", 1);
    m_driver.onTest = [this](KvSessionConn&) {
        m_session.m_sessConn.m_bOpen = false;
        return true;
    };
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"test 5", "close 5", "create (closed)", "send: JOB_1"}));
    EXPECT_EQ(m_host.log.countEqual(" >>>> Testing failed for connection."), 1);
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, ATestChangesOnlyItsOwnCopyOfTheRecord) {
    OpenConnection(5);
    AddGroup("JOB", 1);
    m_driver.onTest = [](KvSessionConn& copy) {
        copy = KvSessionConn{};
        return true;
    };
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"test 5", "send: JOB_1"}));
    EXPECT_EQ(m_session.m_sessConn.m_hConnection, 5U);
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, AFailedCreationAnswersFalseAndDispatchesNothing) {
    AddGroup("JOB", 2);
    m_driver.onCreate = [] { return false; };
    EXPECT_FALSE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, Strings{"create (closed)"});
    EXPECT_EQ(LinesOf(m_host.log),
              (Strings{"trace: Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()",
                       "info: Processing session 7/mail with 1 msg files ...",
                       "debug:  >> Creating connection.", "error:  >>>> Failed to create connection.",
                       "trace: Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with FALSE."}));
    EXPECT_EQ(m_host.queue.count(), 0);
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, AFailedReplacementLeavesTheRecordClosed) {
    OpenConnection(5);
    AddGroup("JOB", 1);
    m_driver.onTest = [](KvSessionConn&) { return false; };
    m_driver.onCreate = [] { return false; };
    EXPECT_FALSE(m_driver.Process(m_session));
    EXPECT_FALSE(m_session.m_sessConn.m_bOpen);
    m_driver.calls.clear();
    m_driver.onCreate = [] { return true; };
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"create (closed)", "send: JOB_1"}));
}

// --- The groups

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, TheGroupsAreSentInTheirOrder) {
    AddGroup("B", 2);
    AddGroup("A", 1);
    AddGroup("C", 3);
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls,
              (Strings{"create (closed)", "send: B_1 B_2", "send: A_1", "send: C_1 C_2 C_3"}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, AFailedGroupIsLoggedAndDoesNotStopTheOthers) {
    AddGroup("A", 1);
    AddGroup("B", 1);
    m_driver.onSend = [](const Files& group) { return IdsOf(group) != Strings{"A_1"}; };
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"create (closed)", "send: A_1", "send: B_1"}));
    EXPECT_EQ(
        LinesOf(m_host.log),
        (Strings{"trace: Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()",
                 "info: Processing session 7/mail with 2 msg files ...", "debug:  >> Creating connection.",
                 "debug:  >> Dispatching message.", "error:  >>>> Failed to dispatch message.",
                 "debug:  >> Dispatching message.", "info: Ending session 7/mail with 2 msg files ...",
                 "trace: Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with TRUE."}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, TheSentGroupsStayInTheSession) {
    AddGroup("A", 2);
    m_session.m_mapGroupIndex["A"] = 0;
    EXPECT_TRUE(m_driver.Process(m_session));
    ASSERT_EQ(m_session.m_vecMsgFileGroups.size(), 1U);
    EXPECT_EQ(IdsOf(m_session.m_vecMsgFileGroups[0]), (Strings{"A_1", "A_2"}));
    EXPECT_EQ(m_session.m_mapGroupIndex.size(), 1U);
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, TheSessionLinesCountGroups) {
    AddGroup("A", 4);
    AddGroup("B", 3);
    m_driver.Process(m_session);
    EXPECT_EQ(m_host.log.texts(kvtest::Severity::Info),
              (Strings{"Processing session 7/mail with 2 msg files ...",
                       "Ending session 7/mail with 2 msg files ..."}));
}

// --- The log

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, TheTraceLinesNameTheBaseClass) {
    AddGroup("A", 1);
    m_driver.onCreate = [] { return false; };
    m_driver.Process(m_session);
    EXPECT_EQ(m_host.log.texts(kvtest::Severity::Trace),
              (Strings{"Entering KvSmartAsynProtocolDriver::ProcessCarrierSession()",
                       "Leaving KvSmartAsynProtocolDriver::ProcessCarrierSession() with FALSE."}));
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, EveryLineNamesTheSourceFile) {
    OpenConnection(5);
    AddGroup("A", 1);
    m_driver.onTest = [](KvSessionConn&) { return false; };
    m_driver.onSend = [](const Files&) { return false; };
    m_driver.Process(m_session);
    EXPECT_EQ(LinesFrom(m_host.log, kSource).size(), 10U);
    EXPECT_EQ(m_host.log.count(), 10);
}

TEST_F(KvSmartAsynProtocolDriverSingleThreadedTest, WithoutALogItWorksAllTheSame) {
    m_driver.m_pLog = nullptr;
    OpenConnection(5);
    AddGroup("A", 1);
    m_driver.onTest = [](KvSessionConn&) { return false; };
    m_driver.onSend = [](const Files&) { return false; };
    EXPECT_TRUE(m_driver.Process(m_session));
    EXPECT_EQ(m_driver.calls, (Strings{"test 5", "close 5", "create (closed)", "send: A_1"}));
    EXPECT_EQ(m_host.log.count(), 0);
}

}  // namespace
