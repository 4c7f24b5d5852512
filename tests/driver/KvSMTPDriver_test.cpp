#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Descriptors.h"
#include "KvSmtpDriver.h"
#include "TestPorts.h"
#include "driver/SmtpDoubles.h"

namespace {

using kvtest::ConnectionEnd;
using kvtest::EngineOf;
using kvtest::FileShelf;
using kvtest::HostDoubles;
using kvtest::kSmtpSource;
using kvtest::KvConn;
using kvtest::LinesFrom;
using kvtest::MailThrough;
using kvtest::MessageBuilder;
using kvtest::NotesFrom;
using kvtest::RefusingPort;
using kvtest::ScriptedSmtpServer;
using kvtest::SmtpServerOptions;
using kvtest::Strings;
using kvtest::TestCertificates;
using kvtest::WithAuth;
using kvtest::WithStartTlsAndAuth;
namespace step = kvtest::step;

constexpr const char* MustStartTls = "530 5.7.0 Must issue a STARTTLS command first\r\n";

/// A driver with a host, and a connection record that is closed at the end.
class KvSMTPDriverTest : public testing::Test {
protected:
    KvSMTPDriverTest() { m_host.lendTo(m_driver); }
    ~KvSMTPDriverTest() override {
        if (m_conn.m_pConnection != nullptr) {
            m_driver.CloseConnection(m_conn);
        }
    }

    bool Create(const MessageBuilder& builder) {
        return m_driver.CreateConnection(m_conn, m_files.add(builder));
    }
    bool Close() {
        const bool result = m_driver.CloseConnection(m_conn);
        m_conn.m_pConnection = nullptr;
        return result;
    }
    void SendMail() { EngineOf(m_conn).SendMail("ann@example.org", {"bob@example.org"}, "", "Text", {}); }

    HostDoubles m_host;
    FileShelf m_files;
    KvSMTPDriver m_driver;
    KvConn m_conn;
};

// Identity

TEST_F(KvSMTPDriverTest, ItsNamesAreFixed) {
    EXPECT_STREQ(m_driver.GetName(), "SMTP");
    EXPECT_STREQ(m_driver.GetVersion(), "1.0");
    EXPECT_STREQ(m_driver.GetProtocolName(), "Simple Message Transfer Protocol (SMTP)");
    EXPECT_STREQ(m_driver.GetCarrierName(), "");
}

// The cache key

TEST_F(KvSMTPDriverTest, TheCacheKeyNamesCarrierServerSecurityUserAndPassword) {
    auto* const file = m_files.add(MessageBuilder()
                                       .carrier(7, "mail")
                                       .server("mx1:25")
                                       .security(SMTP_SECURITY_IF_AVAILABLE)
                                       .account("u", "p"));
    EXPECT_EQ(m_driver.GetCacheKey(file), "{7}-{mx1:25}-{2}-{u}-{p}");
}

TEST_F(KvSMTPDriverTest, TheCacheKeyShowsAnUnknownSecuritySettingAsItsNumber) {
    auto* const file =
        m_files.add(MessageBuilder().server("mx1").security(static_cast<SmtpSecurityType>(-5)));
    EXPECT_EQ(m_driver.GetCacheKey(file), "{1}-{mx1}-{-5}-{}-{}");
}

TEST_F(KvSMTPDriverTest, TheCacheKeyOfNoFileIsEmpty) {
    EXPECT_EQ(m_driver.GetCacheKey(nullptr), "");
}

TEST_F(KvSMTPDriverTest, EachOfTheFiveSettingsSeparatesTheKeys) {
    const MessageBuilder base = MessageBuilder().server("mx1").account("u", "p");
    const auto keyOf = [this](MessageBuilder builder) { return m_driver.GetCacheKey(m_files.add(builder)); };
    const std::string key = keyOf(base);
    EXPECT_NE(keyOf(MessageBuilder(base).carrier(2, "mail")), key);
    EXPECT_NE(keyOf(MessageBuilder(base).server("mx2")), key);
    EXPECT_NE(keyOf(MessageBuilder(base).server("mx1:25")), key) << "the same server, under another name";
    EXPECT_NE(keyOf(MessageBuilder(base).security(SMTP_SECURITY_REQUIRED)), key);
    EXPECT_NE(keyOf(MessageBuilder(base).account("v", "p")), key);
    EXPECT_NE(keyOf(MessageBuilder(base).account("u", "q")), key);
    EXPECT_EQ(keyOf(MessageBuilder(base).recipient("eve@example.org").from("zoe@example.org")), key);
}

TEST_F(KvSMTPDriverTest, TheCacheKeyIsTraced) {
    m_driver.GetCacheKey(m_files.add(MessageBuilder().server("mx1").account("u", "p")));
    EXPECT_EQ(
        LinesFrom(m_host.log, kSmtpSource),
        (Strings{"trace: Entering KvSMTPDriver::GetCacheKey",
                 "trace: Leaving KvSMTPDriver::GetCacheKey with return value = '{1}-{mx1}-{1}-{u}-{p}'"}));
}

// The security setting

TEST_F(KvSMTPDriverTest, TheHostsSecuritySettingsMapToTheEnginesModes) {
    EXPECT_EQ(ConvertToEmailDriverSecurity(SMTP_SECURITY_ON_DEMAND), KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(ConvertToEmailDriverSecurity(SMTP_SECURITY_CLEAR), KvEmailDriver::SecClear);
    EXPECT_EQ(ConvertToEmailDriverSecurity(SMTP_SECURITY_IF_AVAILABLE), KvEmailDriver::SecTLSIfAvailable);
    EXPECT_EQ(ConvertToEmailDriverSecurity(SMTP_SECURITY_REQUIRED), KvEmailDriver::SecTLSRequired);
    for (const int unknown : {-1, 4, 5, 1000}) {
        EXPECT_EQ(ConvertToEmailDriverSecurity(static_cast<SmtpSecurityType>(unknown)),
                  KvEmailDriver::SecNone)
            << unknown;
    }
}

TEST_F(KvSMTPDriverTest, AnUnknownSecuritySettingNeverUsesStartTls) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    server.on("MAIL").reply(MustStartTls);
    ASSERT_TRUE(Create(MailThrough(server)
                           .security(static_cast<SmtpSecurityType>(5))
                           .caFile(TestCertificates::Shared().caFile())));
    EXPECT_THROW(SendMail(), KvSmtpException);
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nMAIL FROM: <ann@example.org>\r\n");
}

// CreateConnection

TEST_F(KvSMTPDriverTest, AConnectionIsCreatedFromTheFilesServerAndAccount) {
    ScriptedSmtpServer server(WithAuth("PLAIN"));
    EXPECT_TRUE(Create(MailThrough(server).account("ann", "secret")));
    EXPECT_NE(m_conn.m_pConnection, nullptr);
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n");
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::CreateConnection",
                       "trace: Leaving KvSMTPDriver::CreateConnection with return value = 'true'"}));
}

