#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "hostile/HostileDelivery.h"
#include "hostile/VirtualTime.h"

// Replies that no server should give, in each phase of a conversation that authenticates and sends one mail, in clear
// and inside TLS.

namespace {

using namespace kvtest;
using std::chrono::seconds;

constexpr const char* kPhases[] = {step::Greeting, "EHLO", "AUTH", step::AuthPlain, "RSET",
                                   "MAIL",         "RCPT", "DATA", step::EndOfData};

/// More than the driver reads in a whole session, whatever the server says.
constexpr std::size_t kEndless = 1000000;

std::string Repeated(const std::string& text, std::size_t atLeast) {
    std::string all;
    while (all.size() < atLeast) {
        all += text;
    }
    return all;
}

enum class Reading {
    Passes,      ///< the driver goes on as after a positive reply
    Refuses,     ///< the step has failed
    RefusesAll,  ///< so have all that follow
    StaysSilent  ///< nothing comes for a minute; then as Passes
};

struct Fault {
    const char* name;
    std::string reply;
    Reading reading;
    std::string reason = {};  ///< of a job that fails in its transaction
};

std::ostream& operator<<(std::ostream& out, const Fault& fault) {
    return out << fault.name;
}

std::vector<Fault> Faults() {
    using enum Reading;
    const std::string rest(1500, 'x');
    return {
        {"Refusal", "450 4.2.1 try later\r\n", Refuses, "4.2.1 try later\r\n"},
        {"RefusalBehindAnAcceptance", "250 ok\r\n550 5.1.1 no\r\n", Passes},
        {"AcceptanceBehindARefusal", "550 5.1.1 no\r\n250 ok\r\n", Refuses, "5.1.1 no\r\n250 ok\r\n"},
        {"OverAThousandBytes", "250 " + rest + "\r\n", Passes},
        {"RefusalOverAThousandBytes", "550 " + rest + "\r\n", Refuses, std::string(996, 'x')},
        {"LineWithoutEnd", Repeated("x", kEndless), Passes},
        {"LinesWithoutEnd", Repeated("250-xx\r\n", kEndless), Passes},
        {"RefusingLinesWithoutEnd", Repeated("550-xx\r\n", kEndless), RefusesAll,
         Repeated("550-xx\r\n", 1000).substr(4)},
        {"EmptyLine", "\r\n", Passes},
        {"NulFirst", std::string(1, '\0') + "550 5.1.1 no\r\n", Passes},
        {"NulInside", std::string("550 5.1.1 no\0body\r\n", 19), Refuses, "5.1.1 no"},
        {"NoCode", "hello\r\n", Passes},
        {"BlankBeforeTheCode", " 550 5.1.1 no\r\n", Passes},
        {"CodeAlone", "421", Refuses, ""},
        {"CodeAndBlank", "421 ", Refuses, ""},
        {"CodeAndLineEnd", "421\r\n", Refuses, "\n"},
        {"FirstDigitAlone", "5", Refuses, ""},
        {"CodeOfAnotherPhase", "354 go ahead\r\n", Passes},
        {"CodeThatDoesNotExist", "999 what\r\n", Passes},
        {"CodeOfFourDigits", "5500 5.1.1 no\r\n", Refuses, " 5.1.1 no\r\n"},
        {"CodesThatDifferFromPositive", "250-5.1.1 a\r\n550 b\r\n", Passes},
        {"CodesThatDifferFromNegative", "550-a\r\n250 b\r\n", Refuses, "a\r\n250 b\r\n"},
        {"EndlessContinuationAnnounced", "250-a\r\n", Passes},
        {"BareLineFeed", "550 5.1.1 no\n", Refuses, "5.1.1 no\n"},
        {"NoLineEnd", "550 5.1.1 no", Refuses, "5.1.1 no"},
        {"ControlBytes", "550 5.1.1 \x1b[31mred\x07\r\n", Refuses, "5.1.1 \x1b[31mred\x07\r\n"},
        {"BytesBeyondAscii", "550 5.1.1 \xff\xfe\xc3\r\n", Refuses, "5.1.1 \xff\xfe\xc3\r\n"},
        {"FormatDirectives", "550 5.1.1 %s%n%d%99999999d\r\n", Refuses, "5.1.1 %s%n%d%99999999d\r\n"},
        {"Silence", "", StaysSilent},
    };
}

/// What a step that has failed leads to.
Outcome OutcomeOfRefusal(const std::string& phase, const Fault& fault) {
    const bool alsoHelo = fault.reading == Reading::RefusesAll;
    if (phase == step::Greeting || phase == "AUTH" || phase == step::AuthPlain ||
        (phase == "EHLO" && alsoHelo)) {
        return NotConnected();
    }
    if (phase == "EHLO" || phase == "RSET") {
        return Completed();  // HELO is tried, or another connection
    }
    return Failed(fault.reason);
}

bool IsRefused(const Fault& fault) {
    return fault.reading == Reading::Refuses || fault.reading == Reading::RefusesAll;
}

/// A server that answers AUTH with 2yz takes the credentials for a command, which it does not know.
bool EndsTheExchange(const std::string& phase, const Fault& fault) {
    return phase == "AUTH" && fault.reply.starts_with('2') && fault.reply.size() < 1000;
}

Outcome ExpectedOutcome(const std::string& phase, const Fault& fault) {
    if (EndsTheExchange(phase, fault)) {
        return NotConnected();
    }
    return IsRefused(fault) ? OutcomeOfRefusal(phase, fault) : Completed();
}

/// Each command is followed by one read, which takes 1000 bytes at most.
void ExpectOneReadPerCommand(const RecordingLog& log) {
    const std::vector<std::string> lines = log.texts();
    const auto begin = [](const char* mark) {
        return [mark](const std::string& line) { return line.starts_with(mark); };
    };
    EXPECT_LE(std::count_if(lines.begin(), lines.end(), begin("=> ")),
              std::count_if(lines.begin(), lines.end(), begin("<= ")) + 1);
}

class HostileReplyTest : public testing::TestWithParam<Fault> {
protected:
    /// Each phase on a connection of its own.
    static void TryIn(ScriptedSmtpServer& server, const std::string& phase, bool insideTls) {
        SCOPED_TRACE(phase + (insideTls ? " inside TLS" : " in clear"));
        const Fault& fault = GetParam();
        const int connections = server.acceptedConnections();
        RuleBuilder rule = server.on(phase).connection(connections + 1);
        (insideTls ? rule.insideTls() : rule.inClear()).occurrence(insideTls && phase == "EHLO" ? 2 : 1);
        rule.answer([&fault](const CommandContext&) {
            return fault.reading == Reading::StaysSilent ? SilentFor(seconds(60)) : Reply(fault.reply);
        });
        HostDoubles host;
        EXPECT_EQ(Deliver(server, WithAccount(JobFor(server, insideTls)), host),
                  ExpectedOutcome(phase, fault));
        ExpectOneReadPerCommand(host.log);
        if (phase == "RSET") {
            EXPECT_EQ(server.acceptedConnections() - connections, IsRefused(fault) ? 2 : 1);
        }
    }
};

TEST_P(HostileReplyTest, IsReadByItsFirstByteInEveryPhaseInClear) {
    ScriptedSmtpServer server(OfferingAccount(false));
    for (const char* phase : kPhases) {
        TryIn(server, phase, false);
    }
}

TEST_P(HostileReplyTest, IsReadByItsFirstByteInEveryPhaseInsideTls) {
    ScriptedSmtpServer server(OfferingAccount(true));
    for (const char* phase : kPhases) {
        if (phase != std::string(step::Greeting)) {
            TryIn(server, phase, true);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, HostileReplyTest, testing::ValuesIn(Faults()),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(SilentServerTest, AServerThatSaysNothingAtAllCompletesTheJobAfterAMinuteForEachCommand) {
    ScriptedSmtpServer server;
    server.on(step::Any).answer([](const CommandContext&) { return SilentFor(seconds(60)); });
    const auto before = VirtualTime::Passed();
    EXPECT_EQ(Deliver(server, WithAccount(JobFor(server))), Completed());
    // Greeting, EHLO, RSET, MAIL, RCPT, DATA, end of data.
    EXPECT_EQ(VirtualTime::Passed() - before, seconds(7 * 60));
}

TEST(SilentServerTest, AReplyJustWithinTheMinuteIsStillRead) {
    ScriptedSmtpServer server;
    server.on(step::EndOfData).answer([](const CommandContext&) {
        SilentFor(std::chrono::milliseconds(59999));
        return Reply("554 5.6.0 rejected\r\n");
    });
    EXPECT_EQ(Deliver(server, JobFor(server)), Failed("5.6.0 rejected\r\n"));
}

TEST(SilentServerTest, TheTimeIsInTheHandsOfTheServerAlone) {
    ScriptedSmtpServer server;
    const auto before = VirtualTime::Passed();
    const int expired = VirtualTime::ExpiredWaits();
    EXPECT_EQ(Deliver(server, JobFor(server)), Completed());
    EXPECT_EQ(VirtualTime::Passed(), before);
    EXPECT_EQ(VirtualTime::ExpiredWaits(), expired);
}

TEST(ReplyTextTest, ControlBytesAreWrittenOutInTheTraceAndStandAsTheyAreInReasonAndErrorLine) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply("550 5.1.1 \x1b[31mred\x07\r\n");
    HostDoubles host;
    Deliver(server, JobFor(server), host);
    EXPECT_TRUE(host.log.contains("=> 550 5.1.1 <ESC>[31mred<07><CR><LF>"));
    EXPECT_TRUE(host.log.has(Severity::Error, "Error: 5.1.1 \x1b[31mred\x07\r\n"));
}

TEST(ReplyTextTest, ACodeAloneIsAnUnknownErrorInTheLogAndACodeWithABlankAnEmptyOne) {
    for (const auto& [reply, line] :
         {std::pair("421", "Unknown error occurred"), std::pair("421 ", "Error: ")}) {
        ScriptedSmtpServer server;
        server.on("MAIL").reply(reply);
        HostDoubles host;
        EXPECT_EQ(Deliver(server, JobFor(server), host), Failed(""));
        EXPECT_TRUE(host.log.has(Severity::Error, line)) << reply;
    }
}

}  // namespace
