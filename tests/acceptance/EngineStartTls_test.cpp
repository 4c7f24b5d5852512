#include <gtest/gtest.h>

#include "EngineKit.h"

using namespace kvengine;
using Sec = KvEmailDriver::SmtpSecType;

namespace {

struct Answer {
    const char* name;
    Reply reply;
    Outcome outcome;
    bool supported;

    friend void PrintTo(const Answer& each, std::ostream* out) { *out << each.name; }
};

class EngineStartTlsAnswer : public testing::TestWithParam<Answer> {};

TEST_P(EngineStartTlsAnswer, TellsWhetherTlsIsSupported) {
    ScriptedSmtpServer server;
    server.on("STARTTLS").reply(GetParam().reply);
    Engine engine;
    engine.greet(server);
    engine.m_job.bStartTLS = true;
    bool supported = false;
    EXPECT_EQ(OutcomeOf([&] { supported = engine.IsTLSSupported(engine.m_job); }), GetParam().outcome);
    EXPECT_EQ(supported, GetParam().supported);
    EXPECT_EQ(server.connection().clientBytes(), "STARTTLS\r\n");
}

// "thenStall" where a 2yz reply would have the server begin its handshake.
INSTANTIATE_TEST_SUITE_P(
    All, EngineStartTlsAnswer,
    testing::Values(Answer{"GoAhead", Reply("220 go\r\n").thenStall(), Fine(), true},
                    Answer{"AnyTwoHundred", Reply("250 go\r\n").thenStall(), Fine(), true},
                    Answer{"JustATwo", Reply("2").thenStall(), Fine(), true},
                    Answer{"ThreeHundred", "354 go\r\n", Fine(), false},
                    Answer{"NoCode", "go\r\n", Fine(), false},
                    Answer{"NotNow", "454 4.7.0 not now\r\n", Fine(), false},
                    Answer{"Unknown", "502 what\r\n", Fine(), false},
                    Answer{"Demanded", kDemand, Fine(), false},
                    Answer{"Mutilated", "454", OutOfRange(), false},
                    Answer{"Closed", Reply().thenClose(), Io("Socket is closed"), false},
                    Answer{"Reset", Reply().thenReset(), Io("Socket Read Error"), false}),
    [](const auto& each) { return each.param.name; });

TEST(EngineStartTls, IsNotSaidWhenItWasNotOffered) {
    ScriptedSmtpServer server(WithTls());
    TlsEngine engine;
    engine.greet(server);
    EXPECT_FALSE(engine.IsTLSSupported(engine.m_job));
    EXPECT_EQ(server.connection().clientBytes(), "");
}

struct Insistence {
    const char* name;
    Sec mode;
    Outcome outcome;

    friend void PrintTo(const Insistence& each, std::ostream* out) { *out << each.name; }
};

class EngineInsistence : public testing::TestWithParam<Insistence> {};

TEST_P(EngineInsistence, DecidesWhatAMissingOfferMeans) {
    ScriptedSmtpServer server;
    Engine engine;
    engine.greet(server);
    engine.m_job.eSecType = GetParam().mode;
    EXPECT_EQ(OutcomeOf([&] { engine.ProcessTLS(); }), GetParam().outcome);
    EXPECT_EQ(server.connection().clientBytes(), "");
    EXPECT_EQ(server.openConnections(), 1);
}

TEST_P(EngineInsistence, DecidesWhatARefusalMeans) {
    ScriptedSmtpServer server;
    server.on("STARTTLS").reply("454 4.7.0 not now\r\n");
    Engine engine;
    engine.greet(server);
    engine.m_job.eSecType = GetParam().mode;
    engine.m_job.bStartTLS = true;
    EXPECT_EQ(OutcomeOf([&] { engine.ProcessTLS(); }), GetParam().outcome);
    EXPECT_EQ(server.connection().clientBytes(), "STARTTLS\r\n");
    EXPECT_EQ(server.openConnections(), 1);
}

TEST_P(EngineInsistence, DoesNotMatterWhenTheServerAgrees) {
    ScriptedSmtpServer server(WithTls());
    TlsEngine engine;
    engine.greet(server);
    engine.m_job.eSecType = GetParam().mode;
    engine.m_job.bStartTLS = true;
    EXPECT_EQ(OutcomeOf([&] { engine.ProcessTLS(); }), Fine());
    EXPECT_EQ(server.connection().clientBytes(), "STARTTLS\r\n" + kEhlo);
    EXPECT_TRUE(server.connection().tls);
}

INSTANTIATE_TEST_SUITE_P(All, EngineInsistence,
                         testing::Values(Insistence{"None", KvEmailDriver::SecNone, Fine()},
                                         Insistence{
                                             "OnDemand", KvEmailDriver::SecTLSOnDemand,
                                             Smtp(816, "STARTTLS Failed after Must Start TLS Response")},
                                         Insistence{"Clear", KvEmailDriver::SecClear, Fine()},
                                         Insistence{"IfAvailable", KvEmailDriver::SecTLSIfAvailable, Fine()},
                                         Insistence{"Required", KvEmailDriver::SecTLSRequired,
                                                    Smtp(815, "TLS Required but not supported")}),
                         [](const auto& each) { return each.param.name; });

TEST(EngineStartTls, TheOffersOfBothEhloRepliesAddUp) {
    SmtpServerOptions options = WithTls({{"ann", "secret"}});
    options.extensions = {"STARTTLS", "AUTH LOGIN"};
    options.extensionsInsideTls = {"AUTH PLAIN"};
    ScriptedSmtpServer server(options);
    TlsEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSRequired);
    EXPECT_TRUE(engine.m_job.bStartTLS);
    EXPECT_TRUE(engine.m_job.bAuthLogin);
    EXPECT_TRUE(engine.m_job.bAuthPlain);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "STARTTLS\r\n" + kEhlo + kAuthPlain);
}

