#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

/// Runs one of the in-place functions on a copy of `text`.
std::string InPlace(void (*trim)(char*), std::string text) {
    trim(text.data());
    return text.c_str();
}

TEST(KvStringTest, TrimmingInPlaceRemovesWhiteSpaceAtTheNamedEnds) {
    EXPECT_EQ(InPlace(KvstringTrimRight, " \ta b\r\n\v"), " \ta b");
    EXPECT_EQ(InPlace(KvstringTrimLeft, " \ta b\r\n"), "a b\r\n");
    EXPECT_EQ(InPlace(KvstringTrim, " \ta b\r\n"), "a b");
    EXPECT_EQ(InPlace(KvstringTrimSpaces, " \ta b\r\n"), "a b");
}

TEST(KvStringTest, TrimmingSpacesAndTabsLeavesLineEnds) {
    EXPECT_EQ(InPlace(KvstringTrimSpacesAndTabs, "\t \na\n \t"), "\na\n");
}

TEST(KvStringTest, TrimmingWhiteSpaceOnlyLeavesNothing) {
    EXPECT_EQ(InPlace(KvstringTrimRight, " \t"), "");
    EXPECT_EQ(InPlace(KvstringTrimLeft, " \t"), "");
    EXPECT_EQ(InPlace(KvstringTrim, ""), "");
}

TEST(KvStringTest, TrimmingAStringRemovesTheGivenCharacters) {
    std::string text = "xy-a-yx";
    EXPECT_EQ(KvstringTrimRight(text, "xy"), "xy-a-");
    EXPECT_EQ(text, "xy-a-");
    EXPECT_EQ(KvstringTrimLeft(text, "xy"), "-a-");
    EXPECT_EQ(KvstringTrim(text, "-"), "a");
    EXPECT_EQ(text, "a");
}

TEST(KvStringTest, TrimmingAStringOfNoCharactersRemovesWhiteSpace) {
    std::string text = " \ta b\r\n";
    EXPECT_EQ(KvstringTrim(text, ""), "a b");
    std::string blank = " \n";
    EXPECT_EQ(KvstringTrim(blank, ""), "");
}

}  // namespace
