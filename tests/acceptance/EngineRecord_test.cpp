#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>

#include "EngineKit.h"

using namespace kvengine;

namespace {

void ExpectEmpty(const KvEmailDriver::Job& job) {
    EXPECT_EQ(job.strHost, "");
    EXPECT_EQ(job.nPort, -1);
    EXPECT_EQ(job.strFrom, "");
    EXPECT_EQ(job.strTo, "");
    EXPECT_EQ(job.strSubject, "");
    EXPECT_EQ(job.strBody, "");
    EXPECT_EQ(job.strUser, "");
    EXPECT_EQ(job.strPassword, "");
    EXPECT_EQ(job.eSecType, KvEmailDriver::SecNone);
    EXPECT_FALSE(job.bReserved);
    EXPECT_FALSE(job.bStartTLS);
    EXPECT_FALSE(job.bAuthLogin);
    EXPECT_FALSE(job.bAuthPlain);
}

void Fill(KvEmailDriver::Job& job) {
    job.strHost = job.strFrom = job.strTo = job.strSubject = job.strBody = "x";
    job.strUser = job.strPassword = "y";
    job.nPort = 7;
    job.eSecType = KvEmailDriver::SecTLSRequired;
    job.bReserved = job.bStartTLS = job.bAuthLogin = job.bAuthPlain = true;
}

TEST(EngineRecord, IsEmptyAtFirst) {
    const Engine engine;
    ExpectEmpty(engine.m_job);
}

TEST(EngineRecord, ResetEmptiesIt) {
    KvEmailDriver::Job job;
    Fill(job);
    job.Reset();
    ExpectEmpty(job);
}

TEST(EngineRecord, CloseResetsItEvenWithoutAConnection) {
    Engine engine;
    Fill(engine.m_job);
    engine.Close();
    ExpectEmpty(engine.m_job);
}

TEST(EngineRecord, TheSecurityModesHaveFixedValues) {
    EXPECT_EQ(static_cast<int>(KvEmailDriver::SecNone), 0);
    EXPECT_EQ(static_cast<int>(KvEmailDriver::SecTLSOnDemand), 1);
    EXPECT_EQ(static_cast<int>(KvEmailDriver::SecClear), 2);
    EXPECT_EQ(static_cast<int>(KvEmailDriver::SecTLSIfAvailable), 3);
    EXPECT_EQ(static_cast<int>(KvEmailDriver::SecTLSRequired), 4);
}

TEST(EngineRecord, AFreshEngineHasNoConnectionAndTheFileNamesOfItsConstructor) {
    const Engine engine(nullptr, "ca.pem", "cert.pem", "key.pem");
    EXPECT_EQ(engine.m_objSocket.GetSocket(), -1);
    EXPECT_EQ(engine.m_objSocket.GetRemoteAddress(), "");
    EXPECT_EQ(engine.m_objSocket.m_strCAFile, "ca.pem");
    EXPECT_EQ(engine.m_objSocket.m_strCertFile, "cert.pem");
    EXPECT_EQ(engine.m_objSocket.m_strKeyFile, "key.pem");
    EXPECT_EQ(engine.m_objSocket.m_strExtra, "");
    EXPECT_EQ(engine.m_strLastError, "");
}

/// The port of the "smtp" service, or 25 where the system knows none.
int SmtpPort() {
    const servent* service = getservbyname("smtp", "tcp");
    return service == nullptr ? 25 : ntohs(static_cast<std::uint16_t>(service->s_port));
}

struct HostPort {
    const char* name;
    std::string text;
    int portBefore;
    std::string host;
    int port;  ///< 0 for that of the service

    friend void PrintTo(const HostPort& each, std::ostream* out) { *out << each.name; }
};

class EngineHostPort : public testing::TestWithParam<HostPort> {};

TEST_P(EngineHostPort, IsTakenFromTheServerText) {
    Engine engine;
    engine.m_job.strHost = GetParam().text;
    engine.m_job.nPort = GetParam().portBefore;
    engine.SetHostPort(engine.m_job);
    EXPECT_EQ(engine.m_job.strHost, GetParam().host);
    EXPECT_EQ(engine.m_job.nPort, GetParam().port == 0 ? SmtpPort() : GetParam().port);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineHostPort,
    testing::Values(
        HostPort{"HostAndPort", "mx.example.org:587", -1, "mx.example.org", 587},
        HostPort{"BareHost", "mx.example.org", -1, "mx.example.org", 0},
        HostPort{"PortZero", "mx:0", -1, "mx", 0}, HostPort{"NegativePort", "mx:-25", -1, "mx", 0},
        HostPort{"Letters", "mx:smtp", -1, "mx", 0}, HostPort{"NothingBehindTheColon", "mx:", -1, "mx", 0},
        HostPort{"TrailingText", "mx:2525abc", -1, "mx", 2525},
        HostPort{"TheFirstColonCounts", "mx:26:27", -1, "mx", 26},
        HostPort{"LeadingBlank", "mx: 26", -1, "mx", 26}, HostPort{"OctalIsDecimal", "mx:010", -1, "mx", 10},
        HostPort{"HexIsZero", "mx:0x10", -1, "mx", 0},
        HostPort{"BeyondThePorts", "mx:99999", -1, "mx", 99999}, HostPort{"OnlyAPort", ":26", -1, "", 26},
        HostPort{"Empty", "", -1, "", 0}, HostPort{"ZeroIsNotResolved", "mx:26", 0, "mx", 26},
        HostPort{"PortKnown", "mx:26", 2525, "mx:26", 2525},
        HostPort{"PortOneKnown", "mx:26", 1, "mx:26", 1}),
    [](const auto& each) { return each.param.name; });

struct Offer {
    const char* name;
    std::string reply;
    const char* user;
    const char* password;
    bool startTls, login, plain;

