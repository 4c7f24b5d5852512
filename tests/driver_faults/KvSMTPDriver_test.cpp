#include "KvSmtpDriver.h"

#include <gtest/gtest.h>

#include "KvSmtpException.h"
#include "KvioException.h"
#include "driver/SmtpDoubles.h"
#include "driver_faults/EngineCalls.h"

namespace {

using kvtest::EngineCall;
using kvtest::EngineOf;
using kvtest::FileShelf;
using kvtest::HostDoubles;
using kvtest::InterceptedCall;
using kvtest::kSmtpSource;
using kvtest::KvConn;
using kvtest::LinesFrom;
using kvtest::MailThrough;
using kvtest::ScriptedSmtpServer;
using kvtest::Strings;

/// A driver with one connection and nothing in its log.
class KvSMTPDriverFaultTest : public testing::Test {
protected:
    KvSMTPDriverFaultTest() {
        m_host.lendTo(m_driver);
        m_driver.CreateConnection(m_conn, m_files.add(MailThrough(m_server)));
        m_host.log.clear();
    }
    ~KvSMTPDriverFaultTest() override { m_driver.CloseConnection(m_conn); }

    ScriptedSmtpServer m_server;
    HostDoubles m_host;
    FileShelf m_files;
    KvSMTPDriver m_driver;
    KvConn m_conn;
};

TEST_F(KvSMTPDriverFaultTest, AnSmtpErrorOfTheTestIsLoggedWithItsTextAndFailsIt) {
    const InterceptedCall testing(EngineCall::IsAlive, [] { throw KvSmtpException(421, "Closing down"); });
    EXPECT_FALSE(m_driver.TestConnection(m_conn));
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::TestConnection", "error: Error: Closing down",
                       "trace: Leaving KvSMTPDriver::TestConnection with return value = 'false'"}));
}

TEST_F(KvSMTPDriverFaultTest, AnotherErrorOfTheTestIsAnUnknownErrorWithACapitalOAndFailsIt) {
    const InterceptedCall testing(EngineCall::IsAlive, [] { throw KvioException("mx1:25", "Lost"); });
    EXPECT_FALSE(m_driver.TestConnection(m_conn));
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::TestConnection", "error: Unknown error Occurred.",
                       "trace: Leaving KvSMTPDriver::TestConnection with return value = 'false'"}));
}

TEST_F(KvSMTPDriverFaultTest, AnSmtpErrorOfCloseIsLoggedWithItsTextAndTheEngineStays) {
    {
        const InterceptedCall closing(EngineCall::Close, [] { throw KvSmtpException(421, "Closing down"); });
        EXPECT_FALSE(m_driver.CloseConnection(m_conn));
    }
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::CloseConnection", "error: Error: Closing down",
                       "trace: Leaving KvSMTPDriver::CloseConnection with return value = 'false'"}));
    EXPECT_TRUE(EngineOf(m_conn).IsAlive());
}

TEST_F(KvSMTPDriverFaultTest, AnotherErrorOfCloseIsAnUnknownErrorWithASmallOAndTheEngineStays) {
    {
        const InterceptedCall closing(EngineCall::Close, [] { throw KvioException("mx1:25", "Lost"); });
        EXPECT_FALSE(m_driver.CloseConnection(m_conn));
    }
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::CloseConnection", "error: Unknown error occurred.",
                       "trace: Leaving KvSMTPDriver::CloseConnection with return value = 'false'"}));
    EXPECT_TRUE(EngineOf(m_conn).IsAlive());
}

}  // namespace
