#include <gtest/gtest.h>

#include "Descriptors.h"
#include "EngineKit.h"
#include "TestPorts.h"

using namespace kvengine;
using Sec = KvEmailDriver::SmtpSecType;

namespace {

struct Conversation {
    const char* name;
    Sec mode;
    bool tlsOffered;
    bool starttlsRefused;
    bool credentials;
    std::string clientBytes;

    friend void PrintTo(const Conversation& each, std::ostream* out) { *out << each.name; }
};

class EngineConversation : public testing::TestWithParam<Conversation> {};

TEST_P(EngineConversation, IsHeldToTheByte) {
    const Conversation& wanted = GetParam();
    SmtpServerOptions options = WithTls({{"ann", "secret"}});
    if (!wanted.tlsOffered) {
        options.tls.reset();
    }
    ScriptedSmtpServer server(options);
    if (wanted.starttlsRefused) {
        server.on("STARTTLS").reply("454 4.7.0 not now\r\n");
    }
    TlsEngine engine;
    engine.Connect(server.address(), wanted.credentials ? "ann" : "", wanted.credentials ? "secret" : "",
                   wanted.mode);
    EXPECT_EQ(server.connection().clientBytes(), wanted.clientBytes) << server.toText();
    EXPECT_EQ(server.openConnections(), 1);
    EXPECT_TRUE(engine.IsAlive());
}

const std::string kStartTls = kEhlo + "STARTTLS\r\n" + kEhlo;

INSTANTIATE_TEST_SUITE_P(
    All, EngineConversation,
    testing::Values(
        Conversation{"None", KvEmailDriver::SecNone, true, false, true, kEhlo + kAuthPlain},
        Conversation{"OnDemand", KvEmailDriver::SecTLSOnDemand, true, false, true, kEhlo + kAuthPlain},
        Conversation{"Clear", KvEmailDriver::SecClear, true, false, true, kEhlo + kAuthPlain},
        Conversation{"IfAvailable", KvEmailDriver::SecTLSIfAvailable, true, false, true,
                     kStartTls + kAuthPlain},
        Conversation{"Required", KvEmailDriver::SecTLSRequired, true, false, true, kStartTls + kAuthPlain},
        Conversation{"NoneAnonymous", KvEmailDriver::SecNone, true, false, false, kEhlo},
        Conversation{"OnDemandAnonymous", KvEmailDriver::SecTLSOnDemand, true, false, false, kEhlo},
        Conversation{"ClearAnonymous", KvEmailDriver::SecClear, true, false, false, kEhlo},
        Conversation{"IfAvailableAnonymous", KvEmailDriver::SecTLSIfAvailable, true, false, false, kStartTls},
        Conversation{"RequiredAnonymous", KvEmailDriver::SecTLSRequired, true, false, false, kStartTls},
        Conversation{"IfAvailableNotOffered", KvEmailDriver::SecTLSIfAvailable, false, false, true,
                     kEhlo + kAuthPlain},
        Conversation{"IfAvailableRefused", KvEmailDriver::SecTLSIfAvailable, true, true, true,
                     kEhlo + "STARTTLS\r\n" + kAuthPlain}),
    [](const auto& each) { return each.param.name; });

TEST(EngineConnect, TheSessionRecordHoldsTheAccountAndTheServer) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    TlsEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSIfAvailable);
    EXPECT_EQ(engine.m_job.strHost, "127.0.0.1");
    EXPECT_EQ(engine.m_job.nPort, server.port());
    EXPECT_EQ(engine.m_job.strUser, "ann");
    EXPECT_EQ(engine.m_job.strPassword, "secret");
    EXPECT_EQ(engine.m_job.eSecType, KvEmailDriver::SecTLSIfAvailable);
    EXPECT_TRUE(engine.m_job.bStartTLS);
    EXPECT_TRUE(engine.m_job.bAuthLogin);
    EXPECT_TRUE(engine.m_job.bAuthPlain);
    EXPECT_FALSE(engine.m_job.bReserved);
    EXPECT_TRUE(server.connection().tls);
}

