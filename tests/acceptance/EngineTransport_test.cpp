#include <gtest/gtest.h>

#include "EngineKit.h"

using namespace kvengine;
using kvtest::Severity;

// Not tried here: a reply that does not come within 60 s (it counts as an empty one). The time-out is fixed, and a
// minute is too long for a test of this program.

namespace {

struct RawReply {
    const char* name;
    std::string bytes;
    Outcome outcome;
    std::string text;
    int count;

    friend void PrintTo(const RawReply& each, std::ostream* out) { *out << each.name; }
};

class EngineRead : public testing::TestWithParam<RawReply> {};

TEST_P(EngineRead, TakesOneReplyAsItComes) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(GetParam().bytes);
    Engine engine;
    engine.attach(server);
    std::string reply = "old";
    int count = 0;
    EXPECT_EQ(OutcomeOf([&] { count = engine.SmtpRead(reply); }), GetParam().outcome);
    if (GetParam().outcome == Fine()) {
        EXPECT_EQ(reply, GetParam().text);
        EXPECT_EQ(count, GetParam().count);
    }
}

const std::string kNoText;

INSTANTIATE_TEST_SUITE_P(
    All, EngineRead,
    testing::Values(RawReply{"TwoHundred", "250 ok\r\n", Fine(), "250 ok\r\n", 8},
                    RawReply{"ThreeHundred", "334 \r\n", Fine(), "334 \r\n", 6},
                    RawReply{"OneHundred", "150 soon\r\n", Fine(), "150 soon\r\n", 10},
                    RawReply{"NoCode", "ok", Fine(), "ok", 2}, RawReply{"OneCharacter", "2", Fine(), "2", 1},
                    RawReply{"MultiLine", "250-a\r\n250 b\r\n", Fine(), "250-a\r\n250 b\r\n", 14},
                    RawReply{"OnlyTheFirstLineOfAMultiLine", "250-a\r\n", Fine(), "250-a\r\n", 7},
                    RawReply{"ALaterLineIsNotJudged", "250-a\r\n550 b\r\n", Fine(), "250-a\r\n550 b\r\n", 14},
                    RawReply{"UpToTheFirstNul", std::string("250 a\0b\r\n", 9), Fine(), "250 a", 9},
                    RawReply{"NulFirst", std::string("\000550 a\r\n", 8), Fine(), "", 8},
                    RawReply{"HighBytes", "250 \xE9\xFF\r\n", Fine(), "250 \xE9\xFF\r\n", 8},
                    RawReply{"FourHundred", "450 later\r\n", Smtp(450, "later\r\n"), kNoText, 0},
                    RawReply{"FiveHundred", "550 never\r\n", Smtp(550, "never\r\n"), kNoText, 0},
                    RawReply{"Hyphen", "535-5.7.8 no\r\n535 5.7.8 never\r\n",
                             Smtp(535, "5.7.8 no\r\n535 5.7.8 never\r\n"), kNoText, 0},
                    RawReply{"AnySeparator", "550_never", Smtp(550, "never"), kNoText, 0},
                    RawReply{"FourCharacters", "421 ", Smtp(421, ""), kNoText, 0},
                    RawReply{"ThreeCharacters", "421", OutOfRange(), kNoText, 0},
                    RawReply{"OneFive", "5", OutOfRange(), kNoText, 0},
                    RawReply{"OnlyLineEndBehindTheFive", "5\r\n", OutOfRange(), kNoText, 0},
                    RawReply{"LettersInTheCode", "5xx no\r\n", Smtp(5, "no\r\n"), kNoText, 0},
                    RawReply{"LongCode", "5501 no\r\n", Smtp(550, " no\r\n"), kNoText, 0}),
    [](const auto& each) { return each.param.name; });

TEST(EngineTransport, AReplyOfMoreThan1000BytesIsReadInPieces) {
    const std::string bytes = "250 " + std::string(1494, 'x') + "\r\n";
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(bytes);
    Engine engine;
    engine.attach(server);
    EXPECT_EQ(engine.read(), bytes.substr(0, 1000));
    EXPECT_EQ(engine.read(), bytes.substr(1000));
}

TEST(EngineTransport, TheRestOfALongReplyIsJudgedLikeAReply) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(std::string(1000, '2') + "554 surprise\r\n");
    Engine engine;
    engine.attach(server);
    EXPECT_EQ(engine.read(), std::string(1000, '2'));
    EXPECT_EQ(OutcomeOf([&] { engine.read(); }), Smtp(554, "surprise\r\n"));
}

TEST(EngineTransport, InsideTlsTheRestOfALongReplyIsTheReplyToTheNextCommand) {
    const std::string bytes = "250 " + std::string(1494, 'x') + "\r\n";
    ScriptedSmtpServer server(WithTls());
    server.on("RSET").insideTls().reply(bytes);
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    engine.SmtpWrite("RSET\r\n");
    EXPECT_EQ(engine.read(), bytes.substr(0, 1000));
    engine.SmtpWrite("NOOP\r\n");
    EXPECT_EQ(engine.read(), bytes.substr(1000));
}

