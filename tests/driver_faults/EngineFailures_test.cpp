#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "driver/SmtpDoubles.h"
#include "driver_faults/Interceptions.h"

// Failures of the engine that no server can provoke, and what the driver and its dispatcher make of them.

namespace {

using kvtest::EngineCallsReplaced;
using kvtest::FileShelf;
using kvtest::HostDoubles;
using kvtest::kDispatcherSource;
using kvtest::kSmtpSource;
using kvtest::KvConn;
using kvtest::MailThrough;
using kvtest::NotesFrom;
using kvtest::ReturnsOf;
using kvtest::ScriptedSmtpServer;
using kvtest::Strings;
using kvtest::TimedOutReceive;

class HandedDispatcher : public KvSMTPMsgDispatcher {
public:
    using KvSMTPMsgDispatcher::m_pConn;
    using KvSMTPMsgDispatcher::m_pDriver;
    using KvSMTPMsgDispatcher::m_pLog;

    ~HandedDispatcher() override { m_pConn = nullptr; }
};

/// A driver with a connection to a scripted server; what was logged before is forgotten.
class EngineFailureTest : public testing::Test {
protected:
    EngineFailureTest() {
        m_host.lendTo(m_driver);
        EXPECT_TRUE(m_driver.CreateConnection(m_conn, m_files.add(MailThrough(m_server))));
        m_host.log.clear();
    }
    ~EngineFailureTest() override {
        EXPECT_TRUE(m_driver.CloseConnection(m_conn));  // the engine is still there
        EXPECT_TRUE(m_server.waitForOpenConnections(0));
    }

    Strings Notes() { return NotesFrom(m_host.log, kSmtpSource); }

    ScriptedSmtpServer m_server;
    HostDoubles m_host;
    FileShelf m_files;
    KvSMTPDriver m_driver;
    KvConn m_conn;
};

TEST_F(EngineFailureTest, AnSmtpErrorWhileClosingIsLoggedWithItsTextAndTheEngineIsKept) {
    const EngineCallsReplaced calls([] { throw KvSmtpException(421, "going down"); });
    EXPECT_FALSE(m_driver.CloseConnection(m_conn));
    EXPECT_EQ(Notes(), Strings{"error: Error: going down"});
}

TEST_F(EngineFailureTest, AnyOtherFailureWhileClosingIsAnUnknownErrorWithASmallOAndTheEngineIsKept) {
    const EngineCallsReplaced calls([] { throw std::runtime_error("refused"); });
    EXPECT_FALSE(m_driver.CloseConnection(m_conn));
    EXPECT_EQ(Notes(), Strings{"error: Unknown error occurred."});
}

TEST_F(EngineFailureTest, AnSmtpErrorOfTheProbeIsLoggedWithItsTextAndFailsTheTest) {
    const EngineCallsReplaced calls([] { throw KvSmtpException(421, "going down"); });
    EXPECT_FALSE(m_driver.TestConnection(m_conn));
    EXPECT_EQ(Notes(), Strings{"error: Error: going down"});
}

TEST_F(EngineFailureTest, AnyOtherFailureOfTheProbeIsAnUnknownErrorWithACapitalO) {
    const EngineCallsReplaced calls([] { throw std::runtime_error("refused"); });
    EXPECT_FALSE(m_driver.TestConnection(m_conn));
    EXPECT_EQ(Notes(), Strings{"error: Unknown error Occurred."});
}

TEST_F(EngineFailureTest, ATimeOutOfTheSocketDuringDataIsLoggedInFullAndItsMessageIsTheReason) {
    HandedDispatcher dispatcher;
    dispatcher.m_pDriver = &m_driver;
    dispatcher.m_pConn = &m_conn;
    dispatcher.m_pLog = &m_host.log;
    {
        const TimedOutReceive socket(2);  // the replies to MAIL and RCPT arrive
        EXPECT_FALSE(dispatcher.SendMessage(m_files.add(MailThrough(m_server).id("m_1").jobId("job-1"))));
    }
    EXPECT_TRUE(m_server.waitForCommand("DATA"));
    EXPECT_EQ(ReturnsOf(m_host.queue), Strings{"m_1:2 Socket Read Error"});
    EXPECT_EQ(NotesFrom(m_host.log, kDispatcherSource),
              (Strings{"error: Error: Exception raised! IO path[" + m_server.address() +
                           "] File[../src/KvioSocket] Line[209] Msg[Socket Read Error] SysMsg[Connection "
                           "timed out]",
                       "info: Creating REPORT entry FAILED for job: job-1 with FAILURE REASON: 'Socket Read "
                       "Error'."}));
}

}  // namespace
