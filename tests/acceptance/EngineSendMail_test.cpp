#include <gtest/gtest.h>

#include "EngineKit.h"

using namespace kvengine;
using kvtest::Severity;
using Sec = KvEmailDriver::SmtpSecType;

namespace {

void Send(Engine& engine) {
    engine.SendMail("ann@example.org", {"bob@example.org", "eve@example.org"}, "Subject", "Text", {});
}

const std::string kEnvelope =
    "MAIL FROM: <ann@example.org>\r\nRCPT TO: <bob@example.org>\r\nRCPT TO: <eve@example.org>\r\nDATA\r\n";

TEST(EngineSendMail, SendsTheEnvelopeTheMessageAndTheDot) {
    ScriptedSmtpServer server;
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    Send(engine);
    const std::string bytes = server.connection().clientBytes();
    EXPECT_TRUE(bytes.starts_with(kEhlo + kEnvelope)) << bytes;
    EXPECT_TRUE(bytes.ends_with("\r\n.\r\n")) << bytes;
    EXPECT_EQ(server.connection().steps(), (Texts{"EHLO", "MAIL", "RCPT", "RCPT", "DATA", "END-OF-DATA"}));
    ASSERT_EQ(server.acceptedTransactions(), 1);
    EXPECT_EQ(server.transactions()[0].sender, "ann@example.org");
    EXPECT_EQ(kEhlo + kEnvelope + server.transactions()[0].data + ".\r\n", bytes);
    EXPECT_TRUE(engine.IsAlive());
}

struct Envelope {
    const char* name;
    std::string from;
    Texts to;
    std::string bytes;

    friend void PrintTo(const Envelope& each, std::ostream* out) { *out << each.name; }
};

class EngineEnvelope : public testing::TestWithParam<Envelope> {};

TEST_P(EngineEnvelope, IsSentAsItIs) {
    ScriptedSmtpServer server;
    server.on("DATA").reply("554 enough\r\n");
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    EXPECT_EQ(OutcomeOf([&] { engine.SendMail(GetParam().from, GetParam().to, "", "", {}); }),
              Smtp(554, "enough\r\n"));
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + GetParam().bytes + "DATA\r\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineEnvelope,
    testing::Values(
        Envelope{"OneRecipient", "a@b", {"c@d"}, "MAIL FROM: <a@b>\r\nRCPT TO: <c@d>\r\n"},
        Envelope{"NoRecipient", "a@b", {}, "MAIL FROM: <a@b>\r\n"},
        Envelope{"NoSender", "", {"c@d"}, "MAIL FROM: <>\r\nRCPT TO: <c@d>\r\n"},
        Envelope{"Duplicates",
                 "a@b",
                 {"c@d", "e@f", "c@d"},
                 "MAIL FROM: <a@b>\r\nRCPT TO: <c@d>\r\nRCPT TO: <e@f>\r\nRCPT TO: <c@d>\r\n"},
        Envelope{
            "DisplayName", "Ann <a@b>", {"Bob <c@d>"}, "MAIL FROM: <Ann <a@b>>\r\nRCPT TO: <Bob <c@d>>\r\n"},
        Envelope{"Blanks", " a@b ", {" c@d "}, "MAIL FROM: < a@b >\r\nRCPT TO: < c@d >\r\n"},
        Envelope{"PercentSigns", "a%s%n@b", {"c%d@d"}, "MAIL FROM: <a%s%n@b>\r\nRCPT TO: <c%d@d>\r\n"},
        Envelope{"EmptyRecipient", "a@b", {""}, "MAIL FROM: <a@b>\r\nRCPT TO: <>\r\n"}),
    [](const auto& each) { return each.param.name; });

struct Refusal {
    const char* name;
    const char* step;
    int occurrence;
    Texts stepsBehindEhlo;

