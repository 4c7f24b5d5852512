#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SinkClient.h"
#include "sink/Session.h"

using testing::HasSubstr;
using testing::Not;

namespace {

/// A session without a socket; say() hands over input as far as it is taken and returns the replies.
class SinkSessionTest : public testing::Test {
protected:
    std::string say(const std::string& input) {
        if (!m_session) {
            m_session.emplace(m_service, "127.0.0.1");
        }
        std::string replies;
        m_unread += input;
        while (const std::size_t taken = m_session->consume(m_unread, replies)) {
            m_unread.erase(0, taken);
        }
        return replies;
    }

    /// Brings the session to where MAIL is awaited.
    void greet() { say("EHLO client.example\r\n"); }
    /// Brings the session to where RCPT is awaited.
    void beginMail() {
        greet();
        say("MAIL FROM:<from@a.example>\r\n");
    }
    /// Brings the session to where the content is awaited.
    void beginContent() {
        beginMail();
        say("RCPT TO:<to@b.example>\r\nDATA\r\n");
    }
    void startTls() {
        say("STARTTLS\r\n");
        m_session->tlsStarted();
    }
    void offerTls() {
        m_options.selfSignedDir = m_directory.path();
        m_service.tls = &m_tls.emplace(m_options);
    }
    void offerAuth() { m_options.accounts = {{"u", "p"}}; }

    const sinktest::ScratchDirectory m_directory;
    kvsink::Options m_options;
    kvsink::Counters m_counters;
    kvsink::Service m_service{m_options, m_counters};
    std::optional<kvsink::TlsContext> m_tls;
    std::optional<kvsink::Session> m_session;
    std::string m_unread;
};

const char GOOD_LOGIN[] = "AUTH PLAIN AHUAcA==\r\n";

}  // namespace

TEST_F(SinkSessionTest, GreetingNamesHostAndProtocol) {
    std::string out;
    kvsink::Session(m_service, "127.0.0.1").greet(out);
    EXPECT_EQ(out, "220 localhost ESMTP kvsink\r\n");
}

TEST_F(SinkSessionTest, EhloListsTheExtensions) {
    EXPECT_EQ(say("EHLO [127.0.0.1]\r\n"),
              "250-localhost\r\n250-PIPELINING\r\n250-SIZE 33554432\r\n250-8BITMIME\r\n"
              "250-ENHANCEDSTATUSCODES\r\n250 HELP\r\n");
}

TEST_F(SinkSessionTest, EhloOffersStartTlsAndAuthWhenTheyAreConfigured) {
    offerTls();
    offerAuth();
    const std::string reply = say("EHLO client.example\r\n");
    EXPECT_THAT(reply, HasSubstr("250-STARTTLS\r\n"));
    EXPECT_THAT(reply, HasSubstr("250-AUTH PLAIN LOGIN\r\n"));
}

TEST_F(SinkSessionTest, EhloWithinTlsDoesNotOfferStartTls) {
    offerTls();
    greet();
    startTls();
    EXPECT_THAT(say("EHLO client.example\r\n"), Not(HasSubstr("STARTTLS")));
}

TEST_F(SinkSessionTest, HeloGetsOneLine) {
    EXPECT_EQ(say("HELO client.example\r\n"), "250 localhost\r\n");
}

TEST_F(SinkSessionTest, EhloAndHeloNeedAName) {
    EXPECT_EQ(say("EHLO\r\n"), "501 5.5.4 Give the name or address of the client\r\n");
    EXPECT_EQ(say("HELO \r\n"), "501 5.5.4 Give the name or address of the client\r\n");
    EXPECT_EQ(say("EHLO a\tb\r\n"), "501 5.5.4 Give the name or address of the client\r\n");
}

