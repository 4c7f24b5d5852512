#include <gtest/gtest.h>

#include "EngineKit.h"

using namespace kvengine;

namespace {

const std::string kAskUser = "334 VXNlcm5hbWU6\r\n";
const std::string kAskPassword = "334 UGFzc3dvcmQ6\r\n";

/// A greeted engine with the account, ready for an exchange.
class Exchange {
public:
    explicit Exchange(const std::string& user = "ann", const std::string& password = "secret")
        : server(Offering({})) {
        engine.greet(server);
        engine.m_job.strUser = user;
        engine.m_job.strPassword = password;
        engine.m_strLastError = "before";
        engine.m_nLastError = -7;
    }
    std::string sent() const { return server.connection().clientBytes(); }
    /// For text behind which nobody waits for a reply.
    void expectSent(const std::string& text) const {
        server.waitUntil([&] { return sent().size() >= text.size(); });
        EXPECT_EQ(sent(), text);
    }
    void expectNothingRecorded() const {
        EXPECT_EQ(engine.m_strLastError, "before");
        EXPECT_EQ(engine.m_nLastError, -7);
    }

    ScriptedSmtpServer server;
    Engine engine;
};

struct Choice {
    const char* name;
    std::vector<std::string> extensions;
    const char* user;
    const char* password;
    std::string sent;

    friend void PrintTo(const Choice& each, std::ostream* out) { *out << each.name; }
};

class EngineAuthChoice : public testing::TestWithParam<Choice> {};

TEST_P(EngineAuthChoice, FollowsTheOffer) {
    ScriptedSmtpServer server(Offering(GetParam().extensions));
    Engine engine;
    engine.Connect(server.address(), GetParam().user, GetParam().password, KvEmailDriver::SecNone);
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + GetParam().sent);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineAuthChoice,
    testing::Values(Choice{"Both", {"AUTH LOGIN PLAIN"}, "ann", "secret", kAuthPlain},
                    Choice{"PlainOnly", {"AUTH PLAIN"}, "ann", "secret", kAuthPlain},
                    Choice{"LoginOnly", {"AUTH LOGIN"}, "ann", "secret", kAuthLogin},
                    Choice{"PlainOnALaterLine", {"AUTH LOGIN", "AUTH PLAIN"}, "ann", "secret", kAuthPlain},
                    Choice{"Nothing", {}, "ann", "secret", ""},
                    Choice{"OnlyOthers", {"AUTH CRAM-MD5 DIGEST-MD5"}, "ann", "secret", ""},
                    Choice{"NoPassword", {"AUTH LOGIN PLAIN"}, "ann", "", ""},
                    Choice{"NoUser", {"AUTH LOGIN PLAIN"}, "", "secret", ""},
                    Choice{"NoCredentials", {"AUTH LOGIN PLAIN"}, "", "", ""}),
    [](const auto& each) { return each.param.name; });

struct FlagChoice {
    const char* name;
    bool plain, login;
    std::string sent;

    friend void PrintTo(const FlagChoice& each, std::ostream* out) { *out << each.name; }
};

class EngineAuthFlags : public testing::TestWithParam<FlagChoice> {};

TEST_P(EngineAuthFlags, DecideTheMechanism) {
    Exchange exchange;
    exchange.engine.m_job.bAuthPlain = GetParam().plain;
    exchange.engine.m_job.bAuthLogin = GetParam().login;
    exchange.engine.Authorize();
    EXPECT_EQ(exchange.sent(), GetParam().sent);
}

INSTANTIATE_TEST_SUITE_P(All, EngineAuthFlags,
                         testing::Values(FlagChoice{"None", false, false, ""},
                                         FlagChoice{"Plain", true, false, kAuthPlain},
                                         FlagChoice{"Login", false, true, kAuthLogin},
                                         FlagChoice{"Both", true, true, kAuthPlain}),
                         [](const auto& each) { return each.param.name; });

struct PlainCase {
    const char* name;
    std::string first, second;
    Outcome outcome;
    std::string sent;

    friend void PrintTo(const PlainCase& each, std::ostream* out) { *out << each.name; }
};

class EnginePlainLogin : public testing::TestWithParam<PlainCase> {};