struct BadGreeting {
    const char* name;
    std::string reply;
    Outcome outcome;

    friend void PrintTo(const BadGreeting& each, std::ostream* out) { *out << each.name; }
};

class EngineGreeting : public testing::TestWithParam<BadGreeting> {};

TEST_P(EngineGreeting, IsJudgedByItsFirstCharacter) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(GetParam().reply);
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.Connect(server.address(), "", "", KvEmailDriver::SecNone); }),
              GetParam().outcome);
    const bool fine = GetParam().outcome == Fine();
    EXPECT_EQ(server.connection().clientBytes(), fine ? kEhlo : "");
    // Whatever fails before authentication leaves the socket open.
    EXPECT_EQ(server.openConnections(), 1);
    EXPECT_EQ(engine.m_job.strHost, "127.0.0.1");
    EXPECT_EQ(engine.m_job.nPort, server.port());
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineGreeting,
    testing::Values(BadGreeting{"Busy", "421 4.3.2 try later\r\n", Smtp(421, "4.3.2 try later\r\n")},
                    BadGreeting{"NoService", "554 no SMTP here\r\n", Smtp(554, "no SMTP here\r\n")},
                    BadGreeting{"MultiLine", "554-no\r\n554 service\r\n", Smtp(554, "no\r\n554 service\r\n")},
                    BadGreeting{"ThreeCharacters", "554", OutOfRange()},
                    BadGreeting{"FourCharacters", "554 ", Smtp(554, "")},
                    BadGreeting{"ThreeHundred", "354 strange\r\n", Fine()},
                    BadGreeting{"NoReplyCodeAtAll", "hello there\r\n", Fine()},
                    BadGreeting{"ABlankBeforeTheCode", " 554 no\r\n", Fine()}),
    [](const auto& each) { return each.param.name; });

TEST(EngineConnect, AServerThatLeavesBeforeTheGreetingIsAClosedSocket) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply().thenClose());
    Engine engine;
    try {
        engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
        FAIL() << "connected";
    } catch (KvioException& error) {
        EXPECT_EQ(error.GetMsg(), "Socket is closed");
        EXPECT_EQ(error.GetFile(), "../src/KvioSocket");
        EXPECT_EQ(error.GetLine(), 215);
        EXPECT_EQ(error.GetPath(), server.address());
    }
}

TEST(EngineConnect, ARefusedConnectionIsTheSocketsFailure) {
    const kvtest::RefusingPort port;
    Engine engine;
    try {
        engine.Connect(port.address(), "ann", "secret", KvEmailDriver::SecTLSRequired);
        FAIL() << "connected";
    } catch (KvioException& error) {
        EXPECT_EQ(error.GetMsg(), "Socket Connecting Failed");
        EXPECT_EQ(error.GetFile(), "../src/KvioClientSocket");
        EXPECT_EQ(error.GetLine(), 149);
        EXPECT_EQ(error.GetPath(), port.address());
        EXPECT_EQ(error.GetSysMsg(), "");
    }
    EXPECT_EQ(engine.m_job.strUser, "ann");
    EXPECT_EQ(engine.m_job.nPort, port.port());
}

TEST(EngineConnect, AnUnknownHostIsTheSocketsFailure) {
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.Connect("no..host:25", "", "", KvEmailDriver::SecNone); }),
              Io("Socket Unknown Remote Host"));
}

TEST(EngineConnect, AFailedConnectLeavesNoDescriptorBehindItsEngine) {
    const int before = kvtest::OpenDescriptorCount();
    {
        const kvtest::RefusingPort port;
        Engine engine;
        OutcomeOf([&] { engine.Connect(port.address(), "", "", KvEmailDriver::SecNone); });
    }
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before);
}