    friend void PrintTo(const Refusal& each, std::ostream* out) { *out << each.name; }
};

class EngineRefusal : public testing::TestWithParam<Refusal> {
protected:
    static void expectEnd(const std::string& reply, const Outcome& outcome) {
        ScriptedSmtpServer server;
        server.on(GetParam().step).occurrence(GetParam().occurrence).reply(reply);
        Engine engine;
        engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
        EXPECT_EQ(OutcomeOf([&] { Send(engine); }), outcome);
        Texts steps{"EHLO"};
        steps.insert(steps.end(), GetParam().stepsBehindEhlo.begin(), GetParam().stepsBehindEhlo.end());
        EXPECT_EQ(server.connection().steps(), steps);
        // Nothing is reset and nothing is closed.
        EXPECT_EQ(server.openConnections(), 1);
    }
};

TEST_P(EngineRefusal, For4yzEndsTheTransactionThere) {
    expectEnd("452 4.2.2 full\r\n", Smtp(452, "4.2.2 full\r\n"));
}

TEST_P(EngineRefusal, For5yzEndsTheTransactionThere) {
    expectEnd("550-5.1.1 no\r\n550 5.1.1 never\r\n", Smtp(550, "5.1.1 no\r\n550 5.1.1 never\r\n"));
}

TEST_P(EngineRefusal, ThatDemandsTlsIsPassedOnInMode0) {
    expectEnd(kDemand, Smtp(530, kDemandText));
}

TEST_P(EngineRefusal, ThatIsMutilatedIsOutOfRange) {
    expectEnd("550", OutOfRange());
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineRefusal,
    testing::Values(Refusal{"Sender", "MAIL", 1, {"MAIL"}},
                    Refusal{"FirstRecipient", "RCPT", 1, {"MAIL", "RCPT"}},
                    Refusal{"SecondRecipient", "RCPT", 2, {"MAIL", "RCPT", "RCPT"}},
                    Refusal{"Data", "DATA", 1, {"MAIL", "RCPT", "RCPT", "DATA"}},
                    Refusal{"Message", step::EndOfData, 1, {"MAIL", "RCPT", "RCPT", "DATA", "END-OF-DATA"}}),
    [](const auto& each) { return each.param.name; });

TEST(EngineSendMail, PositiveRepliesAreNotLookedAt) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply("354 what\r\n");
    server.on("RCPT").reply("150 eh\r\n");
    server.on("DATA").reply("250 ok\r\n");
    server.on(step::EndOfData).reply("okay\r\n");
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Fine());
    EXPECT_EQ(server.connection().steps().back(), "END-OF-DATA");
}

TEST(EngineSendMail, ALostConnectionIsPassedOn) {
    for (const char* where : {"MAIL", "RCPT", "DATA", step::EndOfData}) {
        ScriptedSmtpServer server;
        server.on(where).reply(Reply().thenClose());
        Engine engine;
        engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
        EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Io("Socket is closed")) << where;
    }
}

TEST(EngineSendMail, InsideTlsALostConnectionIsPassedOn) {
    ScriptedSmtpServer server(WithTls());
    server.on("RCPT").reply(Reply().thenClose());
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Io("SSL Socket is closed"));
}

TEST(EngineSendMail, ASessionCarriesManyTransactions) {
    ScriptedSmtpServer server(WithTls());
    for (const Sec mode : {KvEmailDriver::SecClear, KvEmailDriver::SecTLSRequired}) {
        TlsEngine engine;
        engine.Connect(server.address(), "", "", mode);
        for (int n = 0; n < 3; ++n) {
            Send(engine);
            EXPECT_TRUE(engine.IsAlive());
        }
    }
    EXPECT_EQ(server.acceptedTransactions(), 6);
    EXPECT_EQ(server.transactionsOf(2)[2].recipientAddresses(),
              (Texts{"bob@example.org", "eve@example.org"}));
    EXPECT_TRUE(server.transactionsOf(2)[2].insideTls);
    EXPECT_EQ(server.transactionsOf(1)[0].data, server.transactionsOf(2)[2].data);
}

TEST(EngineSendMail, AfterARefusalTheNextTransactionStartsWithMailAgain) {
    ScriptedSmtpServer server;
    server.on("RCPT").times(1).reply("550 no\r\n");
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Smtp(550, "no\r\n"));
    EXPECT_TRUE(engine.IsAlive());
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Fine());
    EXPECT_EQ(server.connection().steps(),
              (Texts{"EHLO", "MAIL", "RCPT", "RSET", "MAIL", "RCPT", "RCPT", "DATA", "END-OF-DATA"}));
}