TEST_P(EnginePlainLogin, GoesOnUnlessRefused) {
    Exchange exchange;
    exchange.server.on(step::AuthPlain).reply(GetParam().second);
    exchange.server.on("AUTH").reply(GetParam().first);
    bool result = false;
    EXPECT_EQ(OutcomeOf([&] { result = exchange.engine.DoPlainLogin(exchange.engine.m_job); }),
              GetParam().outcome);
    EXPECT_EQ(result, GetParam().outcome == Fine());
    EXPECT_EQ(exchange.sent(), GetParam().sent);
    EXPECT_EQ(exchange.server.openConnections(), 1);
    exchange.expectNothingRecorded();
}

INSTANTIATE_TEST_SUITE_P(
    All, EnginePlainLogin,
    testing::Values(
        PlainCase{"Accepted", "334 \r\n", "235 welcome\r\n", Fine(), kAuthPlain},
        PlainCase{"AnyChallenge", "334 VXNlcm5hbWU6\r\n", "235 welcome\r\n", Fine(), kAuthPlain},
        PlainCase{"OddChallenge", "what\r\n", "235 welcome\r\n", Fine(), kAuthPlain},
        PlainCase{"ThreeHundredAtTheEnd", "334 \r\n", "334 more\r\n", Fine(), kAuthPlain},
        PlainCase{"OddEnd", "334 \r\n", "what\r\n", Fine(), kAuthPlain},
        PlainCase{"RefusedAtOnce", "504 5.5.4 no\r\n", "", Smtp(504, "5.5.4 no\r\n"), "AUTH PLAIN\r\n"},
        PlainCase{"RefusedForNow", "454 4.7.0 no\r\n", "", Smtp(454, "4.7.0 no\r\n"), "AUTH PLAIN\r\n"},
        PlainCase{"WrongPassword", "334 \r\n", "535 5.7.8 no\r\n", Smtp(535, "5.7.8 no\r\n"), kAuthPlain},
        PlainCase{"WrongPasswordInTwoLines", "334 \r\n", "535-5.7.8 no\r\n535 5.7.8 never\r\n",
                  Smtp(535, "5.7.8 no\r\n535 5.7.8 never\r\n"), kAuthPlain},
        PlainCase{"MutilatedRefusal", "334 \r\n", "535", OutOfRange(), kAuthPlain}),
    [](const auto& each) { return each.param.name; });

TEST(EngineAuth, ATwoHundredToAuthPlainDoesNotEndTheExchangeEither) {
    Exchange exchange;
    exchange.server.on(step::Any).reply("250 ok\r\n");
    EXPECT_TRUE(exchange.engine.DoPlainLogin(exchange.engine.m_job));
    EXPECT_EQ(exchange.sent(), kAuthPlain);
}

struct LongCredentials {
    const char* name;
    std::string user, password;
    std::string line;

    friend void PrintTo(const LongCredentials& each, std::ostream* out) { *out << each.name; }
};

class EngineCredentials : public testing::TestWithParam<LongCredentials> {};

TEST_P(EngineCredentials, AreEncodedWithLineEndsAfter76Characters) {
    Exchange exchange(GetParam().user, GetParam().password);
    exchange.server.on(step::Any).reply("250 ok\r\n");
    EXPECT_TRUE(exchange.engine.DoPlainLogin(exchange.engine.m_job));
    exchange.expectSent("AUTH PLAIN\r\n" + GetParam().line);
}

std::string Repeated(const std::string& text, int times) {
    std::string result;
    for (int n = 0; n < times; ++n) {
        result += text;
    }
    return result;
}

// 27 times "a", NUL, 28 times "b": 57 bytes with the NUL in front, exactly one line.
INSTANTIATE_TEST_SUITE_P(
    All, EngineCredentials,
    testing::Values(LongCredentials{"OneByteEach", "a", "b", "AGEAYg==\r\n"},
                    LongCredentials{"Utf8", "\xC3\xA4", "\xC3\xB6", "AMOkAMO2\r\n"},
                    LongCredentials{"FullLine", std::string(27, 'a'), std::string(28, 'b'),
                                    "AGFh" + Repeated("YWFh", 8) + "YQBi" + Repeated("YmJi", 9) + "\r\n"},
                    LongCredentials{
                        "OneByteMore", std::string(27, 'a'), std::string(29, 'b'),
                        "AGFh" + Repeated("YWFh", 8) + "YQBi" + Repeated("YmJi", 9) + "\r\nYg==\r\n"}),
    [](const auto& each) { return each.param.name; });

struct LoginCase {
    const char* name;
    std::vector<std::string> replies;
    Outcome outcome;
    bool result;
    int code;  ///< 0: nothing recorded
    std::string sent;

    friend void PrintTo(const LoginCase& each, std::ostream* out) { *out << each.name; }
};