TEST_F(SinkSessionTest, AMailFromEndToEnd) {
    beginMail();
    EXPECT_EQ(say("RCPT TO:<one@b.example>\r\n"), "250 2.1.5 Recipient ok\r\n");
    EXPECT_EQ(say("RCPT TO: <two@b.example>\r\n"), "250 2.1.5 Recipient ok\r\n");
    EXPECT_EQ(say("DATA\r\n"), "354 End the mail with <CRLF>.<CRLF>\r\n");
    EXPECT_EQ(say("Subject: x\r\n\r\ntext\r\n"), "");
    EXPECT_EQ(say(".\r\n"), "250 2.0.0 Counted\r\n");
    EXPECT_EQ(m_counters.read().mails, 1U);
    EXPECT_EQ(m_counters.read().recipients, 2U);
}

TEST_F(SinkSessionTest, ASessionTakesOneMailAfterAnother) {
    beginContent();
    EXPECT_EQ(say("one\r\n.\r\n"), "250 2.0.0 Counted\r\n");
    EXPECT_EQ(say("MAIL FROM:<>\r\n"), "250 2.1.0 Sender ok\r\n");
    EXPECT_EQ(say("DATA\r\n"), "554 5.5.1 No valid recipients\r\n");
    EXPECT_EQ(say("RCPT TO:<a@b.example>\r\nDATA\r\n.\r\n"),
              "250 2.1.5 Recipient ok\r\n354 End the mail with <CRLF>.<CRLF>\r\n250 2.0.0 Counted\r\n");
    EXPECT_EQ(m_counters.read().mails, 2U);
}

TEST_F(SinkSessionTest, VerbsIgnoreCaseAndTrailingSpaces) {
    EXPECT_EQ(say("noop  \r\n"), "250 2.0.0 Ok\r\n");
    EXPECT_EQ(say("hElO x \r\nmail from:<a@b.example>  \r\n"), "250 localhost\r\n250 2.1.0 Sender ok\r\n");
}

TEST_F(SinkSessionTest, PipelinedCommandsAreAnsweredInOrder) {
    EXPECT_EQ(say("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<bad>bad\r\nRCPT TO:<c@d.example>\r\nDATA\r\n"
                  "text\r\n.\r\nRSET\r\nQUIT\r\n"),
              "250 localhost\r\n250 2.1.0 Sender ok\r\n501 5.5.4 Syntax: RCPT TO:<address>\r\n"
              "250 2.1.5 Recipient ok\r\n354 End the mail with <CRLF>.<CRLF>\r\n250 2.0.0 Counted\r\n"
              "250 2.0.0 Ok\r\n221 2.0.0 Bye\r\n");
}

TEST_F(SinkSessionTest, InputByteByByteIsTheSame) {
    std::string replies;
    for (const char c : std::string("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\n"
                                    "text\r\n.\r\nQUIT\r\n")) {
        replies += say(std::string(1, c));
    }
    EXPECT_EQ(replies,
              "250 localhost\r\n250 2.1.0 Sender ok\r\n250 2.1.5 Recipient ok\r\n"
              "354 End the mail with <CRLF>.<CRLF>\r\n250 2.0.0 Counted\r\n221 2.0.0 Bye\r\n");
}

TEST_F(SinkSessionTest, MailBeforeEhloIsOutOfSequence) {
    EXPECT_EQ(say("MAIL FROM:<a@b.example>\r\n"), "503 5.5.1 Send EHLO or HELO first\r\n");
}

TEST_F(SinkSessionTest, RcptAndDataBeforeMailAreOutOfSequence) {
    greet();
    EXPECT_EQ(say("RCPT TO:<a@b.example>\r\n"), "503 5.5.1 Send MAIL first\r\n");
    EXPECT_EQ(say("DATA\r\n"), "503 5.5.1 Send MAIL first\r\n");
}

TEST_F(SinkSessionTest, SecondMailIsOutOfSequence) {
    beginMail();
    EXPECT_EQ(say("MAIL FROM:<a@b.example>\r\n"), "503 5.5.1 A mail is already under way\r\n");
}

TEST_F(SinkSessionTest, RsetForgetsTheMail) {
    beginMail();
    EXPECT_EQ(say("RSET\r\n"), "250 2.0.0 Ok\r\n");
    EXPECT_FALSE(m_session->mailUnderWay());
    EXPECT_EQ(say("RCPT TO:<a@b.example>\r\n"), "503 5.5.1 Send MAIL first\r\n");
}