TEST(EngineSendMail, TheRestOfASplitReplyToDataIsTakenForTheReplyToTheMessage) {
    TriggerLog log;
    ScriptedSmtpServer server;
    server.on("DATA").reply(Reply("354 go ahead\r\n").split({1}).restHeldBy(log.gateOn("=> 3")));
    server.on(step::EndOfData).reply(Reply("250 ok\r\n").heldBy(log.gateOn("=> 54 go ahead<CR><LF>")));
    Engine engine(&log);
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Smtp(54, "o ahead\r\n"));
    EXPECT_EQ(engine.read(), "250 ok\r\n");
}

// ---- STARTTLS on demand

class EngineRetry : public testing::TestWithParam<Refusal> {};

TEST_P(EngineRetry, StartsTlsAuthenticatesAndBeginsAgainFromMail) {
    kvtest::RecordingLog log;
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on(GetParam().step).inClear().occurrence(GetParam().occurrence).reply(kDemand);
    TlsEngine engine(&log);
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    engine.m_job.strUser = "ann";
    engine.m_job.strPassword = "secret";
    Send(engine);
    Texts steps{"EHLO"};
    steps.insert(steps.end(), GetParam().stepsBehindEhlo.begin(), GetParam().stepsBehindEhlo.end());
    for (const char* each :
         {"STARTTLS", "EHLO", "AUTH", "AUTH-PLAIN", "MAIL", "RCPT", "RCPT", "DATA", "END-OF-DATA"}) {
        steps.push_back(each);
    }
    EXPECT_EQ(server.connection().steps(), steps);
    EXPECT_EQ(log.texts(Severity::Debug), (Texts{"Attempting TLS Hand Shake...", "Authorizing if required...",
                                                 "Re-Attempting message sending..."}));
    ASSERT_EQ(server.acceptedTransactions(), 1);
    EXPECT_TRUE(server.transactions().back().insideTls);
    EXPECT_TRUE(server.transactions().back().authenticated);
    const std::string bytes = server.connection().clientBytes();
    EXPECT_TRUE(bytes.ends_with("STARTTLS\r\n" + kEhlo + kAuthPlain + kEnvelope +
                                server.transactions().back().data + ".\r\n"))
        << bytes;
}

INSTANTIATE_TEST_SUITE_P(All, EngineRetry,
                         testing::Values(Refusal{"AfterMail", "MAIL", 1, {"MAIL"}},
                                         Refusal{"AfterRcpt", "RCPT", 2, {"MAIL", "RCPT", "RCPT"}},
                                         Refusal{"AfterData", "DATA", 1, {"MAIL", "RCPT", "RCPT", "DATA"}},
                                         Refusal{"AfterTheMessage",
                                                 step::EndOfData,
                                                 1,
                                                 {"MAIL", "RCPT", "RCPT", "DATA", "END-OF-DATA"}}),
                         [](const auto& each) { return each.param.name; });

TEST(EngineRetryLines, NameTheirSource) {
    kvtest::RecordingLog log;
    ScriptedSmtpServer server(WithTls());
    server.on("MAIL").inClear().reply(kDemand);
    TlsEngine engine(&log);
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    Send(engine);
    int lines = 0;
    for (const kvtest::LogEntry& entry : log.entries()) {
        if (entry.severity == Severity::Debug) {
            ++lines;
            EXPECT_TRUE(entry.file.ends_with("system/src/KvEmailDriver")) << entry.file;
        }
    }
    EXPECT_EQ(lines, 3);
}

TEST(EngineRetryLines, AreLeftOutWithoutALog) {
    ScriptedSmtpServer server(WithTls());
    server.on("MAIL").inClear().reply(kDemand);
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    Send(engine);
    EXPECT_EQ(server.acceptedTransactions(), 1);
}

struct NoRetry {
    const char* name;
    Sec mode;
    std::string reply;
    Outcome outcome;

    friend void PrintTo(const NoRetry& each, std::ostream* out) { *out << each.name; }
};

class EngineNoRetry : public testing::TestWithParam<NoRetry> {};

