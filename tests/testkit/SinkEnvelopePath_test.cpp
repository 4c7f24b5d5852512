#include <gtest/gtest.h>

#include <string>

#include "sink/EnvelopePath.h"

using kvsink::checkMailbox;
using kvsink::MailboxFault;
using kvsink::parsePathArgument;

TEST(SinkEnvelopePathTest, MailboxAndParametersAreTakenApart) {
    const auto path = parsePathArgument("FROM:", "FROM:<a@b.example> SIZE=10 BODY=8BITMIME");
    ASSERT_TRUE(path);
    EXPECT_EQ(path->mailbox, "a@b.example");
    EXPECT_EQ(path->parameters, "SIZE=10 BODY=8BITMIME");
}

TEST(SinkEnvelopePathTest, KeywordIgnoresCaseAndSpacesBehindTheColonAreTolerated) {
    const auto path = parsePathArgument("FROM:", "from:  <a@b.example>");
    ASSERT_TRUE(path);
    EXPECT_EQ(path->mailbox, "a@b.example");
    EXPECT_EQ(path->parameters, "");
}

TEST(SinkEnvelopePathTest, NullPathIsEmpty) {
    const auto path = parsePathArgument("FROM:", "FROM:<>");
    ASSERT_TRUE(path);
    EXPECT_EQ(path->mailbox, "");
}

TEST(SinkEnvelopePathTest, QuotedBracketDoesNotEndThePath) {
    const auto path = parsePathArgument("TO:", R"(TO:<"a>\"b"@c.example>)");
    ASSERT_TRUE(path);
    EXPECT_EQ(path->mailbox, R"("a>\"b"@c.example)");
    EXPECT_EQ(checkMailbox(path->mailbox), MailboxFault::none);
}

TEST(SinkEnvelopePathTest, SourceRouteIsIgnored) {
    const auto path = parsePathArgument("TO:", "TO:<@one.example,@two.example:a@b.example>");
    ASSERT_TRUE(path);
    EXPECT_EQ(path->mailbox, "a@b.example");
}

TEST(SinkEnvelopePathTest, WrongFormsAreRefused) {
    EXPECT_FALSE(parsePathArgument("FROM:", ""));
    EXPECT_FALSE(parsePathArgument("FROM:", "FROM"));
    EXPECT_FALSE(parsePathArgument("FROM:", "TO:<a@b.example>"));
    EXPECT_FALSE(parsePathArgument("FROM:", "FROM:a@b.example"));
    EXPECT_FALSE(parsePathArgument("FROM:", "FROM:<a@b.example"));
    EXPECT_FALSE(parsePathArgument("FROM:", "FROM:<a@b.example>SIZE=1"));
    EXPECT_FALSE(parsePathArgument("FROM:", "FROM:<<a@b.example>>"));
}

TEST(SinkEnvelopePathTest, NamesWithAndWithoutDomainAreGood) {
    EXPECT_EQ(checkMailbox("a.b+c=d'e@b.example"), MailboxFault::none);
    EXPECT_EQ(checkMailbox("a@[127.0.0.1]"), MailboxFault::none);
    EXPECT_EQ(checkMailbox("Postmaster"), MailboxFault::none);
    EXPECT_EQ(checkMailbox(R"("John Smith"@b.example)"), MailboxFault::none);
}

TEST(SinkEnvelopePathTest, BadSyntaxIsFound) {
    EXPECT_EQ(checkMailbox(""), MailboxFault::syntax);
    EXPECT_EQ(checkMailbox("@b.example"), MailboxFault::syntax);
    EXPECT_EQ(checkMailbox("a@"), MailboxFault::syntax);
    EXPECT_EQ(checkMailbox("a b@c.example"), MailboxFault::syntax);
    EXPECT_EQ(checkMailbox("a\tb@c.example"), MailboxFault::syntax);
    EXPECT_EQ(checkMailbox("a\rb@c.example"), MailboxFault::syntax);
    EXPECT_EQ(checkMailbox("<a@c.example"), MailboxFault::syntax);
    EXPECT_EQ(checkMailbox("\"a@c.example"), MailboxFault::syntax);
}

TEST(SinkEnvelopePathTest, LengthLimitIs254) {
    const std::string domain = "@b.example";
    EXPECT_EQ(checkMailbox(std::string(254 - domain.size(), 'a') + domain), MailboxFault::none);
    EXPECT_EQ(checkMailbox(std::string(255 - domain.size(), 'a') + domain), MailboxFault::tooLong);
}

TEST(SinkEnvelopePathTest, EightBitCharactersAreFound) {
    EXPECT_EQ(checkMailbox("m\xC3\xBCller@b.example"), MailboxFault::notAscii);
}