TEST(EngineStartTls, OffersThatAreGoneInsideTlsStillCount) {
    SmtpServerOptions options = WithTls({{"ann", "secret"}});
    options.extensions = {"STARTTLS", "AUTH PLAIN"};
    options.extensionsInsideTls = Texts{};
    ScriptedSmtpServer server(options);
    TlsEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "STARTTLS\r\n" + kEhlo + kAuthPlain);
}

TEST(EngineStartTls, InsideTlsHeloFollowsARefusedEhlo) {
    ScriptedSmtpServer server(WithTls());
    server.on("EHLO").insideTls().reply("502 what\r\n");
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "STARTTLS\r\n" + kEhlo + kHelo);
}

TEST(EngineStartTls, ARefusedHeloInsideTlsClosesTheSocket) {
    ScriptedSmtpServer server(WithTls());
    server.on("EHLO").insideTls().reply("502 what\r\n");
    server.on("HELO").insideTls().reply("550 5.5.0 no\r\n");
    TlsEngine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired); }),
              Smtp(550, "5.5.0 no\r\n"));
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(EngineStartTls, OnlyTheTextBeforeTheHandshakeIsInClear) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    TlsEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSIfAvailable);
    std::string clear;
    std::string inside;
    for (const kvtest::Chunk& chunk : server.connection().chunks) {
        if (chunk.direction == kvtest::Direction::FromClient) {
            (chunk.insideTls ? inside : clear) += chunk.bytes;
        }
    }
    EXPECT_EQ(clear, kEhlo + "STARTTLS\r\n");
    EXPECT_EQ(inside, kEhlo + kAuthPlain);
}

TEST(EngineStartTls, WithoutACaFileTheHandshakeIsImpossible) {
    ScriptedSmtpServer server(WithTls());
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSIfAvailable); }),
              Io("SSL: Verify Location Failed"));
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "STARTTLS\r\n");
}

TEST(EngineStartTls, AnUntrustedCertificateIsAFailureInEveryTlsMode) {
    const kvtest::TestCertificates& certificates = kvtest::TestCertificates::Shared();
    SmtpServerOptions options;
    options.tls = certificates.tlsWith(certificates.fromOtherCa());
    ScriptedSmtpServer server(options);
    for (const Sec mode : {KvEmailDriver::SecTLSIfAvailable, KvEmailDriver::SecTLSRequired}) {
        TlsEngine engine;
        const Outcome outcome = OutcomeOf([&] { engine.Connect(server.address(), "", "", mode); });
        EXPECT_EQ(outcome.kind, "io");
        EXPECT_TRUE(outcome.text.starts_with("SSL: SSL Connect Failed. Details: SSL_ERROR_SSL. "))
            << outcome.text;
    }
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(EngineStartTls, TheClientCertificateOfTheConstructorIsShown) {
    const kvtest::TestCertificates& certificates = kvtest::TestCertificates::Shared();
    SmtpServerOptions options;
    options.tls = certificates.tlsDemandingClientCertificate();
    ScriptedSmtpServer server(options);
    Engine engine(nullptr, certificates.caFile(), certificates.client().certificate,
                  certificates.client().key);
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(server.connection().clientCertificate, "/CN=test client");
}

TEST(EngineStartTls, AKeyThatDoesNotBelongToTheCertificateIsRefused) {
    const kvtest::TestCertificates& certificates = kvtest::TestCertificates::Shared();
    ScriptedSmtpServer server(WithTls());
    Engine engine(nullptr, certificates.caFile(), certificates.client().certificate,
                  certificates.unrelatedKeyFile());
    const Outcome outcome =
        OutcomeOf([&] { engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired); });
    EXPECT_EQ(outcome.kind, "io");
    EXPECT_TRUE(outcome.text == "SSL: Private key does not match the certificate public key" ||
                outcome.text == "SSL: Setting Key file Failed")
        << outcome.text;
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

}  // namespace