class EngineLogin : public testing::TestWithParam<LoginCase> {};

TEST_P(EngineLogin, TakesItsSteps) {
    Exchange exchange;
    const char* const steps[] = {"AUTH", step::AuthUser, step::AuthPassword};
    for (std::size_t n = 0; n < GetParam().replies.size(); ++n) {
        exchange.server.on(steps[n]).reply(GetParam().replies[n]);
    }
    bool result = false;
    EXPECT_EQ(OutcomeOf([&] { result = exchange.engine.DoLogin(exchange.engine.m_job); }),
              GetParam().outcome);
    EXPECT_EQ(result, GetParam().result);
    EXPECT_EQ(exchange.sent(), GetParam().sent);
    EXPECT_EQ(exchange.server.openConnections(), 1);
    if (GetParam().code == 0) {
        exchange.expectNothingRecorded();
    } else {
        EXPECT_EQ(exchange.engine.m_nLastError, GetParam().code);
        EXPECT_EQ(exchange.engine.m_strLastError, GetParam().replies.back());
    }
}

const std::string kAuth = "AUTH LOGIN\r\n";
const std::string kAuthUser = "AUTH LOGIN\r\nYW5u\r\n";

INSTANTIATE_TEST_SUITE_P(
    All, EngineLogin,
    testing::Values(
        LoginCase{"Accepted", {kAskUser, kAskPassword, "235 ok\r\n"}, Fine(), true, 0, kAuthLogin},
        LoginCase{"AnyThreeHundred",
                  {"354-VXNlcm5hbWU6\r\n", "300 UGFzc3dvcmQ6\r\n", "250 ok\r\n"},
                  Fine(),
                  true,
                  0,
                  kAuthLogin},
        LoginCase{"NoPasswordWanted", {kAskUser, "235 ok\r\n"}, Fine(), true, 0, kAuthUser},
        LoginCase{"AcceptedAtOnce", {"235 ok\r\n"}, Fine(), false, 819, kAuth},
        LoginCase{"NoChallenge", {"what\r\n"}, Fine(), false, 819, kAuth},
        LoginCase{"LowerCaseUserName", {"334 dXNlcm5hbWU6\r\n"}, Fine(), false, 818, kAuth},
        LoginCase{"UserName", {"334 VXNlciBOYW1lAA==\r\n"}, Fine(), false, 818, kAuth},
        LoginCase{"BlankBehindUserName", {"334 VXNlcm5hbWU6IA==\r\n"}, Fine(), false, 818, kAuth},
        LoginCase{"PlainUserName", {"334 Username:\r\n"}, Fine(), false, 818, kAuth},
        LoginCase{"EmptyChallenge", {"334 \r\n"}, Fine(), false, 818, kAuth},
        LoginCase{"BareCode", {"334\r\n"}, Fine(), false, 818, kAuth},
        LoginCase{"PasswordFirst", {kAskPassword}, Fine(), false, 818, kAuth},
        LoginCase{"UserNameWithoutLineEnd", {"334 VXNlcm5hbWU6"}, Fine(), false, 818, kAuth},
        LoginCase{"UserNameWithTwoCharactersBehindIt",
                  {"334 VXNlcm5hbWU6==", "what\r\n"},
                  Fine(),
                  false,
                  0,
                  kAuthUser},
        LoginCase{
            "TwoLineChallenge", {"334-VXNlcm5hbWU6\r\n334 VXNlcm5hbWU6\r\n"}, Fine(), false, 818, kAuth},
        LoginCase{"ThreeCharacters", {"334"}, OutOfRange(), false, 0, kAuth},
        LoginCase{"RefusedAtOnce", {"504 no\r\n"}, Smtp(504, "no\r\n"), false, 0, kAuth},
        LoginCase{"BusyAtOnce", {"454 no\r\n"}, Smtp(454, "no\r\n"), false, 0, kAuth},
        LoginCase{"LowerCasePassword", {kAskUser, "334 cGFzc3dvcmQ6\r\n"}, Fine(), false, 817, kAuthUser},
        LoginCase{"EmptySecondChallenge", {kAskUser, "334 \r\n"}, Fine(), false, 817, kAuthUser},
        LoginCase{"UserNameAgain", {kAskUser, kAskUser}, Fine(), false, 817, kAuthUser},
        LoginCase{"OddReplyToTheUser", {kAskUser, "what\r\n"}, Fine(), false, 0, kAuthUser},
        LoginCase{"ThreeCharactersToTheUser", {kAskUser, "334"}, OutOfRange(), false, 0, kAuthUser},
        LoginCase{"UnknownUser", {kAskUser, "535 who\r\n"}, Smtp(535, "who\r\n"), false, 0, kAuthUser},
        LoginCase{"WrongPassword",
                  {kAskUser, kAskPassword, "535 no\r\n"},
                  Smtp(535, "no\r\n"),
                  false,
                  0,
                  kAuthLogin},
        LoginCase{"BusyAtTheEnd",
                  {kAskUser, kAskPassword, "454 no\r\n"},
                  Smtp(454, "no\r\n"),
                  false,
                  0,
                  kAuthLogin},
        LoginCase{"OddEnd", {kAskUser, kAskPassword, "what\r\n"}, Fine(), false, 0, kAuthLogin},
        LoginCase{
            "ThreeHundredAtTheEnd", {kAskUser, kAskPassword, "334 more\r\n"}, Fine(), false, 0, kAuthLogin}),
    [](const auto& each) { return each.param.name; });

