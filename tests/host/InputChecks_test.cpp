#include "InputChecks.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempDir.h"

namespace kvhost {
namespace {

TEST(InputChecksTest, AnOrdinaryAddressIsOne) {
    EXPECT_EQ(WhyNotAnAddress("ops+night@example.org"), std::nullopt);
}

TEST(InputChecksTest, AnEmptyAddressIsNone) {
    EXPECT_EQ(WhyNotAnAddress(""), "expected a mail address, found an empty one");
}

TEST(InputChecksTest, AnAddressHasNoControlCharactersAndNoAngleBrackets) {
    const std::string expected =
        "expected a mail address without control characters and without \"<\" and \">\"";
    EXPECT_EQ(WhyNotAnAddress("a@b\r\nRCPT TO: c@d"), expected);
    EXPECT_EQ(WhyNotAnAddress("a@b\nx"), expected);
    EXPECT_EQ(WhyNotAnAddress(std::string("a@b\0x", 5)), expected);
    EXPECT_EQ(WhyNotAnAddress("Ops <ops@b"), expected);
    EXPECT_EQ(WhyNotAnAddress("ops@b>"), expected);
    EXPECT_EQ(WhyNotAnAddress("ops\x7f@b"), expected);
}

TEST(InputChecksTest, AnAddressHasAtMost254Bytes) {
    EXPECT_EQ(WhyNotAnAddress(std::string(250, 'a') + "@b.c"), std::nullopt);
    EXPECT_EQ(WhyNotAnAddress(std::string(251, 'a') + "@b.c"),
              "expected a mail address of at most 254 bytes, found 255");
}

TEST(InputChecksTest, OneLineHasNoCrLfAndNul) {
    EXPECT_EQ(WhyNotOneLine("a\tb"), std::nullopt);
    EXPECT_EQ(WhyNotOneLine("a\rb"), "expected one line of text, without CR, LF and NUL");
    EXPECT_EQ(WhyNotOneLine("a\nb"), "expected one line of text, without CR, LF and NUL");
    EXPECT_EQ(WhyNotOneLine(std::string("a\0b", 3)), "expected one line of text, without CR, LF and NUL");
}

TEST(InputChecksTest, ANameIsNotEmptyAndHasNoControlCharacters) {
    EXPECT_EQ(WhyNotAName("night shift_1"), std::nullopt);
    EXPECT_EQ(WhyNotAName(""), "expected a name, found an empty one");
    EXPECT_EQ(WhyNotAName("a\x1b[2J"), "expected a name without control characters");
}

TEST(InputChecksTest, AMessageTextHasNoNul) {
    EXPECT_EQ(WhyNotAMessageText(std::string("a\0b", 3)), "expected a text without NUL");
}

TEST(InputChecksTest, AMessageTextMayHaveLinesOfDots) {
    for (const char* text : {"", ".", "one\n.\nMAIL FROM: <x@y>", "one\r\n.\r\ntwo", "..\n.x\nThe end.\n"}) {
        EXPECT_EQ(WhyNotAMessageText(text), std::nullopt);
    }
}

TEST(InputChecksTest, AnAttachmentMayHaveTheseNames) {
    for (const char* name :
         {"plan.pdf", "a b.txt", ".hidden", "semi;colon,'=%41[x](y)<z>.txt", "-x", "..."}) {
        EXPECT_EQ(WhyNotAnAttachmentName(name), std::nullopt) << name;
    }
    EXPECT_EQ(WhyNotAnAttachmentName(std::string(255, 'x')), std::nullopt);
}

TEST(InputChecksTest, AnAttachmentHasAFileName) {
    EXPECT_EQ(WhyNotAnAttachmentName(""), "expected a file name");
    EXPECT_EQ(WhyNotAnAttachmentName("."), "expected a file name");
    EXPECT_EQ(WhyNotAnAttachmentName(".."), "expected a file name");
    EXPECT_EQ(WhyNotAnAttachmentName(std::string(256, 'x')),
              "expected a file name of at most 255 bytes, found 256");
}

TEST(InputChecksTest, AnAttachmentsNameHasNothingThatEndsItsQuotation) {
    const std::string expected =
        "expected a file name without control characters, quotation marks, slashes and backslashes";
    for (const char* name : {"a\"b", "a\\b", "a/b", "a\rb", "a\nb", "a\r\nX: 1", "a\tb", "a\x7f"}) {
        EXPECT_EQ(WhyNotAnAttachmentName(name), expected) << name;
    }
    EXPECT_EQ(WhyNotAnAttachmentName(std::string_view("a\0b", 3)), expected);
}

TEST(InputChecksTest, AnAttachmentsNameHasNothingThatMailProgramsReadDifferently) {
    EXPECT_EQ(
        WhyNotAnAttachmentName("caf\xC3\xA9.txt"),
        "expected a file name in ASCII: other characters arrive as something else in some mail programs");
    EXPECT_EQ(WhyNotAnAttachmentName(" a"),
              "expected a file name without blanks at its ends: they would get lost");
    EXPECT_EQ(WhyNotAnAttachmentName("a "),
              "expected a file name without blanks at its ends: they would get lost");
    EXPECT_EQ(WhyNotAnAttachmentName("a=?b"),
              "expected a file name without \"=?\": mail programs decode what follows it");
}

TEST(InputChecksTest, AnExistingFileIsReadable) {
    const kvtest::TempDir folder;
    EXPECT_EQ(WhyNotAReadableFile(folder.write("a.txt", "x")), std::nullopt);
}

TEST(InputChecksTest, AMissingFileIsNotReadable) {
    const kvtest::TempDir folder;
    EXPECT_EQ(WhyNotAReadableFile(folder.file("none")),
              "expected a readable file, \"" + folder.file("none") + "\": No such file or directory");
}

TEST(InputChecksTest, APathIsNamedInOneVisibleLine) {
    EXPECT_EQ(
        WhyNotAReadableFile("/none/\x1b[2J\nkvhost: all is well"),
        "expected a readable file, \"/none/<ESC>[2J<LF>kvhost: all is well\": No such file or directory");
}

TEST(InputChecksTest, AFolderOrAPipeIsNoRegularFile) {
    const kvtest::TempDir folder;
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
    EXPECT_EQ(WhyNotAReadableFile(folder.path()),
              "expected a regular file, \"" + folder.path() + "\" is none");
    EXPECT_EQ(WhyNotAReadableFile(folder.file("pipe")),
              "expected a regular file, \"" + folder.file("pipe") + "\" is none");
}

TEST(InputChecksTest, APathWithNulIsNoFile) {
    EXPECT_EQ(WhyNotAReadableFile(std::string("/etc/passwd\0x", 13)), "expected a path without NUL");
}

TEST(InputChecksTest, APathIsResolvedBesideTheFileThatNamesIt) {
    EXPECT_EQ(ResolveBeside("/etc/kv/kvhost.toml", "ca/ca.pem"), "/etc/kv/ca/ca.pem");
    EXPECT_EQ(ResolveBeside("/etc/kv/kvhost.toml", "../ca.pem"), "/etc/ca.pem");
    EXPECT_EQ(ResolveBeside("/etc/kv/kvhost.toml", "/ca.pem"), "/ca.pem");
    EXPECT_EQ(ResolveBeside("kvhost.toml", "ca.pem"), "ca.pem");
}

}  // namespace
}  // namespace kvhost