TEST(EngineConnect, ARefusedEhloIsFollowedByHelo) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("502 5.5.1 what\r\n");
    Engine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + kHelo);
}

TEST(EngineConnect, ARefusedHeloEndsItWithTheSocketOpen) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("502 5.5.1 what\r\n");
    server.on("HELO").reply("550 5.7.1 not you\r\n");
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired); }),
              Smtp(550, "5.7.1 not you\r\n"));
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + kHelo);
    EXPECT_TRUE(engine.IsAlive());
}

TEST(EngineConnect, RequiredTlsThatIsNotOfferedClosesTheSocketBeforeAnyAuth) {
    ScriptedSmtpServer server(Offering({"AUTH PLAIN LOGIN"}));
    TlsEngine engine;
    EXPECT_EQ(
        OutcomeOf([&] { engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSRequired); }),
        Smtp(815, "TLS Required but not supported"));
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), kEhlo);
    EXPECT_EQ(server.connection().end, kvtest::ConnectionEnd::ClientClosed);
}

TEST(EngineConnect, RequiredTlsThatIsRefusedClosesTheSocketBeforeAnyAuth) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on("STARTTLS").reply("454 4.7.0 not now\r\n");
    TlsEngine engine;
    EXPECT_EQ(
        OutcomeOf([&] { engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSRequired); }),
        Smtp(815, "TLS Required but not supported"));
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "STARTTLS\r\n");
}

TEST(EngineConnect, AFailedHandshakeClosesTheSocket) {
    ScriptedSmtpServer server(WithTls());
    server.on("STARTTLS").reply(Reply("220 go\r\n").thenStartTlsGarbage());
    TlsEngine engine;
    const Outcome outcome =
        OutcomeOf([&] { engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSIfAvailable); });
    EXPECT_EQ(outcome.kind, "io");
    EXPECT_TRUE(outcome.text.starts_with("SSL: SSL Connect Failed. Details: ")) << outcome.text;
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(EngineConnect, TheJobKeepsItsValuesAfterAFailure) {
    ScriptedSmtpServer server(Offering({"STARTTLS", "AUTH PLAIN"}));
    server.on(step::AuthPlain).reply("535 5.7.8 no\r\n");
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecClear); }),
              Smtp(535, "5.7.8 no\r\n"));
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(engine.m_job.strHost, "127.0.0.1");
    EXPECT_EQ(engine.m_job.nPort, server.port());
    EXPECT_EQ(engine.m_job.strUser, "ann");
    EXPECT_EQ(engine.m_job.strPassword, "secret");
    EXPECT_EQ(engine.m_job.eSecType, KvEmailDriver::SecClear);
    EXPECT_TRUE(engine.m_job.bStartTLS);
    EXPECT_TRUE(engine.m_job.bAuthPlain);
    EXPECT_FALSE(engine.m_job.bAuthLogin);
}

struct AuthRefusal {
    const char* name;
    Sec mode;
    std::string reply;
    Outcome outcome;

    friend void PrintTo(const AuthRefusal& each, std::ostream* out) { *out << each.name; }
};

class EngineAuthRefusal : public testing::TestWithParam<AuthRefusal> {};