TEST_F(SinkSessionTest, EhloForgetsTheMail) {
    beginMail();
    greet();
    EXPECT_EQ(say("DATA\r\n"), "503 5.5.1 Send MAIL first\r\n");
}

TEST_F(SinkSessionTest, BadAddressesAreRefused) {
    greet();
    EXPECT_EQ(say("MAIL FROM:a@b.example\r\n"), "501 5.5.4 Syntax: MAIL FROM:<address>\r\n");
    EXPECT_EQ(say("MAIL FROM:<a b@c.example>\r\n"), "501 5.1.7 Bad sender address\r\n");
    EXPECT_EQ(say("MAIL FROM:<" + std::string(300, 'a') + ">\r\n"), "501 5.1.3 Address too long\r\n");
    EXPECT_EQ(say("MAIL FROM:<\xFC@b.example>\r\n"), "553 5.6.7 Address must be ASCII\r\n");
    say("MAIL FROM:<a@b.example>\r\n");
    EXPECT_EQ(say("RCPT TO:<>\r\n"), "501 5.1.3 Bad recipient address\r\n");
    EXPECT_EQ(say("RCPT TO:<a@b.example> NOTIFY=NEVER\r\n"), "555 5.5.4 Parameter not recognised\r\n");
}

TEST_F(SinkSessionTest, ParametersOfMailAreChecked) {
    offerAuth();
    greet();
    EXPECT_EQ(say("MAIL FROM:<a@b.example> BODY=BINARYMIME\r\n"), "501 5.5.4 BODY is 7BIT or 8BITMIME\r\n");
    EXPECT_EQ(say("MAIL FROM:<a@b.example> SIZE=many\r\n"), "501 5.5.4 SIZE is a number of bytes\r\n");
    EXPECT_EQ(say("MAIL FROM:<a@b.example> SMTPUTF8\r\n"), "555 5.5.4 Parameter not recognised\r\n");
    EXPECT_EQ(say("MAIL FROM:<a@b.example> size=5 body=8bitmime AUTH=<>\r\n"), "250 2.1.0 Sender ok\r\n");
}

TEST_F(SinkSessionTest, DeclaredSizeOverTheLimitIsRefused) {
    m_options.maxSize = 100;
    greet();
    EXPECT_EQ(say("MAIL FROM:<a@b.example> SIZE=101\r\n"), "552 5.3.4 Mail too large\r\n");
    EXPECT_EQ(say("MAIL FROM:<a@b.example> SIZE=99999999999999999999\r\n"), "552 5.3.4 Mail too large\r\n");
    EXPECT_EQ(say("MAIL FROM:<a@b.example> SIZE=100\r\n"), "250 2.1.0 Sender ok\r\n");
    EXPECT_EQ(m_counters.read().refused, 2U);
}

TEST_F(SinkSessionTest, ActualSizeOverTheLimitIsRefusedAtTheEnd) {
    m_options.maxSize = 10;
    beginContent();
    EXPECT_EQ(say("123456789\r\n"), "");
    EXPECT_EQ(say(".\r\n"), "552 5.3.4 Mail too large\r\n");
    EXPECT_EQ(m_counters.read().mails, 0U);
    EXPECT_EQ(m_counters.read().refused, 1U);
}

TEST_F(SinkSessionTest, ActualSizeUpToTheLimitIsTakenAndStuffedDotsDoNotCount) {
    m_options.maxSize = 10;
    beginContent();
    EXPECT_EQ(say("..2345678\r\n.\r\n"), "250 2.0.0 Counted\r\n");
}

TEST_F(SinkSessionTest, WithoutALimitAnySizeMayBeDeclared) {
    m_options.maxSize = 0;
    EXPECT_THAT(say("EHLO x\r\n"), HasSubstr("250-SIZE 0\r\n"));
    EXPECT_EQ(say("MAIL FROM:<a@b.example> SIZE=18446744073709551615\r\n"), "250 2.1.0 Sender ok\r\n");
}