    friend void PrintTo(const Offer& each, std::ostream* out) { *out << each.name; }
};

class EngineOffer : public testing::TestWithParam<Offer> {};

TEST_P(EngineOffer, SetsTheFlagsOfTheRecord) {
    Engine engine;
    engine.m_job.strUser = GetParam().user;
    engine.m_job.strPassword = GetParam().password;
    engine.UpdateSupportedMethods(engine.m_job, GetParam().reply);
    EXPECT_EQ(engine.m_job.bStartTLS, GetParam().startTls);
    EXPECT_EQ(engine.m_job.bAuthLogin, GetParam().login);
    EXPECT_EQ(engine.m_job.bAuthPlain, GetParam().plain);
    EXPECT_FALSE(engine.m_job.bReserved);
}

TEST_P(EngineOffer, NeverClearsAFlag) {
    Engine engine;
    engine.m_job.strUser = GetParam().user;
    engine.m_job.strPassword = GetParam().password;
    engine.m_job.bStartTLS = engine.m_job.bAuthLogin = engine.m_job.bAuthPlain = true;
    engine.UpdateSupportedMethods(engine.m_job, GetParam().reply);
    EXPECT_TRUE(engine.m_job.bStartTLS);
    EXPECT_TRUE(engine.m_job.bAuthLogin);
    EXPECT_TRUE(engine.m_job.bAuthPlain);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineOffer,
    testing::Values(
        Offer{"Everything", "250-mx\r\n250-STARTTLS\r\n250 AUTH LOGIN PLAIN\r\n", "ann", "x", true, true,
              true},
        Offer{"NoPassword", "250-mx\r\n250-STARTTLS\r\n250 AUTH LOGIN PLAIN\r\n", "ann", "", true, false,
              false},
        Offer{"NoUser", "250-mx\r\n250-STARTTLS\r\n250 AUTH LOGIN PLAIN\r\n", "", "x", true, false, false},
        Offer{"LoginOnly", "250-mx\r\n250 AUTH LOGIN\r\n", "ann", "x", false, true, false},
        Offer{"PlainOnly", "250-mx\r\n250 AUTH PLAIN\r\n", "ann", "x", false, false, true},
        Offer{"OtherMechanisms", "250-mx\r\n250 AUTH CRAM-MD5\r\n", "ann", "x", false, false, false},
        Offer{"OldForm", "250-mx\r\n250 AUTH=LOGIN PLAIN\r\n", "ann", "x", false, true, true},
        Offer{"MechanismOnAnotherLine", "250-AUTH\r\n250-LOGIN\r\n250 PLAIN\r\n", "ann", "x", false, false,
              false},
        Offer{"TwoAuthLines", "250-AUTH LOGIN\r\n250 AUTH PLAIN\r\n", "ann", "x", false, true, true},
        Offer{"StartTlsHidesTheRestOfItsLine", "250 STARTTLS AUTH LOGIN PLAIN\r\n", "ann", "x", true, false,
              false},
        Offer{"LowerCaseIsUnknown", "250-starttls\r\n250 auth login plain\r\n", "ann", "x", false, false,
              false},
        Offer{"InsideOtherWords", "250-XSTARTTLSX\r\n250 XAUTHPLAINLOGIN\r\n", "ann", "x", true, true, true},
        Offer{"BareLineFeeds", "250-STARTTLS\n250-AUTH LOGIN\n250 PLAIN\n", "ann", "x", true, true, false},
        Offer{"NoLineEndAtAll", "250 AUTH PLAIN", "ann", "x", false, false, true},
        Offer{"FirstLineToo", "250 AUTH PLAIN.example.org\r\n", "ann", "x", false, false, true},
        Offer{"NothingOffered", "250 mx\r\n", "ann", "x", false, false, false},
        Offer{"EmptyReply", "", "ann", "x", false, false, false}),
    [](const auto& each) { return each.param.name; });

TEST(EngineEhlo, TheRepliesOfBothFormsAreReturned) {
    ScriptedSmtpServer server;
    server.on("EHLO").occurrence(1).reply("250-one\r\n250 two\r\n");
    Engine engine;
    engine.greet(server);
    EXPECT_EQ(engine.SendEHLOThenHELO(), "250-one\r\n250 two\r\n");
    server.on("EHLO").occurrence(2).reply("500 no\r\n");
    server.on("HELO").reply("250 three\r\n");
    EXPECT_EQ(engine.SendEHLOThenHELO(), "250 three\r\n");
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + kEhlo + kHelo);
}

TEST(EngineEhlo, AMutilatedRefusalIsFollowedByHeloToo) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("500");
    server.on("HELO").reply("250 mx\r\n");
    Engine engine;
    engine.greet(server);
    EXPECT_EQ(engine.SendEHLOThenHELO(), "250 mx\r\n");
}

TEST(EngineEhlo, ALostConnectionIsTriedOnceMoreAndThenPassedOn) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply(Reply().thenClose());
    Engine engine;
    engine.greet(server);
    EXPECT_EQ(OutcomeOf([&] { engine.SendEHLOThenHELO(); }).kind, "io");
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(EngineEhlo, TheFlagsComeFromTheReplyToHeloWhereThatWasNeeded) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("500 no\r\n");
    server.on("HELO").reply("250-STARTTLS\r\n250 AUTH PLAIN\r\n");
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    EXPECT_TRUE(engine.m_job.bStartTLS);
}

}  // namespace
