#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KvStringTest, NoPatternAndAStarMatchAnything) {
    EXPECT_TRUE(KvstrContainPattern("abc", nullptr, false));
    EXPECT_TRUE(KvstrContainPattern("", "*", false));
    EXPECT_TRUE(KvstrContainPattern("abc", "* ", true));
}

TEST(KvStringTest, ContainPatternUpperCasesTheTextOnlyWhenItCollapsesSpaces) {
    EXPECT_FALSE(KvstrContainPattern("abc", "A*", false));
    EXPECT_TRUE(KvstrContainPattern("abc", "A*", true));
    EXPECT_TRUE(KvstrContainPattern("ABC", "a*", false));
}

TEST(KvStringTest, ContainPatternCollapsesRunsOfWhiteSpaceInTheText) {
    EXPECT_TRUE(KvstrContainPattern("a  \t b", "A B", true));
    EXPECT_FALSE(KvstrContainPattern("A  B", "A B", false));
}

TEST(KvStringTest, APatternWithoutStarsMatchesAnyTextThatBeginsWithIt) {
    EXPECT_TRUE(KvstrContainPattern("ABC", "AB", false));
    EXPECT_FALSE(KvstrContainPattern("ABC", "BC", false));
    EXPECT_FALSE(KvstrContainPattern("A", "AB", false));
}

TEST(KvStringTest, APatternThatBeginsWithAStarMatchesAnywhere) {
    EXPECT_TRUE(KvstrContainPattern("ABC", "*BC", false));
    EXPECT_FALSE(KvstrContainPattern("ABC", "*D", false));
}

TEST(KvStringTest, TheLastPieceOfAPatternNeedNotEndTheText) {
    EXPECT_TRUE(KvstrContainPattern("AxBy", "A*B", false));
}

TEST(KvStringTest, ThePiecesOfAPatternMustFollowEachOther) {
    EXPECT_TRUE(KvstrContainPattern("AB", "A**B", false));
    EXPECT_FALSE(KvstrContainPattern("BA", "*A*B", false));
    EXPECT_FALSE(KvstrContainPattern("AB", "AB*B", false));
}

TEST(KvStringTest, AnEmptyPatternMatchesOnlyAnEmptyText) {
    EXPECT_TRUE(KvstrContainPattern("", "", false));
    EXPECT_TRUE(KvstrContainPattern("", " \t", false));
    EXPECT_FALSE(KvstrContainPattern("A", "", false));
}

TEST(KvStringTest, TrailingWhiteSpaceOfAPatternDoesNotCount) {
    EXPECT_TRUE(KvstrContainPattern("AB", "A \n", false));
    EXPECT_FALSE(KvstrContainPattern("AB", " A", false));
}

TEST(KvStringTest, OnlyTheFirst255PiecesOfAPatternAreLookedFor) {
    std::string pattern;
    for (int i = 0; i < 255; ++i) {
        pattern += "*A";
    }
    EXPECT_TRUE(KvstrContainPattern(std::string(255, 'A'), pattern + "*B", false));
    EXPECT_FALSE(KvstrContainPattern(std::string(254, 'A'), pattern, false));
}

TEST(KvStringTest, ContainPatternTakesStringsToo) {
    EXPECT_TRUE(KvstrContainPattern(std::string("abc"), std::string("a*c"), true));
    EXPECT_FALSE(KvstrContainPattern(std::string("abc"), std::string("b"), true));
}

}  // namespace
