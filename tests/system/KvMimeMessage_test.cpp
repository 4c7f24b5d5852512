#include "KvMimeMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "TempDir.h"
#include "system/ExpectedMail.h"

namespace {

using kvtest::MessageWithText;
using kvtest::SimpleMessage;
using kvtest::TempDir;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string WithText(const std::string& body) {
    return KvMimeMessageText("ann@example.org", "Subject", body, {});
}

std::string WithSubject(const std::string& subject) {
    return KvMimeMessageText("ann@example.org", subject, "Text", {});
}

std::string WithSender(const std::string& from) {
    return KvMimeMessageText(from, "Subject", "Text", {});
}

std::string WithAttachments(const std::vector<std::string>& paths) {
    return KvMimeMessageText("ann@example.org", "Subject", "Text", paths);
}

/// The message up to the line end of its text; the attachments follow.
const std::string UpToTheText =
    "Mime-Version: 1.0\r\n"
    "Subject: Subject\r\n"
    "From: ann@example.org\r\n"
    "Content-Type: multipart/mixed;\r\n"
    "\tboundary=\"MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\"\r\n"
    "\r\n"
    "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
    "Content-Type: text/plain\r\n"
    "\r\n"
    "Text\r\n";

const std::string LastBoundary = "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n";

std::string PartNamed(const std::string& name, const std::string& encoded) {
    return "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
           "Content-Type: application/octet-stream; name=\"" +
           name +
           "\"\r\n"
           "Content-Transfer-Encoding: Base64\r\n"
           "Content-Disposition: attachment; filename=\"" +
           name +
           "\"\r\n"
           "\r\n" +
           encoded + "\r\n";
}

TEST(KvMimeMessageTest, AMessageWithoutAttachmentsIsAMultipartWithOneTextPart) {
    EXPECT_EQ(KvMimeMessageText("ann@example.org", "Subject", "Text", {}), SimpleMessage);
}

TEST(KvMimeMessageTest, TheBoundaryIsTheSameInEveryMessage) {
    EXPECT_EQ(WithText("Text"), WithText("Text"));
}

TEST(KvMimeMessageTest, NoToDateOrMessageIdHeaderIsWritten) {
    EXPECT_THAT(WithText("Text"), Not(HasSubstr("\r\nTo:")));
    EXPECT_THAT(WithText("Text"), Not(HasSubstr("\r\nDate:")));
    EXPECT_THAT(WithText("Text"), Not(HasSubstr("\r\nMessage-ID:")));
}

// Subject

TEST(KvMimeMessageTest, AnEmptySubjectGivesNoSubjectHeader) {
    EXPECT_THAT(WithSubject(""), StartsWith("Mime-Version: 1.0\r\nFrom: ann@example.org\r\n"));
}

TEST(KvMimeMessageTest, ASubjectBeyondAsciiIsWrittenAsItIs) {
    EXPECT_THAT(WithSubject("Gr\xc3\xbc\xc3\x9f"), HasSubstr("\r\nSubject: Gr\xc3\xbc\xc3\x9f\r\n"));
}

TEST(KvMimeMessageTest, ALongSubjectIsFoldedAtABlankThatBecomesATab) {
    const std::string left(100, 'x');
    const std::string right(100, 'y');
    EXPECT_THAT(WithSubject(left + " " + right),
                HasSubstr("\r\nSubject: " + left + "\r\n\t" + right + "\r\nFrom: "));
}

TEST(KvMimeMessageTest, ALineEndInTheSubjectBeginsAHeaderOfItsOwn) {
    EXPECT_THAT(WithSubject("one\r\nX-Two: two"), HasSubstr("\r\nSubject: one\r\nX-Two: two\r\nFrom: "));
}

// Sender

TEST(KvMimeMessageTest, ASenderWithADisplayNameIsWrittenWithIt) {
    EXPECT_THAT(WithSender("Ann Smith <ann@example.org>"),
                HasSubstr("\r\nFrom: Ann Smith <ann@example.org>\r\n"));
}

TEST(KvMimeMessageTest, AQuotedDisplayNameKeepsItsQuotes) {
    EXPECT_THAT(WithSender("\"Smith, Ann\" <ann@example.org>"),
                HasSubstr("\r\nFrom: \"Smith, Ann\" <ann@example.org>\r\n"));
}

TEST(KvMimeMessageTest, ADisplayNameBeyondAsciiIsWrittenAsItIs) {
    EXPECT_THAT(WithSender("J\xc3\xb6rg <joerg@example.org>"),
                HasSubstr("\r\nFrom: J\xc3\xb6rg <joerg@example.org>\r\n"));
}

TEST(KvMimeMessageTest, AnAddressInAngleBracketsLosesThemInTheHeader) {
    EXPECT_THAT(WithSender("<ann@example.org>"), HasSubstr("\r\nFrom: ann@example.org\r\n"));
}

TEST(KvMimeMessageTest, TwoSendersAreSeparatedByACommaAndTwoBlanks) {
    EXPECT_THAT(WithSender("ann@example.org, bob@example.org"),
                HasSubstr("\r\nFrom: ann@example.org,  bob@example.org\r\n"));
}

TEST(KvMimeMessageTest, ASenderWithoutADomainIsWrittenAsABareAtSign) {
    EXPECT_THAT(WithSender("ann"), HasSubstr("\r\nFrom: @\r\n"));
}

TEST(KvMimeMessageTest, AnEmptySenderGivesAnEmptyFromHeader) {
    EXPECT_THAT(WithSender(""), HasSubstr("\r\nFrom: \r\n"));
}

// Text

TEST(KvMimeMessageTest, ABareLineFeedBecomesCrLfAndACrLfStays) {
    EXPECT_EQ(WithText("a\nb\r\nc"), MessageWithText("a\r\nb\r\nc"));
}

TEST(KvMimeMessageTest, ALineFeedAtTheBeginningBecomesCrLf) {
    EXPECT_EQ(WithText("\na"), MessageWithText("\r\na"));
}

TEST(KvMimeMessageTest, ATextOfOneLineFeedIsOneCrLf) {
    EXPECT_EQ(WithText("\n"), MessageWithText("\r\n"));
}

TEST(KvMimeMessageTest, EveryOneOfSeveralLineFeedsIsConverted) {
    EXPECT_EQ(WithText("a\n\n\nb\n"), MessageWithText("a\r\n\r\n\r\nb\r\n"));
}

TEST(KvMimeMessageTest, ABareCarriageReturnStays) {
    EXPECT_EQ(WithText("a\rb\r\r\nc"), MessageWithText("a\rb\r\r\nc"));
}

TEST(KvMimeMessageTest, AnEmptyTextGivesAnEmptyPart) {
    EXPECT_EQ(WithText(""), MessageWithText(""));
}

TEST(KvMimeMessageTest, LinesThatBeginWithADotStayAsTheyAre) {
    EXPECT_EQ(WithText(".a\r\n..b\r\n.\r\n"), MessageWithText(".a\r\n..b\r\n.\r\n"));
}

TEST(KvMimeMessageTest, TextBeyondAsciiIsWrittenAsItIs) {
    EXPECT_EQ(WithText("\xc3\xa4\xff"), MessageWithText("\xc3\xa4\xff"));
}

TEST(KvMimeMessageTest, ANulInTheTextIsKept) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(WithText(text), MessageWithText(text));
}