TEST_F(KvSMTPDriverTest, TheEngineLogsToTheDriversLog) {
    ScriptedSmtpServer server;
    ASSERT_TRUE(Create(MailThrough(server)));
    EXPECT_TRUE(m_host.log.has(kvtest::Severity::Trace, "<= EHLO [127.0.0.1]<CR><LF>"));
}

TEST_F(KvSMTPDriverTest, TheFilesCertificatesAreUsedForStartTls) {
    const TestCertificates& certificates = TestCertificates::Shared();
    SmtpServerOptions options = WithStartTlsAndAuth("PLAIN");
    options.tls = certificates.tlsDemandingClientCertificate();
    ScriptedSmtpServer server(options);
    EXPECT_TRUE(Create(MailThrough(server)
                           .security(SMTP_SECURITY_REQUIRED)
                           .caFile(certificates.caFile())
                           .clientCertificate(certificates.client().certificate, certificates.client().key)));
    EXPECT_EQ(server.connection().clientCertificate, "/CN=test client");
}

TEST_F(KvSMTPDriverTest, NoFileGivesNoConnectionAndNothingButTheBracketIsLogged) {
    EXPECT_FALSE(m_driver.CreateConnection(m_conn, nullptr));
    EXPECT_EQ(m_conn.m_pConnection, nullptr);
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::CreateConnection",
                       "trace: Leaving KvSMTPDriver::CreateConnection with return value = 'false'"}));
}

TEST_F(KvSMTPDriverTest, ARefusedConnectionIsLoggedAsTheWholeIoError) {
    const RefusingPort port;
    EXPECT_FALSE(Create(MessageBuilder().server(port.address())));
    EXPECT_EQ(m_conn.m_pConnection, nullptr);
    EXPECT_EQ(NotesFrom(m_host.log, kSmtpSource),
              (Strings{"error: Error: Exception raised! IO path[" + port.address() +
                       "] File[../src/KvioClientSocket] Line[149] Msg[Socket Connecting Failed] SysMsg[]"}));
}