TEST_P(EngineAuthRefusal, ClosesTheSocketAndIsPassedOn) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on("AUTH").reply(GetParam().reply);
    TlsEngine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.Connect(server.address(), "ann", "secret", GetParam().mode); }),
              GetParam().outcome);
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.commandCount("AUTH"), 1);
    EXPECT_EQ(server.commandCount("QUIT"), 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineAuthRefusal,
    testing::Values(
        AuthRefusal{"DemandInMode0", KvEmailDriver::SecNone, kDemand, Smtp(530, kDemandText)},
        AuthRefusal{"DemandInMode2", KvEmailDriver::SecClear, kDemand, Smtp(530, kDemandText)},
        AuthRefusal{"DemandInMode3", KvEmailDriver::SecTLSIfAvailable, kDemand, Smtp(530, kDemandText)},
        AuthRefusal{"DemandInMode4", KvEmailDriver::SecTLSRequired, kDemand, Smtp(530, kDemandText)},
        AuthRefusal{"AnotherCode", KvEmailDriver::SecTLSOnDemand, "538 use STARTTLS\r\n",
                    Smtp(538, "use STARTTLS\r\n")},
        AuthRefusal{"NoMention", KvEmailDriver::SecTLSOnDemand, "530 authenticate\r\n",
                    Smtp(530, "authenticate\r\n")},
        AuthRefusal{"LowerCaseMention", KvEmailDriver::SecTLSOnDemand, "530 use starttls\r\n",
                    Smtp(530, "use starttls\r\n")},
        AuthRefusal{"ThreeCharacters", KvEmailDriver::SecTLSOnDemand, "530", OutOfRange()}),
    [](const auto& each) { return each.param.name; });

TEST(EngineConnect, InMode1ADemandForStartTlsOnlyRepeatsTheAuthentication) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on("AUTH").times(3).reply(kDemand);
    TlsEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(server.connection().clientBytes(),
              kEhlo + "AUTH PLAIN\r\nAUTH PLAIN\r\nAUTH PLAIN\r\n" + kAuthPlain);
    EXPECT_EQ(server.openConnections(), 1);
}

TEST(EngineConnect, InMode1ADemandBehindTheCredentialsRepeatsTheWholeExchange) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on(step::AuthPlain).times(1).reply(kDemand);
    TlsEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + kAuthPlain + kAuthPlain);
}

TEST(EngineConnect, InMode1TheRepetitionEndsWithAnotherRefusal) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on("AUTH").reply("535 no more\r\n");
    server.on("AUTH").times(2).reply(kDemand);
    TlsEngine engine;
    EXPECT_EQ(
        OutcomeOf([&] { engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSOnDemand); }),
        Smtp(535, "no more\r\n"));
    EXPECT_EQ(server.commandCount("AUTH"), 3);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(EngineConnect, AServerThatLeavesDuringAuthClosesTheSocketHereToo) {
    const int before = kvtest::OpenDescriptorCount();
    Engine engine;
    {
        ScriptedSmtpServer server(Offering({"AUTH PLAIN"}));
        server.on("AUTH").reply(Reply().thenClose());
        EXPECT_EQ(
            OutcomeOf([&] { engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone); }),
            Io("Socket is closed"));
        EXPECT_TRUE(server.waitForOpenConnections(0));
    }
    // The server's own descriptors are gone; the engine still lives.
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before);
}

TEST(EngineConnect, ASecondConnectKeepsThePort) {
    ScriptedSmtpServer server;
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    engine.m_objSocket.Close();
    engine.Connect("127.0.0.1", "", "", KvEmailDriver::SecClear);
    EXPECT_EQ(server.acceptedConnections(), 2);
    EXPECT_EQ(engine.m_job.eSecType, KvEmailDriver::SecClear);
}

TEST(EngineConnect, AfterCloseThePortIsLookedForAnew) {
    ScriptedSmtpServer first;
    ScriptedSmtpServer second;
    Engine engine;
    engine.Connect(first.address(), "", "", KvEmailDriver::SecNone);
    engine.Close();
    engine.Connect(second.address(), "", "", KvEmailDriver::SecNone);
    EXPECT_EQ(second.connection().clientBytes(), kEhlo);
    EXPECT_EQ(engine.m_job.nPort, second.port());
}

TEST(EngineConnect, AHostNameIsResolved) {
    ScriptedSmtpServer server;
    Engine engine;
    engine.Connect("localhost:" + std::to_string(server.port()), "", "", KvEmailDriver::SecNone);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo);
    EXPECT_EQ(engine.m_job.strHost, "localhost");
    EXPECT_EQ(engine.m_objSocket.GetRemoteAddress(), "localhost:" + std::to_string(server.port()));
}

}  // namespace
