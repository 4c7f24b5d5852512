#include "MailText.h"

#include <gtest/gtest.h>

#include <fstream>

namespace kvhost {
namespace {

const std::string kPartLine = "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";

std::string TextOf(std::string_view text) {
    return PrepareMail("", text).text;
}

TEST(MailTextTest, AnOrdinaryTextGoesAsItIs) {
    for (const char* text : {"", "one", "one\n", "one\n\ntwo", "\n\n", "a \t\n", "From here\n",
                             "RSET\nQUIT\n", "caf\xC3\xA9", "a.b\n x.\n --x\n"}) {
        EXPECT_EQ(TextOf(text), text);
        EXPECT_EQ(PrepareMail("", text).whyAttached, "");
    }
}

TEST(MailTextTest, EachLineEndBecomesALineFeed) {
    EXPECT_EQ(TextOf("a\r\nb\nc\rd"), "a\nb\nc\nd");
    EXPECT_EQ(TextOf("\r\r\n\n\r"), "\n\n\n\n");
    EXPECT_EQ(TextOf("\r\n"), "\n");
}

TEST(MailTextTest, ALeadingDotGetsAnother) {
    EXPECT_EQ(TextOf("."), "..");
    EXPECT_EQ(TextOf("..\n.a\n."), "...\n..a\n..");
    EXPECT_EQ(TextOf("a\r\n.\r\nb\r.\r"), "a\n..\nb\n..\n");
}

TEST(MailTextTest, AnOverlongLineGoesAsAttachment) {
    const std::string longest(998, 'x');
    EXPECT_EQ(WhyOnlyAttached(longest), std::nullopt);
    EXPECT_EQ(WhyOnlyAttached("a\r\n" + longest + "\r\n" + longest + "\r" + longest + "\n"), std::nullopt);
    for (const std::string& text : {longest + "y", "a\n" + longest + "y\nb", "a\r" + longest + "y\r"}) {
        EXPECT_EQ(WhyOnlyAttached(text), "it has a line of more than 998 bytes");
    }
}

TEST(MailTextTest, TheDotThatIsAddedDoesNotMakeALineTooLong) {
    const std::string text = "." + std::string(997, 'x');
    EXPECT_EQ(PrepareMail("", text).text, "." + text);
}

TEST(MailTextTest, ALineThatEndsThePartGoesAsAttachment) {
    const std::string why = "it has a line that would end this part of the mail";
    EXPECT_EQ(WhyOnlyAttached(kPartLine), why);
    EXPECT_EQ(WhyOnlyAttached("a\n" + kPartLine + "--\n"), why);
    EXPECT_EQ(WhyOnlyAttached("a\r" + kPartLine + "x"), why);
    EXPECT_EQ(WhyOnlyAttached(" " + kPartLine), std::nullopt);
    EXPECT_EQ(WhyOnlyAttached("see " + kPartLine), std::nullopt);
    EXPECT_EQ(WhyOnlyAttached(kPartLine.substr(0, kPartLine.size() - 1)), std::nullopt);
}

TEST(MailTextTest, TheDriverPutsThatLineBetweenTheParts) {
    std::ifstream source(KV_SOURCE_DIR "/system/src/KvMimeMessage.cpp");
    const std::string code{std::istreambuf_iterator<char>(source), {}};
    EXPECT_NE(code.find("kBoundary = \"" + kPartLine.substr(2) + "\""), std::string::npos);
}

TEST(MailTextTest, ANulGoesAsAttachment) {
    EXPECT_EQ(WhyOnlyAttached(std::string_view("a\0b", 3)), "it has a NUL byte");
}

TEST(MailTextTest, TheTextThatIsSentInsteadSaysWhyInOneLine) {
    const PreparedMail mail = PrepareMail("Report", std::string(999, '.'));
    EXPECT_EQ(mail.subject, "Report");
    EXPECT_EQ(mail.text,
              "The text of this message is attached as message.txt: it has a line of more than 998 bytes.\n");
    EXPECT_EQ(mail.whyAttached, "it has a line of more than 998 bytes");
    EXPECT_STREQ(kAttachedTextName, "message.txt");
}

TEST(MailTextTest, TheSubjectIsEncodedWhereNeedBe) {
    EXPECT_EQ(PrepareMail("Pump 3", "").subject, "Pump 3");
    EXPECT_EQ(PrepareMail("caf\xC3\xA9", "").subject, "=?UTF-8?B?Y2Fmw6k=?=");
}

}  // namespace
}  // namespace kvhost