TEST_P(EngineNoRetry, PassesTheRefusalOn) {
    kvtest::RecordingLog log;
    ScriptedSmtpServer server(WithTls());
    server.on("MAIL").reply(GetParam().reply);
    TlsEngine engine(&log);
    engine.Connect(server.address(), "", "", GetParam().mode);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), GetParam().outcome);
    EXPECT_EQ(server.commandCount("MAIL"), 1);
    EXPECT_EQ(log.count(Severity::Debug), 0);
    EXPECT_EQ(server.openConnections(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineNoRetry,
    testing::Values(
        NoRetry{"Mode0", KvEmailDriver::SecNone, kDemand, Smtp(530, kDemandText)},
        NoRetry{"Mode2", KvEmailDriver::SecClear, kDemand, Smtp(530, kDemandText)},
        NoRetry{"Mode3", KvEmailDriver::SecTLSIfAvailable, kDemand, Smtp(530, kDemandText)},
        NoRetry{"Mode4", KvEmailDriver::SecTLSRequired, kDemand, Smtp(530, kDemandText)},
        NoRetry{"AnotherCode", KvEmailDriver::SecTLSOnDemand, "550 STARTTLS\r\n", Smtp(550, "STARTTLS\r\n")},
        NoRetry{"NoMention", KvEmailDriver::SecTLSOnDemand, "530 log in\r\n", Smtp(530, "log in\r\n")},
        NoRetry{"LowerCase", KvEmailDriver::SecTLSOnDemand, "530 starttls\r\n", Smtp(530, "starttls\r\n")}),
    [](const auto& each) { return each.param.name; });

const Outcome kStartTlsFailed = Smtp(816, "STARTTLS Failed after Must Start TLS Response");

TEST(EngineFailedRetry, FailsUnaskedWithoutAnOffer) {
    kvtest::RecordingLog log;
    ScriptedSmtpServer server;
    server.on("MAIL").reply(kDemand);
    Engine engine(&log);
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), kStartTlsFailed);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "MAIL FROM: <ann@example.org>\r\n");
    EXPECT_EQ(log.texts(Severity::Debug), (Texts{"Attempting TLS Hand Shake..."}));
    EXPECT_EQ(server.openConnections(), 1);
}

TEST(EngineFailedRetry, FailsWhenStartTlsIsRefused) {
    ScriptedSmtpServer server(WithTls());
    server.on("MAIL").reply(kDemand);
    server.on("STARTTLS").reply("454 not now\r\n");
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), kStartTlsFailed);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "MAIL FROM: <ann@example.org>\r\nSTARTTLS\r\n");
}

TEST(EngineFailedRetry, ADemandInsideTlsEndsWithTheSecondStartTls) {
    kvtest::RecordingLog log;
    ScriptedSmtpServer server(WithTls());
    server.on("MAIL").reply(kDemand);
    TlsEngine engine(&log);
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), kStartTlsFailed);
    const std::string mail = "MAIL FROM: <ann@example.org>\r\n";
    EXPECT_EQ(server.connection().clientBytes(),
              kEhlo + mail + "STARTTLS\r\n" + kEhlo + mail + "STARTTLS\r\n");
    EXPECT_EQ(log.count(Severity::Debug), 4);
    EXPECT_EQ(server.openConnections(), 1);
}

TEST(EngineFailedRetry, AFailedHandshakeIsPassedOnWithTheSocketOpen) {
    ScriptedSmtpServer server(WithTls());
    server.on("MAIL").reply(kDemand);
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Io("SSL: Verify Location Failed"));
    EXPECT_NE(engine.m_objSocket.GetSocket(), -1);
    EXPECT_EQ(server.openConnections(), 1);
}

TEST(EngineFailedRetry, ARefusedAuthenticationIsPassedOn) {
    ScriptedSmtpServer server(WithTls({{"ann", "another"}}));
    server.on("MAIL").reply(kDemand);
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    engine.m_job.strUser = "ann";
    engine.m_job.strPassword = "secret";
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Smtp(535, "5.7.8 authentication failed\r\n"));
    EXPECT_EQ(server.commandCount("MAIL"), 1);
}

TEST(EngineFailedRetry, ARefusalInTheSecondAttemptIsPassedOn) {
    ScriptedSmtpServer server(WithTls());
    server.on("MAIL").inClear().reply(kDemand);
    server.on("RCPT").insideTls().reply("550 no\r\n");
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(OutcomeOf([&] { Send(engine); }), Smtp(550, "no\r\n"));
    EXPECT_EQ(server.commandCount("MAIL"), 2);
}

}  // namespace