TEST(KvMimeMessageTest, LongLinesOfTheTextAreNotFolded) {
    const std::string line(5000, 'x');
    EXPECT_EQ(WithText(line), MessageWithText(line));
}

TEST(KvMimeMessageTest, TheBoundaryInTheTextIsNotEscaped) {
    const std::string line = "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";
    EXPECT_EQ(WithText(line), MessageWithText(line));
}

// Attachments

TEST(KvMimeMessageTest, AFileBecomesABase64PartNamedAfterItsLastPathElement) {
    const TempDir dir;
    EXPECT_EQ(WithAttachments({dir.write("note.txt", "hello")}),
              UpToTheText +
                  "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
                  "Content-Type: application/octet-stream; name=\"note.txt\"\r\n"
                  "Content-Transfer-Encoding: Base64\r\n"
                  "Content-Disposition: attachment; filename=\"note.txt\"\r\n"
                  "\r\n"
                  "aGVsbG8=\r\n"
                  "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n");
}

TEST(KvMimeMessageTest, SeveralFilesKeepTheirOrder) {
    const TempDir dir;
    EXPECT_EQ(WithAttachments({dir.write("b.txt", "B"), dir.write("a.txt", "A")}),
              UpToTheText + PartNamed("b.txt", "Qg==") + PartNamed("a.txt", "QQ==") + LastBoundary);
}

