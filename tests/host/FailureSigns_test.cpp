#include <gtest/gtest.h>

#include "RetryDecision.h"

namespace kvhost {
namespace {

FailureClass PlainClassOf(std::string_view reason) {
    return ClassOf(reason, RetryPolicy());
}

void ExpectClass(FailureClass expected, std::initializer_list<const char*> reasons) {
    for (const char* reason : reasons) {
        EXPECT_STREQ(FailureClassName(PlainClassOf(reason)), FailureClassName(expected)) << reason;
    }
}

TEST(FailureSignsTest, EachClassHasAName) {
    EXPECT_STREQ(FailureClassName(FailureClass::Passing), "passing");
    EXPECT_STREQ(FailureClassName(FailureClass::Lasting), "lasting");
    EXPECT_STREQ(FailureClassName(FailureClass::Transport), "transport");
    EXPECT_STREQ(FailureClassName(FailureClass::Unclear), "unclear");
}

TEST(FailureSignsTest, AnEnhancedCodeOfTheFourthClassIsPassing) {
    ExpectClass(FailureClass::Passing, {"4.7.1 Greylisted\r\n", "4.2.2 mailbox unavailable", "4.0.0",
                                        "4.999.999\r\n", "4.3.2: later", " 4.3.2 a second blank",
                                        "#4.1.8 Domain of sender address", "4.4.2. timed out"});
}

TEST(FailureSignsTest, AnEnhancedCodeOfTheFifthClassIsLasting) {
    ExpectClass(FailureClass::Lasting, {"5.1.1 User unknown\r\n", "5.7.1 try again", "5.2.2 quota",
                                        "5.1.1<CR><LF>", "5.0.0\r\n550 2nd line"});
}

TEST(FailureSignsTest, AnEnhancedCodeOfSuccessInAFailureIsUnclear) {
    ExpectClass(FailureClass::Unclear, {"2.0.0 Ok\r\n", "2.1.5 user unknown\r\n"});
}

TEST(FailureSignsTest, NumbersThatAreNoEnhancedCodeTellNothing) {
    ExpectClass(FailureClass::Unclear,
                {"5.1 x", "5.1.x", "5.1.1.1 an address", "5.1.1000", "5.1.1a", "3.1.1 x", "51.1.1 x", "5..1",
                 "5.1.", "about 5.1.1 x", "5.1.1\xC3\xA9", "4"});
}

TEST(FailureSignsTest, TheCodeOfAFurtherLineCounts) {
    ExpectClass(FailureClass::Lasting, {"the recipient\r\n550 5.1.1 cannot be had\r\n",
                                        "the recipient\r\n550-5.1.1 cannot be had\r\n550 x\r\n",
                                        "the recipient<CR><LF>550 5.1.1 cannot be had", "one\n554 two\n",
                                        "one\r\n554-two\r\n554 three", "one\r\n554"});
    ExpectClass(FailureClass::Passing, {"busy man\r\n421 4.7.0 come back\r\n", "one\r\n451 two\r\n"});
}

TEST(FailureSignsTest, AnEnhancedCodeOutweighsTheReplyCode) {
    ExpectClass(FailureClass::Passing, {"550 4.2.1 account inactive", "x\r\n550 4.2.1 account inactive\r\n"});
    ExpectClass(FailureClass::Lasting, {"450 5.1.1 x", "4\r\n450-5.1.1 x"});
}

TEST(FailureSignsTest, AnEnhancedCodeOutweighsTheWords) {
    ExpectClass(FailureClass::Lasting, {"5.2.1 temporarily, try again"});
    ExpectClass(FailureClass::Passing, {"4.1.1 no such user"});
}

TEST(FailureSignsTest, NumbersInFurtherLinesThatAreNoReplyCodesTellNothing) {
    ExpectClass(FailureClass::Unclear, {"x\r\n5500 y", "x\r\n55 y", "x\r\n550y", "x\r\n250 y", "x 550 y"});
}

TEST(FailureSignsTest, TheTextsOfTheDriverAboutConnectionsAreTransport) {
    ExpectClass(FailureClass::Transport,
                {"Failed to create connection. Bad carrier configuration or carrier unreachable.",
                 "Messenger internal error.",
                 "Socket Read Error",
                 "Socket Write Error",
                 "Socket is closed",
                 "Socket Create Failed",
                 "Socket Unknown Type",
                 "Socket Unknown Remote Host",
                 "Socket Connecting Failed",
                 "SSL Socket Read Error",
                 "SSL Socket is closed",
                 "SSL Write Error",
                 "SSL creation failed.",
                 "SSL: Verify Location Failed",
                 "SSL: Setting Certificate file Failed",
                 "SSL: Setting Key file Failed",
                 "SSL: Private key does not match the certificate public key",
                 "SSL: Set SSL Failed",
                 "SSL: Set SSL Socket Failed",
                 "SSL: SSL Connect Failed. Details: SSL_ERROR_SYSCALL. Some I/O error occurred.  Error: x",
                 "SSL: Get Certificate Failed",
                 "SSL: Get Certificate Subject Name Failed",
                 "SSL: Get Certificate Issuer Failed",
                 "TLS Required but not supported",
                 "STARTTLS Failed after Must Start TLS Response"});
}

TEST(FailureSignsTest, ATextOfTheDriverInsideAReplyIsNone) {
    ExpectClass(FailureClass::Unclear, {"he said: Socket is closed", "socket is closed"});
}

TEST(FailureSignsTest, WordsOfServersWithoutEnhancedCodesAreKnown) {
    ExpectClass(FailureClass::Lasting,
                {"User unknown\r\n", "<a@b.example>: Recipient address rejected: User unknown in table",
                 "No such user here", "Requested action not taken: mailbox unavailable",
                 "Relay access denied", "relaying denied", "sorry, unable to relay for a@b.example",
                 "Message too large", "Malformed FROM email address: a<b"});
    ExpectClass(
        FailureClass::Passing,
        {"Greylisting in action, please come back later", "Please try again later", "temporarily unavailable",
         "Too many connections from your host", "sending rate exceeded", "user is over quota", "Mailbox full",
         "Requested action not taken: insufficient system storage",
         "mail.example SMTP command timeout - closing connection",
         "mail.example Service not available, closing transmission channel"});
}

TEST(FailureSignsTest, PassingWordsOutweighLastingOnes) {
    ExpectClass(FailureClass::Passing,
                {"mailbox unavailable, try again", "user unknown (temporary failure)"});
}

TEST(FailureSignsTest, WordsCountAsWholeWordsOnly) {
    ExpectClass(FailureClass::Unclear,
                {"corporate policy", "rated", "superuser unknowns", "retrying", "rate\xC3\xA9"});
}

TEST(FailureSignsTest, WhatSaysNothingIsUnclear) {
    ExpectClass(FailureClass::Unclear, {"", "\r\n", "no", "<CR><LF>", "Administrative prohibition"});
    EXPECT_EQ(PlainClassOf(std::string_view("\0\xFF\r\n", 4)), FailureClass::Unclear);
}

TEST(FailureSignsTest, TheTextsOfTheCarrierOutweighEverything) {
    RetryPolicy policy;
    policy.lasting = {"Blocked By Us"};
    policy.passing = {"5.7.606"};
    EXPECT_EQ(ClassOf("4.7.1 you are blocked by US\r\n", policy), FailureClass::Lasting);
    EXPECT_EQ(ClassOf("5.7.606 Access denied\r\n", policy), FailureClass::Passing);
    EXPECT_EQ(ClassOf("5.7.606 blocked by us", policy), FailureClass::Lasting);
    EXPECT_EQ(ClassOf("5.7.607 Access denied\r\n", policy), FailureClass::Lasting);
}

TEST(FailureSignsTest, TheTextsOfTheCarrierAreFoundInTheTextsOfTheDriverToo) {
    RetryPolicy policy;
    policy.lasting = {"bad carrier configuration"};
    EXPECT_EQ(
        ClassOf("Failed to create connection. Bad carrier configuration or carrier unreachable.", policy),
        FailureClass::Lasting);
}

TEST(FailureSignsTest, TheSignTellsWhatDecided) {
    RetryPolicy policy;
    policy.lasting = {"no\x1B[1m"};
    EXPECT_EQ(JudgeFailure("x\r\n452 4.2.2 full", policy).sign, "the server's code 4.2.2");
    EXPECT_EQ(JudgeFailure("x\r\n452 more", policy).sign, "the server's code 452");
    EXPECT_EQ(JudgeFailure("please TRY AGAIN", policy).sign, "the server's words \"try again\"");
    EXPECT_EQ(JudgeFailure("oh NO\x1B[1m", policy).sign, "the carrier's text \"no<ESC>[1m\"");
    EXPECT_EQ(JudgeFailure("Socket is closed", policy).sign, "no connection, or one that broke off");
    EXPECT_EQ(JudgeFailure("hm", policy).sign, "");
}

}  // namespace
}  // namespace kvhost
