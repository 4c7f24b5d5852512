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

TEST(InputChecksTest, AMessageTextHasNoLineThatIsASingleDot) {
    const std::string expected =
        "expected a text without a line that is a single dot: it would end the message there";
    EXPECT_EQ(WhyNotAMessageText("."), expected);
    EXPECT_EQ(WhyNotAMessageText("one\n.\nMAIL FROM: <x@y>"), expected);
    EXPECT_EQ(WhyNotAMessageText("one\r\n.\r\ntwo"), expected);
    EXPECT_EQ(WhyNotAMessageText("one\n."), expected);
}

TEST(InputChecksTest, DotsWithinLinesAreFine) {
    EXPECT_EQ(WhyNotAMessageText("..\n.x\nThe end.\n"), std::nullopt);
    EXPECT_EQ(WhyNotAMessageText(""), std::nullopt);
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
