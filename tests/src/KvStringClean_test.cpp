#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KvStringTest, CleanNumericKeepsTheDigits) {
    EXPECT_EQ(KvstringCleanNumeric("+1 (555) 010-9"), "15550109");
    EXPECT_EQ(KvstringCleanNumeric("none"), "");
}

TEST(KvStringTest, CleanTextRemovesWhatIsNotPrintable) {
    char text[] = "a\tb\x01 c\x80\x7f\r\n";
    KvstringCleanText(text);
    EXPECT_STREQ(text, "ab c");
    EXPECT_EQ(KvstringCleanText(std::string("a\tb\0\x01 c\xff", 8)), "ab c");
}

TEST(KvStringTest, CleanTextOfNothingPrintableIsEmpty) {
    char text[] = "\r\n";
    KvstringCleanText(text);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(KvstringCleanText(std::string()), "");
}

TEST(KvStringTest, RemoveSpaceCharsRemovesAllWhiteSpace) {
    EXPECT_EQ(KvstringRemoveSpaceChars(" a\tb \v\f\r\nc "), "abc");
}

TEST(KvStringTest, StripRemovesTheCharactersWhereverTheyStand) {
    EXPECT_EQ(KvstringStrip("-a-.b.", "-."), "ab");
    EXPECT_EQ(KvstringStrip("a b", ""), "a b");
}

TEST(KvStringTest, ChopRemovesTheLastCharacter) {
    char text[] = "ab";
    KvstringChop(text);
    EXPECT_STREQ(text, "a");
    KvstringChop(text);
    EXPECT_STREQ(text, "");
    KvstringChop(text);
    EXPECT_STREQ(text, "");
}

}  // namespace