TEST(EngineTransport, AReplyThatComesInPiecesIsReadInPieces) {
    TriggerLog log;
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply("220 ready\r\n").split({2}).restHeldBy(log.gateOn("=> 22")));
    Engine engine(&log);
    engine.attach(server);
    EXPECT_EQ(engine.read(), "22");
    EXPECT_EQ(engine.read(), "0 ready\r\n");
}

TEST(EngineTransport, TheRestOfASplitGreetingIsTakenForTheReplyToEhlo) {
    TriggerLog log;
    SmtpServerOptions options = Offering({"STARTTLS", "AUTH PLAIN"});
    ScriptedSmtpServer server(options);
    server.on(step::Greeting).reply(Reply("220 ready\r\n").split({2}).restHeldBy(log.gateOn("=> 22")));
    server.on("EHLO").reply(Reply("250 STARTTLS\r\n").heldBy(log.gateOn("=> 0 ready<CR><LF>")));
    Engine engine(&log);
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone);
    EXPECT_FALSE(engine.m_job.bStartTLS);
    EXPECT_FALSE(engine.m_job.bAuthPlain);
    EXPECT_EQ(engine.read(), "250 STARTTLS\r\n");
    EXPECT_EQ(server.connection().clientBytes(), kEhlo);
}

TEST(EngineTransport, OffersInALaterPieceOfTheEhloReplyAreNotSeen) {
    TriggerLog log;
    ScriptedSmtpServer server(Offering({"AUTH PLAIN"}));
    server.on("EHLO").reply(Reply("250-mx\r\n250-AUTH LOGIN\r\n250 STARTTLS\r\n")
                                .split({8})
                                .restHeldBy(log.gateOn("=> 250-mx<CR><LF>")));
    Engine engine(&log);
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone);
    EXPECT_FALSE(engine.m_job.bStartTLS);
    EXPECT_FALSE(engine.m_job.bAuthLogin);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo);
    EXPECT_EQ(engine.read(), "250-AUTH LOGIN\r\n250 STARTTLS\r\n");
}

TEST(EngineTransport, AClosedAndAResetConnectionAreFailures) {
    ScriptedSmtpServer server;
    kvtest::Gate connected;  // a reset that comes too early ends the connect instead
    server.on(step::Greeting).connection(1).reply(Reply().thenClose());
    server.on(step::Greeting).connection(2).reply(Reply().thenReset().heldBy(connected));
    Engine first;
    first.attach(server);
    EXPECT_EQ(OutcomeOf([&] { first.read(); }), Io("Socket is closed"));
    Engine second;
    second.attach(server);
    connected.open();
    EXPECT_EQ(OutcomeOf([&] { second.read(); }), Io("Socket Read Error"));
}

/// What reached the server once the engine has gone.
std::string Received(ScriptedSmtpServer& server) {
    EXPECT_TRUE(server.waitForOpenConnections(0));
    return server.connection().clientBytes();
}

TEST(EngineTransport, FormattedTextIsSentWithoutALineEndOfItsOwn) {
    ScriptedSmtpServer server;
    {
        Engine engine;
        engine.greet(server);
        EXPECT_EQ(engine.SmtpWrite("A %s %d", "b", 3), 5);
        EXPECT_EQ(engine.SmtpWrite("%s", ""), 0);
        EXPECT_EQ(engine.SmtpWrite("!"), 1);
    }
    EXPECT_EQ(Received(server), "A b 3!");
}

TEST(EngineTransport, FormattedTextOf2047CharactersIsWhole) {
    ScriptedSmtpServer server;
    const std::string text(2047, 'x');
    {
        Engine engine;
        engine.greet(server);
        EXPECT_EQ(engine.SmtpWrite("%s", text.c_str()), 2047);
    }
    EXPECT_EQ(Received(server), text);
}

TEST(EngineTransport, FormattedTextIsCutAfter2047Characters) {
    ScriptedSmtpServer server;
    const std::string text = std::string(2040, 'x') + "0123456789\r\n";
    {
        Engine engine;
        engine.greet(server);
        EXPECT_EQ(engine.SmtpWrite("%s", text.c_str()), 2047);
    }
    EXPECT_EQ(Received(server), text.substr(0, 2047));
}

TEST(EngineTransport, PlainTextHasNoLimit) {
    ScriptedSmtpServer server;
    std::string text(200000, 'x');
    text += std::string("%s \0 %d", 7);
    {
        Engine engine;
        engine.greet(server);
        EXPECT_EQ(engine.SmtpWrite(text), static_cast<int>(text.size()));
    }
    EXPECT_EQ(Received(server), text);
}