TEST(EngineAuth, ALoginThatStopsHalfwayLeavesTheSessionUsable) {
    ScriptedSmtpServer server(Offering({"AUTH LOGIN"}));
    server.on("AUTH").reply("334 dXNlcm5hbWU6\r\n");
    server.on(step::AuthUser).reply("250 what is this\r\n");
    Engine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone);
    EXPECT_EQ(engine.m_nLastError, 818);
    EXPECT_EQ(engine.m_strLastError, "334 dXNlcm5hbWU6\r\n");
    EXPECT_EQ(server.connection().clientBytes(), kEhlo + "AUTH LOGIN\r\n");
    EXPECT_TRUE(engine.IsAlive());
}

TEST(EngineAuth, LongLoginAnswersAreBrokenAfter76Characters) {
    Exchange exchange(std::string(58, 'a'), "secret");
    exchange.server.on(step::Any).reply("250 ok\r\n");
    exchange.server.on("AUTH").reply(kAskUser);
    EXPECT_TRUE(exchange.engine.DoLogin(exchange.engine.m_job));
    exchange.expectSent("AUTH LOGIN\r\n" + Repeated("YWFh", 19) + "\r\nYQ==\r\n");
}

TEST(EngineAuth, AnAccountThatFillsTheWorkBufferIsStillWhole) {
    Exchange exchange(std::string(1023, 'a'), "secret");
    exchange.server.on(step::Any).reply("250 ok\r\n");
    exchange.server.on("AUTH").reply(kAskUser);
    EXPECT_TRUE(exchange.engine.DoLogin(exchange.engine.m_job));
    // 1023 bytes are 341 groups: 17 full lines of 19 and one of 18.
    exchange.expectSent("AUTH LOGIN\r\n" + Repeated(Repeated("YWFh", 19) + "\r\n", 17) +
                        Repeated("YWFh", 18) + "\r\n");
}

TEST(EngineAuth, AnAccountBeyondTheWorkBufferIsRefusedOrWhole) {
    Exchange exchange(std::string(3000, 'a'), "secret");
    exchange.server.on(step::Any).reply("250 ok\r\n");
    exchange.server.on("AUTH").reply(kAskUser);
    const Outcome outcome = OutcomeOf([&] { exchange.engine.DoLogin(exchange.engine.m_job); });
    if (outcome.kind == "smtp") {
        EXPECT_EQ(exchange.sent(), "AUTH LOGIN\r\n");
    } else {
        EXPECT_EQ(outcome, Fine());
        exchange.expectSent("AUTH LOGIN\r\n" + Repeated(Repeated("YWFh", 19) + "\r\n", 52) +
                            Repeated("YWFh", 12) + "\r\n");
    }
}

TEST(EngineAuth, TheServerReadsTheAccountInEitherForm) {
    for (const char* mechanism : {"PLAIN", "LOGIN"}) {
        ScriptedSmtpServer server(Offering({std::string("AUTH ") + mechanism}));
        Engine engine;
        engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone);
        const kvtest::ConnectionRecord record = server.connection();
        ASSERT_EQ(record.authentications.size(), 1U);
        EXPECT_EQ(record.authentications[0].mechanism, mechanism);
        EXPECT_EQ(record.authentications[0].user, "ann");
        EXPECT_EQ(record.authentications[0].password, "secret");
        EXPECT_TRUE(record.authentications[0].accepted);
    }
}

}  // namespace