TEST_F(SinkSessionTest, NamedRecipientsAreRefusedWhateverTheirCase) {
    m_options.refused = {"nobody@b.example", "gone@b.example"};
    beginMail();
    EXPECT_EQ(say("RCPT TO:<Nobody@B.example>\r\n"), "550 5.1.1 No such recipient\r\n");
    EXPECT_EQ(say("RCPT TO:<gone@b.example>\r\n"), "550 5.1.1 No such recipient\r\n");
    EXPECT_EQ(say("RCPT TO:<somebody@b.example>\r\n"), "250 2.1.5 Recipient ok\r\n");
    EXPECT_EQ(m_counters.read().refused, 2U);
}

TEST_F(SinkSessionTest, AThousandRecipientsAreTaken) {
    beginMail();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(say("RCPT TO:<a@b.example>\r\n"), "250 2.1.5 Recipient ok\r\n");
    }
    EXPECT_EQ(say("RCPT TO:<a@b.example>\r\n"), "452 4.5.3 Too many recipients\r\n");
}

TEST_F(SinkSessionTest, CommandsWithoutArgumentsTakeNone) {
    beginMail();
    for (const char* verb : {"DATA", "RSET", "QUIT", "STARTTLS"}) {
        EXPECT_EQ(say(verb + std::string(" now\r\n")), "501 5.5.4 No argument allowed\r\n") << verb;
    }
    EXPECT_FALSE(m_session->ended());
    EXPECT_EQ(say("NOOP anything\r\n"), "250 2.0.0 Ok\r\n");
}

TEST_F(SinkSessionTest, MinorVerbs) {
    EXPECT_EQ(say("VRFY anna\r\n"), "252 2.1.5 Not verified; send mail to find out\r\n");
    EXPECT_EQ(say("VRFY\r\n"), "501 5.5.4 Name a recipient\r\n");
    EXPECT_EQ(say("EXPN list\r\n"), "502 5.5.1 EXPN is not implemented\r\n");
    EXPECT_EQ(say("HELP\r\n"),
              "214 2.0.0 EHLO HELO STARTTLS AUTH MAIL RCPT DATA RSET NOOP VRFY HELP QUIT\r\n");
    EXPECT_EQ(say("TURN\r\n"), "500 5.5.1 Command not recognised\r\n");
    EXPECT_EQ(say("\r\n"), "500 5.5.1 Command not recognised\r\n");
}

TEST_F(SinkSessionTest, QuitEndsTheSession) {
    EXPECT_EQ(say("QUIT\r\n"), "221 2.0.0 Bye\r\n");
    EXPECT_TRUE(m_session->ended());
}

TEST_F(SinkSessionTest, LineEndsWithoutCarriageReturnAreRefused) {
    EXPECT_EQ(say("NOOP\nNOOP\r\n"), "500 5.5.2 Lines end with CR LF\r\n250 2.0.0 Ok\r\n");
    EXPECT_EQ(say("\n"), "500 5.5.2 Lines end with CR LF\r\n");
}

TEST_F(SinkSessionTest, CommandLinesMayHave2048Octets) {
    const std::string longest = "NOOP " + std::string(2048 - 7, 'x') + "\r\n";
    EXPECT_EQ(say(longest), "250 2.0.0 Ok\r\n");
    EXPECT_EQ(say("x" + longest + "NOOP\r\n"), "500 5.5.2 Line too long\r\n250 2.0.0 Ok\r\n");
}

TEST_F(SinkSessionTest, OverlongLineIsDroppedAsItComes) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(say(std::string(5000, 'x')), "");
        EXPECT_EQ(m_unread, "");
    }
    EXPECT_EQ(say("\r\nNOOP\r\n"), "500 5.5.2 Line too long\r\n250 2.0.0 Ok\r\n");
}

