#include "SmtpScript.h"

#include <gtest/gtest.h>

using kvtest::CommandContext;
using kvtest::Reply;
using kvtest::RuleBuilder;
using kvtest::SmtpScript;
using kvtest::Then;
namespace step = kvtest::step;

namespace {

CommandContext Step(const std::string& name) {
    CommandContext context;
    context.step = name;
    context.connection = 1;
    context.occurrence = 1;
    context.transaction = 1;
    context.defaultReply = "default";
    return context;
}

CommandContext Rcpt(const std::string& address) {
    CommandContext context = Step("RCPT");
    context.address = address;
    context.recipients = {address};
    return context;
}

std::string Answer(SmtpScript& script, const CommandContext& context) {
    return script.replyTo(context).bytes;
}

}  // namespace

TEST(SmtpScriptTest, WithoutARuleTheDefaultReplyIsGiven) {
    SmtpScript script;
    EXPECT_EQ(Answer(script, Step("NOOP")), "default");
}

TEST(SmtpScriptTest, ARuleHoldsForItsStepOnly) {
    SmtpScript script;
    RuleBuilder(script, "MAIL").reply("scripted");
    EXPECT_EQ(Answer(script, Step("MAIL")), "scripted");
    EXPECT_EQ(Answer(script, Step("RCPT")), "default");
}

TEST(SmtpScriptTest, ARuleForAnyStepHoldsForAll) {
    SmtpScript script;
    RuleBuilder(script, step::Any).reply("scripted");
    EXPECT_EQ(Answer(script, Step("MAIL")), "scripted");
    EXPECT_EQ(Answer(script, Step(step::Greeting)), "scripted");
}

TEST(SmtpScriptTest, TheRuleAddedLastWins) {
    SmtpScript script;
    RuleBuilder(script, "MAIL").occurrence(1).reply("first");
    RuleBuilder(script, "MAIL").reply("second");
    EXPECT_EQ(Answer(script, Step("MAIL")), "second");
}

TEST(SmtpScriptTest, NumbersMustAllMatch) {
    SmtpScript script;
    RuleBuilder(script, "MAIL").connection(2).occurrence(3).transaction(4).reply("scripted");
    CommandContext context = Step("MAIL");
    context.connection = 2;
    context.occurrence = 3;
    EXPECT_EQ(Answer(script, context), "default");
    context.transaction = 4;
    EXPECT_EQ(Answer(script, context), "scripted");
}

TEST(SmtpScriptTest, ATimesRuleIsUsedUp) {
    SmtpScript script;
    RuleBuilder(script, "MAIL").times(2).reply("scripted");
    EXPECT_EQ(Answer(script, Step("MAIL")), "scripted");
    EXPECT_EQ(Answer(script, Step("MAIL")), "scripted");
    EXPECT_EQ(Answer(script, Step("MAIL")), "default");
}

TEST(SmtpScriptTest, ATimesRuleIsNotUsedUpByStepsThatDoNotMatch) {
    SmtpScript script;
    RuleBuilder(script, "RCPT").recipient("bob@x").times(1).reply("scripted");
    EXPECT_EQ(Answer(script, Rcpt("ann@x")), "default");
    EXPECT_EQ(Answer(script, Rcpt("bob@x")), "scripted");
}

TEST(SmtpScriptTest, ARecipientRuleMatchesTheAddressOfThisRcptOnly) {
    SmtpScript script;
    RuleBuilder(script, "RCPT").recipient("bob@x").reply("scripted");
    CommandContext later = Rcpt("eve@x");
    later.recipients = {"bob@x", "eve@x"};
    EXPECT_EQ(Answer(script, Rcpt("bob@x")), "scripted");
    EXPECT_EQ(Answer(script, later), "default");
}

TEST(SmtpScriptTest, ARecipientRuleForTheEndOfDataMatchesAnyRecipientOfTheTransaction) {
    SmtpScript script;
    RuleBuilder(script, step::EndOfData).recipient("bob@x").reply("scripted");
    CommandContext end = Step(step::EndOfData);
    EXPECT_EQ(Answer(script, end), "default");
    end.recipients = {"ann@x", "bob@x"};
    EXPECT_EQ(Answer(script, end), "scripted");
}

TEST(SmtpScriptTest, ClearAndTlsConditionsExcludeEachOther) {
    SmtpScript script;
    RuleBuilder(script, "EHLO").inClear().reply("clear");
    RuleBuilder(script, "EHLO").insideTls().reply("tls");
    CommandContext context = Step("EHLO");
    EXPECT_EQ(Answer(script, context), "clear");
    context.insideTls = true;
    EXPECT_EQ(Answer(script, context), "tls");
}

TEST(SmtpScriptTest, AFunctionSeesTheContextAndMayBuildOnTheDefaultReply) {
    SmtpScript script;
    RuleBuilder(script, "NOOP").answer([](const CommandContext& context) {
        return Reply(context.defaultReply.bytes + "+" + context.step);
    });
    EXPECT_EQ(Answer(script, Step("NOOP")), "default+NOOP");
}

TEST(SmtpScriptTest, AFunctionMayAddARule) {
    SmtpScript script;
    RuleBuilder(script, "NOOP").answer([&](const CommandContext&) {
        RuleBuilder(script, "NOOP").reply("next");
        return Reply("now");
    });
    EXPECT_EQ(Answer(script, Step("NOOP")), "now");
    EXPECT_EQ(Answer(script, Step("NOOP")), "next");
}

TEST(SmtpScriptTest, TheByteLimitAddedLastForAConnectionWins) {
    SmtpScript script;
    script.add(kvtest::ByteLimit{10, Then::Close, 0});
    script.add(kvtest::ByteLimit{20, Then::Reset, 2});
    ASSERT_TRUE(script.byteLimit(1));
    EXPECT_EQ(script.byteLimit(1)->bytes, 10U);
    EXPECT_EQ(script.byteLimit(2)->bytes, 20U);
    EXPECT_EQ(script.byteLimit(2)->then, Then::Reset);
}

TEST(SmtpScriptTest, ClearForgetsRulesAndLimits) {
    SmtpScript script;
    RuleBuilder(script, "NOOP").reply("scripted");
    script.add(kvtest::ByteLimit{10, Then::Close, 0});
    script.clear();
    EXPECT_EQ(Answer(script, Step("NOOP")), "default");
    EXPECT_FALSE(script.byteLimit(1));
}