TEST_F(KvSMTPDriverTest, ARefusedAuthIsLoggedWithTheServersText) {
    ScriptedSmtpServer server(WithAuth("PLAIN"));
    EXPECT_FALSE(Create(MailThrough(server).account("ann", "wrong")));
    EXPECT_EQ(m_conn.m_pConnection, nullptr);
    EXPECT_EQ(NotesFrom(m_host.log, kSmtpSource), Strings{"error: Error: 5.7.8 authentication failed\r\n"});
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST_F(KvSMTPDriverTest, MissingTlsIsLoggedWithTheEnginesText) {
    ScriptedSmtpServer server;
    EXPECT_FALSE(Create(MailThrough(server).security(SMTP_SECURITY_REQUIRED)));
    EXPECT_EQ(NotesFrom(m_host.log, kSmtpSource), Strings{"error: Error: TLS Required but not supported"});
}

TEST_F(KvSMTPDriverTest, AnyOtherFailureIsAnUnknownErrorWithACapitalO) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply("421");  // too short for a reply
    EXPECT_FALSE(Create(MailThrough(server)));
    EXPECT_EQ(NotesFrom(m_host.log, kSmtpSource), Strings{"error: Unknown error Occurred."});
}

TEST_F(KvSMTPDriverTest, AFailedConnectionIsClosedAlsoWhereTheEngineHadLeftItOpen) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply("421 4.3.2 busy\r\n");
    EXPECT_FALSE(Create(MailThrough(server)));
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().end, ConnectionEnd::ClientClosed);
}

// TestConnection

TEST_F(KvSMTPDriverTest, AConnectionWhoseServerAnswersRsetPassesItsTest) {
    ScriptedSmtpServer server;
    ASSERT_TRUE(Create(MailThrough(server)));
    m_host.log.clear();
    EXPECT_TRUE(m_driver.TestConnection(m_conn));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nRSET\r\n");
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::TestConnection",
                       "trace: Leaving KvSMTPDriver::TestConnection with return value = 'true'"}));
}

TEST_F(KvSMTPDriverTest, ALostOrRefusedConnectionFailsItsTestWithoutAnErrorLine) {
    ScriptedSmtpServer server;
    server.on("RSET").reply("421 4.3.2 going down\r\n");
    ASSERT_TRUE(Create(MailThrough(server)));
    m_host.log.clear();
    EXPECT_FALSE(m_driver.TestConnection(m_conn));
    server.closeConnections();
    EXPECT_FALSE(m_driver.TestConnection(m_conn));
    EXPECT_EQ(NotesFrom(m_host.log, kSmtpSource), Strings{});
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource).at(1),
              "trace: Leaving KvSMTPDriver::TestConnection with return value = 'false'");
}

// CloseConnection

TEST_F(KvSMTPDriverTest, AConnectionIsClosedWithoutQuit) {
    ScriptedSmtpServer server;
    ASSERT_TRUE(Create(MailThrough(server)));
    m_host.log.clear();
    EXPECT_TRUE(Close());
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::CloseConnection",
                       "trace: Leaving KvSMTPDriver::CloseConnection with return value = 'true'"}));
}

TEST_F(KvSMTPDriverTest, AConnectionThatTheServerHasLeftIsClosedAllTheSame) {
    ScriptedSmtpServer server;
    ASSERT_TRUE(Create(MailThrough(server)));
    server.resetConnections();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_TRUE(Close());
}

TEST_F(KvSMTPDriverTest, AFailedConnectionLeavesNoDescriptorBehind) {
    const RefusingPort port;
    const int before = kvtest::OpenDescriptorCount();
    EXPECT_FALSE(Create(MessageBuilder().server(port.address())));
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before);
}

// The delegate

TEST_F(KvSMTPDriverTest, ItsDelegateIsANewDispatcher) {
    const std::unique_ptr<KvSmartProtocolDriverDelegateIface> one(m_driver.GetProtocolDriverDelegate());
    EXPECT_NE(dynamic_cast<KvSMTPMsgDispatcher*>(one.get()), nullptr);
    EXPECT_EQ(LinesFrom(m_host.log, kSmtpSource),
              (Strings{"trace: Entering KvSMTPDriver::GetProtocolDriverDelegate",
                       "trace: Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = 'SMTP Msg "
                       "Dispatcher'"}));
    const std::unique_ptr<KvSmartProtocolDriverDelegateIface> other(m_driver.GetProtocolDriverDelegate());
    EXPECT_NE(one, other);
}

// Without a log

TEST_F(KvSMTPDriverTest, WithoutALogEveryOperationWorks) {
    m_driver.m_pLog = nullptr;
    ScriptedSmtpServer server;
    EXPECT_EQ(m_driver.GetCacheKey(m_files.add(MessageBuilder().server("mx1"))), "{1}-{mx1}-{1}-{}-{}");
    ASSERT_TRUE(Create(MailThrough(server)));
    EXPECT_TRUE(m_driver.TestConnection(m_conn));
    EXPECT_TRUE(Close());
    const RefusingPort port;
    EXPECT_FALSE(Create(MessageBuilder().server(port.address())));
    EXPECT_EQ(m_host.log.count(), 0);
}

}  // namespace