TEST(EngineTransport, ALongAddressLosesItsLineEnd) {
    ScriptedSmtpServer server;
    const std::string line = "MAIL FROM: <" + std::string(3000, 'a');
    server.cutAfter(2047);
    Engine engine;
    engine.greet(server);
    EXPECT_EQ(OutcomeOf([&] { engine.SendMail(std::string(3000, 'a'), {"b"}, "", "", {}); }).kind, "io");
    EXPECT_EQ(Received(server), line.substr(0, 2047));
}

TEST(EngineTransport, WritingToAConnectionThatNeverWasIsAFailure) {
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SmtpWrite("RSET\r\n"); }), Io("Socket Write Error"));
    EXPECT_EQ(OutcomeOf([&] { engine.SmtpWrite(std::string("RSET\r\n")); }), Io("Socket Write Error"));
}

struct Probe {
    const char* name;
    Reply reply;
    bool alive;

    friend void PrintTo(const Probe& each, std::ostream* out) { *out << each.name; }
};

class EngineProbe : public testing::TestWithParam<Probe> {};

TEST_P(EngineProbe, IsOneRset) {
    ScriptedSmtpServer server(WithTls());
    server.on("RSET").reply(GetParam().reply);
    for (const auto mode : {KvEmailDriver::SecNone, KvEmailDriver::SecTLSRequired}) {
        TlsEngine engine;
        engine.Connect(server.address(), "", "", mode);
        EXPECT_EQ(engine.IsAlive(), GetParam().alive);
    }
    EXPECT_EQ(server.connection(1).clientBytes(), kEhlo + "RSET\r\n");
    EXPECT_EQ(server.connection(2).clientBytes(), kEhlo + "STARTTLS\r\n" + kEhlo + "RSET\r\n");
}

INSTANTIATE_TEST_SUITE_P(All, EngineProbe,
                         testing::Values(Probe{"Ok", "250 ok\r\n", true}, Probe{"Odd", "what?\r\n", true},
                                         Probe{"More", "334 more\r\n", true},
                                         Probe{"Busy", "421 bye\r\n", false},
                                         Probe{"Refused", "500 what\r\n", false},
                                         Probe{"Mutilated", "500", false},
                                         Probe{"Closed", Reply().thenClose(), false},
                                         Probe{"ClosedAbruptly", Reply().thenCloseAbruptly(), false},
                                         Probe{"Reset", Reply().thenReset(), false}),
                         [](const auto& each) { return each.param.name; });

TEST(EngineTransport, AnEngineWithoutAConnectionIsNotAlive) {
    Engine engine;
    EXPECT_FALSE(engine.IsAlive());
}

TEST(EngineTransport, AnEngineWhoseServerHasGoneIsNotAlive) {
    ScriptedSmtpServer server;
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    EXPECT_TRUE(engine.IsAlive());
    server.stop();
    EXPECT_FALSE(engine.IsAlive());
    EXPECT_FALSE(engine.IsAlive());
}

TEST(EngineTransport, CloseAndDestructionSayNoQuit) {
    ScriptedSmtpServer server(WithTls());
    {
        Engine closed;
        closed.Connect(server.address(), "", "", KvEmailDriver::SecNone);
        closed.Close();
        Engine destroyed;
        destroyed.Connect(server.address(), "", "", KvEmailDriver::SecNone);
        TlsEngine secureClosed;
        secureClosed.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
        secureClosed.Close();
        TlsEngine secureDestroyed;
        secureDestroyed.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    }
    EXPECT_TRUE(server.waitForOpenConnections(0));
    for (int number = 1; number <= 4; ++number) {
        const kvtest::ConnectionRecord record = server.connection(number);
        const bool secure = number > 2;
        EXPECT_EQ(record.clientBytes(), secure ? kEhlo + "STARTTLS\r\n" + kEhlo : kEhlo) << number;
        EXPECT_EQ(record.end, kvtest::ConnectionEnd::ClientClosed) << number;
        EXPECT_EQ(record.closeNotified, secure) << number;
    }
}

TEST(EngineTransport, TheTrafficIsLoggedWithItsDirection) {
    kvtest::RecordingLog log;
    ScriptedSmtpServer server(WithTls());
    Engine engine(&log, kvtest::TestCertificates::Shared().caFile());
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSIfAvailable);
    EXPECT_EQ(log.texts(Severity::Trace),
              (Texts{"=> 220 test.example ESMTP<CR><LF>", "<= EHLO [127.0.0.1]<CR><LF>",
                     "=> 250-test.example<CR><LF>250 STARTTLS<CR><LF>", "<= STARTTLS<CR><LF>",
                     "=> 220 2.0.0 ready for TLS<CR><LF>", "<= EHLO [127.0.0.1]<CR><LF>",
                     "=> 250 test.example<CR><LF>"}));
    EXPECT_EQ(log.count(), 7);
}

}  // namespace