TEST_F(SinkSessionTest, AuthLinesMayHave12288Octets) {
    offerAuth();
    greet();
    const std::string tooLongForOthers(8000, 'A');
    EXPECT_EQ(say("AUTH PLAIN " + tooLongForOthers + "\r\n"), "501 5.5.2 Cannot decode the response\r\n");
    say("AUTH LOGIN\r\n");
    EXPECT_EQ(say(tooLongForOthers + "\r\n"), "334 UGFzc3dvcmQ6\r\n");
    EXPECT_EQ(say(std::string(12288, 'A') + "\r\n"), "500 5.5.2 Line too long\r\n");
    EXPECT_EQ(say("NOOP\r\n"), "250 2.0.0 Ok\r\n");
}

TEST_F(SinkSessionTest, TextLinesOfAMailMayHaveAnyLength) {
    beginContent();
    EXPECT_EQ(say(std::string(100'000, 'x') + "\r\n.\r\n"), "250 2.0.0 Counted\r\n");
}

TEST_F(SinkSessionTest, StartTlsIsToldOnlyWhereItIsOffered) {
    greet();
    EXPECT_EQ(say("STARTTLS\r\n"), "502 5.5.1 STARTTLS is not offered\r\n");
    EXPECT_FALSE(m_session->tlsRequested());
}

TEST_F(SinkSessionTest, StartTlsNeedsEhloAndWorksOnce) {
    offerTls();
    EXPECT_EQ(say("STARTTLS\r\n"), "503 5.5.1 Send EHLO first\r\n");
    greet();
    EXPECT_EQ(say("STARTTLS\r\n"), "220 2.0.0 Ready to start TLS\r\n");
    EXPECT_TRUE(m_session->tlsRequested());
    m_session->tlsStarted();
    greet();
    EXPECT_EQ(say("STARTTLS\r\n"), "503 5.5.1 TLS is already active\r\n");
}

TEST_F(SinkSessionTest, StartTlsForgetsWhatWasSaidBefore) {
    offerTls();
    offerAuth();
    greet();
    EXPECT_EQ(say(GOOD_LOGIN), "235 2.7.0 Authentication successful\r\n");
    say("MAIL FROM:<a@b.example>\r\n");
    startTls();
    EXPECT_EQ(say("MAIL FROM:<a@b.example>\r\n"), "503 5.5.1 Send EHLO or HELO first\r\n");
    greet();
    EXPECT_EQ(say("RCPT TO:<a@b.example>\r\n"), "503 5.5.1 Send MAIL first\r\n");
    EXPECT_EQ(say(GOOD_LOGIN), "235 2.7.0 Authentication successful\r\n");
}

TEST_F(SinkSessionTest, RequiredTlsIsDemandedOfAllButFourCommands) {
    offerTls();
    m_options.requireTls = true;
    greet();
    const std::string demand = "530 5.7.0 Must issue a STARTTLS command first\r\n";
    for (const char* line : {"HELO x", "MAIL FROM:<a@b.example>", "RCPT TO:<a@b.example>", "DATA", "RSET",
                             "VRFY x", "HELP", "AUTH PLAIN"}) {
        EXPECT_EQ(say(line + std::string("\r\n")), demand) << line;
    }
    EXPECT_EQ(say("NOOP\r\n"), "250 2.0.0 Ok\r\n");
    startTls();
    greet();
    EXPECT_EQ(say("MAIL FROM:<a@b.example>\r\n"), "250 2.1.0 Sender ok\r\n");
}

TEST_F(SinkSessionTest, AuthIsNotOfferedInClearWhereTlsIsRequired) {
    offerTls();
    offerAuth();
    m_options.requireTls = true;
    EXPECT_THAT(say("EHLO x\r\n"), Not(HasSubstr("AUTH")));
    startTls();
    EXPECT_THAT(say("EHLO x\r\n"), HasSubstr("250-AUTH PLAIN LOGIN\r\n"));
}

TEST_F(SinkSessionTest, RequiredAuthIsDemandedOfMailCommands) {
    offerAuth();
    m_options.requireAuth = true;
    greet();
    const std::string demand = "530 5.7.0 Authentication required\r\n";
    for (const char* line : {"MAIL FROM:<a@b.example>", "RCPT TO:<a@b.example>", "DATA", "VRFY x"}) {
        EXPECT_EQ(say(line + std::string("\r\n")), demand) << line;
    }
    EXPECT_EQ(say("RSET\r\n"), "250 2.0.0 Ok\r\n");
    EXPECT_EQ(say(GOOD_LOGIN), "235 2.7.0 Authentication successful\r\n");
    EXPECT_EQ(say("MAIL FROM:<a@b.example>\r\n"), "250 2.1.0 Sender ok\r\n");
}

TEST_F(SinkSessionTest, AuthPlainAsksWithAnEmptyChallenge) {
    offerAuth();
    greet();
    EXPECT_EQ(say("AUTH PLAIN\r\n"), "334 \r\n");
    EXPECT_EQ(say("AHUAcA==\r\n"), "235 2.7.0 Authentication successful\r\n");
}

TEST_F(SinkSessionTest, AuthLoginAsksForUsernameAndPassword) {
    offerAuth();
    greet();
    EXPECT_EQ(say("AUTH LOGIN\r\n"), "334 VXNlcm5hbWU6\r\n");
    EXPECT_EQ(say("dQ==\r\n"), "334 UGFzc3dvcmQ6\r\n");
    EXPECT_EQ(say("cA==\r\n"), "235 2.7.0 Authentication successful\r\n");
}

TEST_F(SinkSessionTest, AuthLoginTakesTheNameAsInitialResponse) {
    offerAuth();
    greet();
    EXPECT_EQ(say("AUTH LOGIN dQ==\r\n"), "334 UGFzc3dvcmQ6\r\n");
    EXPECT_EQ(say("cA==\r\n"), "235 2.7.0 Authentication successful\r\n");
}

TEST_F(SinkSessionTest, AuthFailuresAreTold) {
    offerAuth();
    greet();
    EXPECT_EQ(say("AUTH PLAIN AHUAcQ==\r\n"), "535 5.7.8 Authentication credentials invalid\r\n");
    EXPECT_EQ(say("AUTH PLAIN AHUA\r\n"), "535 5.7.8 Authentication credentials invalid\r\n");
    EXPECT_EQ(say("AUTH PLAIN !\r\n"), "501 5.5.2 Cannot decode the response\r\n");
    EXPECT_EQ(say("AUTH CRAM-MD5\r\n"), "504 5.5.4 Mechanism not recognised\r\n");
    EXPECT_EQ(say("AUTH\r\n"), "501 5.5.4 Name a mechanism\r\n");
}

TEST_F(SinkSessionTest, AuthCanBeCancelled) {
    offerAuth();
    greet();
    say("AUTH LOGIN\r\n");
    EXPECT_EQ(say("*\r\n"), "501 5.7.0 Authentication cancelled\r\n");
    EXPECT_EQ(say("NOOP\r\n"), "250 2.0.0 Ok\r\n");
}

TEST_F(SinkSessionTest, AuthOutOfSequenceIsRefused) {
    EXPECT_EQ(say(GOOD_LOGIN), "502 5.5.1 AUTH is not offered\r\n");
    offerAuth();
    EXPECT_EQ(say(GOOD_LOGIN), "503 5.5.1 Send EHLO first\r\n");
    beginMail();
    EXPECT_EQ(say(GOOD_LOGIN), "503 5.5.1 AUTH is not allowed during a mail\r\n");
    say("RSET\r\n");
    EXPECT_EQ(say(GOOD_LOGIN), "235 2.7.0 Authentication successful\r\n");
    EXPECT_EQ(say(GOOD_LOGIN), "503 5.5.1 Already authenticated\r\n");
}

TEST_F(SinkSessionTest, DismissalTellsTheReasonAndEndsTheSession) {
    greet();
    std::string idle;
    std::string stopping;
    m_session->dismiss(false, idle);
    m_session->dismiss(true, stopping);
    EXPECT_EQ(idle, "421 4.4.2 Idle for too long\r\n");
    EXPECT_EQ(stopping, "421 4.3.2 Shutting down\r\n");
    EXPECT_TRUE(m_session->ended());
}
