#include <gtest/gtest.h>

#include <string>

#include "TestCertificates.h"
#include "hostile/HostileDelivery.h"
#include "hostile/VirtualTime.h"

// Servers that offer an authentication and then do not mean it, in clear and inside TLS.

namespace {

using namespace kvtest;

constexpr const char* kUser = "YW5u";          // ann
constexpr const char* kPassword = "c2VjcmV0";  // secret

class HostileAuthTest : public testing::TestWithParam<bool> {
protected:
    bool InsideTls() const { return GetParam(); }
    SmtpServerOptions Offering(const std::string& mechanisms) const {
        return OfferingAccount(InsideTls(), mechanisms);
    }
    Outcome DeliverTo(ScriptedSmtpServer& server) {
        HostDoubles host;
        return DeliverTo(server, host);
    }
    Outcome DeliverTo(ScriptedSmtpServer& server, HostDoubles& host) {
        return Deliver(server, WithAccount(JobFor(server, InsideTls())), host);
    }
};

bool Said(const ScriptedSmtpServer& server, const std::string& text) {
    for (int number = 1; number <= server.acceptedConnections(); ++number) {
        if (server.connection(number).clientBytes().find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_P(HostileAuthTest, ARefusalAtAnyStepOfLoginFailsTheConnectionAndIsLogged) {
    for (const char* refused : {"AUTH", step::AuthUser, step::AuthPassword}) {
        ScriptedSmtpServer server(Offering("LOGIN"));
        server.on(refused).reply("535 5.7.8 no\r\n");
        HostDoubles host;
        EXPECT_EQ(DeliverTo(server, host), NotConnected()) << refused;
        EXPECT_TRUE(host.log.has(Severity::Error, "Error: 5.7.8 no\r\n"));
        EXPECT_FALSE(Said(server, "MAIL"));
    }
}

TEST_P(HostileAuthTest, WrongCredentialsFailTheConnectionBeforeAnyMail) {
    for (const char* mechanism : {"PLAIN", "LOGIN"}) {
        SmtpServerOptions options = Offering(mechanism);
        options.accounts = {{"ann", "another"}};
        ScriptedSmtpServer server(options);
        EXPECT_EQ(DeliverTo(server), NotConnected()) << mechanism;
        EXPECT_FALSE(Said(server, "MAIL"));
    }
}

TEST_P(HostileAuthTest, AMechanismThatIsOfferedAndNotKnownFailsTheConnectionBeforeTheCredentials) {
    for (const char* mechanism : {"PLAIN", "LOGIN"}) {
        ScriptedSmtpServer server(Offering(mechanism));
        server.on("AUTH").reply("504 5.5.4 mechanism not supported\r\n");
        EXPECT_EQ(DeliverTo(server), NotConnected()) << mechanism;
        EXPECT_FALSE(Said(server, kUser));
    }
}

/// The user name is not sent: the probe stands in its place, and MAIL in that of the password.
TEST_P(HostileAuthTest, AfterAStrangeFirstChallengeTheMailIsTakenForAPasswordAndFailsTheJob) {
    const std::string huge = "334 " + std::string(994, 'A') + "\r\n";
    for (const std::string challenge :
         {"334 ####\r\n", "334 \r\n", "334 x\r\n", "334 \r", "334 VXNlcm5hbWU6", "334 dXNlcm5hbWU6\r\n",
          "334 TG9naW46\r\n", "334 UGFzc3dvcmQ6\r\n", "399 VXNlcg==\r\n", huge.c_str()}) {
        ScriptedSmtpServer server(Offering("LOGIN"));
        server.on("AUTH").reply(challenge);
        EXPECT_EQ(DeliverTo(server), Failed("5.5.2 cannot read the credentials\r\n")) << challenge;
        EXPECT_FALSE(Said(server, kUser)) << challenge;
        EXPECT_FALSE(Said(server, kPassword)) << challenge;
    }
}

/// Here it is the probe that is taken for a password, so that the same happens on a second connection, with MAIL.
TEST_P(HostileAuthTest, AfterAStrangeSecondChallengeTheJobFailsOnTheSecondConnection) {
    for (const std::string challenge : {"334 ####\r\n", "334 \r\n", "334 VXNlcm5hbWU6\r\n"}) {
        ScriptedSmtpServer server(Offering("LOGIN"));
        server.on(step::AuthUser).reply(challenge);
        EXPECT_EQ(DeliverTo(server), Failed("5.5.2 cannot read the credentials\r\n")) << challenge;
        EXPECT_EQ(server.acceptedConnections(), 2);
        EXPECT_FALSE(Said(server, kPassword)) << challenge;
    }
}

TEST_P(HostileAuthTest, AChallengeOfThreeCharactersFailsTheConnection) {
    for (const char* cut : {"AUTH", step::AuthUser}) {
        ScriptedSmtpServer server(Offering("LOGIN"));
        server.on(cut).reply("334");
        HostDoubles host;
        EXPECT_EQ(DeliverTo(server, host), NotConnected()) << cut;
        EXPECT_TRUE(host.log.has(Severity::Error, "Unknown error Occurred."));
    }
}

TEST_P(HostileAuthTest, AChallengeThatDoesNotEndIsReadAsTheReplyToEachCommand) {
    ScriptedSmtpServer server(Offering("LOGIN"));
    server.on("AUTH").reply("334 " + std::string(1000000, 'A'));
    EXPECT_EQ(DeliverTo(server), Completed());
    EXPECT_FALSE(Said(server, kUser));
}

TEST_P(HostileAuthTest, TheChallengeOfPlainIsNotLookedAt) {
    for (const char* challenge : {"334 ####\r\n", "334", "399 VXNlcg==\r\n"}) {
        ScriptedSmtpServer server(Offering("PLAIN"));
        server.on("AUTH").reply(challenge);
        EXPECT_EQ(DeliverTo(server), Completed()) << challenge;
    }
}

TEST_P(HostileAuthTest, SilenceAtAnyStepIsAMinuteLong) {
    for (const char* silent : {"AUTH", step::AuthPlain}) {
        ScriptedSmtpServer server(Offering("PLAIN"));
        server.on(silent).answer([](const CommandContext&) { return SilentFor(std::chrono::seconds(60)); });
        const auto before = VirtualTime::Passed();
        EXPECT_EQ(DeliverTo(server), Completed()) << silent;
        EXPECT_EQ(VirtualTime::Passed() - before, std::chrono::seconds(60));
    }
}

INSTANTIATE_TEST_SUITE_P(All, HostileAuthTest, testing::Bool(),
                         [](const auto& instance) { return instance.param ? "InsideTls" : "InClear"; });

TEST(WithdrawnOfferTest, AMechanismOfferedInClearAloneIsTriedInsideTlsAndItsRefusalFailsTheConnection) {
    SmtpServerOptions options = OfferingAccount(true);
    options.extensions = {{"STARTTLS", "AUTH PLAIN"}};
    options.extensionsInsideTls = std::vector<std::string>();
    ScriptedSmtpServer server(options);
    server.on("AUTH").reply("503 5.5.1 authentication not enabled\r\n");
    EXPECT_EQ(Deliver(server, WithAccount(JobFor(server, true))), NotConnected());
    for (const CommandRecord& command : server.connection().commands) {
        EXPECT_TRUE(command.insideTls || command.step != "AUTH");
    }
    EXPECT_FALSE(Said(server, "AGFubg"));
}

/// The driver repeats AUTH for as long as the server answers it with that demand.
TEST(StartTlsDemandTest, AServerThatDemandsStartTlsAThousandTimesAtAuthIsAskedAThousandTimes) {
    ScriptedSmtpServer server(OfferingAccount());
    server.on("AUTH").times(1000).reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    EXPECT_EQ(Deliver(server, WithAccount(JobFor(server)).security(SMTP_SECURITY_ON_DEMAND)), Completed());
    EXPECT_EQ(server.commandCount("AUTH"), 1001);
}

TEST(StartTlsDemandTest, InAnyOtherSettingTheFirstDemandAtAuthFailsTheConnection) {
    for (const SmtpSecurityType security : {SMTP_SECURITY_CLEAR, SMTP_SECURITY_IF_AVAILABLE}) {
        ScriptedSmtpServer server(OfferingAccount());
        server.on("AUTH").reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
        EXPECT_EQ(Deliver(server, WithAccount(JobFor(server)).security(security)), NotConnected());
        EXPECT_EQ(server.commandCount("AUTH"), 1);
    }
}

/// The handshake is done anew inside the connection each time.
TEST(StartTlsDemandTest, AServerThatDemandsStartTlsTwentyTimesAtMailIsObeyedTwentyTimes) {
    SmtpServerOptions options = OfferingAccount(true);
    ScriptedSmtpServer server(options);
    server.on("MAIL").times(20).reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    server.on("STARTTLS").reply("220 again\r\n");
    EXPECT_EQ(
        Deliver(server,
                JobFor(server).caFile(TestCertificates::Shared().caFile()).security(SMTP_SECURITY_ON_DEMAND)),
        Completed());
    EXPECT_EQ(server.commandCount("STARTTLS"), 20);
}

}  // namespace
