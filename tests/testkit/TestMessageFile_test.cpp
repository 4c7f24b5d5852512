#include "TestMessageFile.h"

#include <gmock/gmock.h>

using kvtest::MessageBuilder;
using kvtest::TestMessageFile;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(TestMessageFileTest, EveryReasonAndStatusTextIsKept) {
    TestMessageFile file;
    KvMessageFile& contract = file;
    EXPECT_EQ(file.failureReason(), "");
    EXPECT_EQ(file.statusText(), "");
    contract.SetFailureReason("first");
    contract.SetFailureReason("second");
    contract.SetStatusText("text");
    EXPECT_THAT(file.failureReasons(), ElementsAre("first", "second"));
    EXPECT_THAT(file.statusTexts(), ElementsAre("text"));
    EXPECT_EQ(file.failureReason(), "second");
    EXPECT_EQ(file.statusText(), "text");
}

TEST(MessageBuilderTest, TheDefaultsMakeAMessageThatCanBeSent) {
    const auto file = MessageBuilder().build();
    EXPECT_EQ(file->m_strMsgFileID, "1001_1");
    EXPECT_EQ(file->m_strJobID, "job-1");
    EXPECT_EQ(file->m_strSubject, "Subject");
    EXPECT_EQ(file->m_strMessage, "Text");
    EXPECT_EQ(file->m_strSmtpFrom, "ann@example.org");
    EXPECT_EQ(file->m_strRecipient, "bob@example.org");
    EXPECT_EQ(file->m_ulCarrierID, 1U);
    EXPECT_EQ(file->m_strCarrierName, "mail");
    EXPECT_EQ(file->m_eSmtpSecurity, SMTP_SECURITY_CLEAR);
    EXPECT_EQ(file->m_strSmtpUser, "");
    EXPECT_EQ(file->m_strSmtpCAFile, "");
    EXPECT_THAT(file->failureReasons(), IsEmpty());
}

TEST(MessageBuilderTest, EveryFieldCanBeTold) {
    const auto file = MessageBuilder()
                          .id("7_1")
                          .jobId("j7")
                          .from("from@x")
                          .recipient("to@x")
                          .subject("s")
                          .text("t")
                          .attachment("/a")
                          .attachment("/b")
                          .carrier(9, "c9")
                          .server("127.0.0.1:25")
                          .security(SMTP_SECURITY_REQUIRED)
                          .account("u", "p")
                          .caFile("ca")
                          .clientCertificate("cert", "key")
                          .build();
    EXPECT_EQ(file->m_strMsgFileID, "7_1");
    EXPECT_EQ(file->m_strJobID, "j7");
    EXPECT_EQ(file->m_strSmtpFrom, "from@x");
    EXPECT_EQ(file->m_strRecipient, "to@x");
    EXPECT_EQ(file->m_strSubject, "s");
    EXPECT_EQ(file->m_strMessage, "t");
    EXPECT_THAT(file->m_vecAttachments, ElementsAre("/a", "/b"));
    EXPECT_EQ(file->m_ulCarrierID, 9U);
    EXPECT_EQ(file->m_strCarrierName, "c9");
    EXPECT_EQ(file->m_strSmtpServer, "127.0.0.1:25");
    EXPECT_EQ(file->m_eSmtpSecurity, SMTP_SECURITY_REQUIRED);
    EXPECT_EQ(file->m_strSmtpUser, "u");
    EXPECT_EQ(file->m_strSmtpPassword, "p");
    EXPECT_EQ(file->m_strSmtpCAFile, "ca");
    EXPECT_EQ(file->m_strSmtpCertFile, "cert");
    EXPECT_EQ(file->m_strSmtpKeyFile, "key");
}

TEST(MessageBuilderTest, TheFlagsAreOffUnlessTold) {
    const auto plain = MessageBuilder().build();
    EXPECT_FALSE(plain->m_bGroupInhibit);
    EXPECT_FALSE(plain->m_b2WayEnabled || plain->m_bIs2Way);
    EXPECT_FALSE(plain->m_bIs2WayQuery);
    const auto all = MessageBuilder().neverGrouped().twoWay().twoWayQuery().build();
    EXPECT_TRUE(all->m_bGroupInhibit);
    EXPECT_TRUE(all->m_b2WayEnabled && all->m_bIs2Way);
    EXPECT_TRUE(all->m_bIs2WayQuery);
}

TEST(MessageBuilderTest, ABuilderCanBeUsedAgain) {
    MessageBuilder builder;
    const auto first = builder.recipient("one@x").build();
    const auto second = builder.recipient("two@x").build();
    EXPECT_EQ(first->m_strRecipient, "one@x");
    EXPECT_EQ(second->m_strRecipient, "two@x");
}