TEST(KvMimeMessageTest, Base64LinesHave76CharactersAndEndInABareLineFeed) {
    const TempDir dir;
    const std::string line(76, 'A');
    EXPECT_EQ(WithAttachments({dir.write("zeros.bin", std::string(58, '\0'))}),
              UpToTheText + PartNamed("zeros.bin", line + "\nAA==") + LastBoundary);
}

TEST(KvMimeMessageTest, AFullLastBase64LineEndsInALineFeedToo) {
    const TempDir dir;
    const std::string line(76, 'A');
    EXPECT_EQ(WithAttachments({dir.write("zeros.bin", std::string(114, '\0'))}),
              UpToTheText + PartNamed("zeros.bin", line + "\n" + line + "\n") + LastBoundary);
}

TEST(KvMimeMessageTest, EveryByteValueIsEncoded) {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
    }
    const TempDir dir;
    EXPECT_EQ(WithAttachments({dir.write("all.bin", bytes)}),
              UpToTheText +
                  PartNamed("all.bin",
                            "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4\n"
                            "OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiY2RlZmdoaWprbG1ub3Bx\n"
                            "cnN0dXZ3eHl6e3x9fn+AgYKDhIWGh4iJiouMjY6PkJGSk5SVlpeYmZqbnJ2en6ChoqOkpaanqKmq\n"
                            "q6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsfIycrLzM3Oz9DR0tPU1dbX2Nna29zd3t/g4eLj\n"
                            "5OXm5+jp6uvs7e7v8PHy8/T19vf4+fr7/P3+/w==") +
                  LastBoundary);
}

TEST(KvMimeMessageTest, AnEmptyFileIsAnEmptyPart) {
    const TempDir dir;
    EXPECT_EQ(WithAttachments({dir.write("empty.bin", "")}),
              UpToTheText + PartNamed("empty.bin", "") + LastBoundary);
}

TEST(KvMimeMessageTest, AFileWhoseSizeTheSystemGivesAsZeroIsReadAllTheSame) {
    EXPECT_THAT(WithAttachments({"/proc/version"}), Not(HasSubstr(PartNamed("version", ""))));
}

TEST(KvMimeMessageTest, AMissingFileIsAnEmptyPartAndNoError) {
    const TempDir dir;
    EXPECT_EQ(WithAttachments({dir.file("gone.bin")}),
              UpToTheText + PartNamed("gone.bin", "") + LastBoundary);
}

TEST(KvMimeMessageTest, AFolderIsAnEmptyPart) {
    const TempDir dir;
    const std::string folder = dir.file("folder");
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    EXPECT_EQ(WithAttachments({folder}), UpToTheText + PartNamed("folder", "") + LastBoundary);
    ASSERT_EQ(rmdir(folder.c_str()), 0);
}

TEST(KvMimeMessageTest, APipeIsAnEmptyPartAndIsNotWaitedFor) {
    const TempDir dir;
    const std::string pipe = dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(WithAttachments({pipe}), UpToTheText + PartNamed("pipe", "") + LastBoundary);
}

TEST(KvMimeMessageTest, AnEmptyPathIsAnEmptyPartWithoutAName) {
    EXPECT_EQ(WithAttachments({""}), UpToTheText + PartNamed("", "") + LastBoundary);
}

TEST(KvMimeMessageTest, AFileNameWithBlanksOrBeyondAsciiIsWrittenAsItIs) {
    const TempDir dir;
    EXPECT_EQ(WithAttachments({dir.write("my file \xc3\xa4.txt", "A")}),
              UpToTheText + PartNamed("my file \xc3\xa4.txt", "QQ==") + LastBoundary);
}

TEST(KvMimeMessageTest, AQuoteInAFileNameIsNotEscaped) {
    const TempDir dir;
    EXPECT_EQ(WithAttachments({dir.write("a\"b.txt", "A")}),
              UpToTheText + PartNamed("a\"b.txt", "QQ==") + LastBoundary);
}

TEST(KvMimeMessageTest, ALargeFileIsEncodedCompletely) {
    const TempDir dir;
    const std::string message = WithAttachments({dir.write("large.bin", std::string(3000000, '\0'))});
    EXPECT_EQ(message.size(),
              UpToTheText.size() + PartNamed("large.bin", "").size() + LastBoundary.size() + 4000000 + 52631);
    EXPECT_THAT(message, EndsWith("AAAA\r\n" + LastBoundary));
}

}  // namespace
