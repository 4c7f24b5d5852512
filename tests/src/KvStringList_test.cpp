#include "KvString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

Texts Tokenized(const std::string& text, const std::string& delimiters) {
    Texts out = {"old"};
    KvstringTokenize(text, delimiters, out);
    return out;
}

Texts Split(const std::string& text, bool skipEmpty) {
    Texts out = {"old"};
    KvstringSplitString(text, ';', out, skipEmpty);
    return out;
}

TEST(KvStringTest, TokenizeSkipsRunsOfDelimiters) {
    EXPECT_EQ(Tokenized(",;a,,b;c,", ",;"), (Texts{"a", "b", "c"}));
    EXPECT_EQ(Tokenized(",,", ","), Texts{});
    EXPECT_EQ(Tokenized("", ","), Texts{});
}

TEST(KvStringTest, SplitStringKeepsOrSkipsEmptyFields) {
    EXPECT_EQ(Split("a;;b", false), (Texts{"a", "", "b"}));
    EXPECT_EQ(Split("a;;b", true), (Texts{"a", "b"}));
    EXPECT_EQ(Split(";a", false), (Texts{"", "a"}));
}

TEST(KvStringTest, SplitStringNeverGivesAnEmptyLastField) {
    EXPECT_EQ(Split("a;b;", false), (Texts{"a", "b"}));
    EXPECT_EQ(Split("", false), Texts{});
}

TEST(KvStringTest, FindIgnoresCase) {
    EXPECT_EQ(KvFind({"one", "Two"}, "tWO"), 1);
    EXPECT_EQ(KvFind({"one", "Two"}, "tw"), -1);
    EXPECT_EQ(KvFind({}, "one"), -1);
}

TEST(KvStringTest, FindAnswersTheLastOfSeveralEqualElements) {
    EXPECT_EQ(KvFind({"a", "A", "b"}, "a"), 1);
}

TEST(KvStringTest, CountCharacterBackwardsCountsTheRunThatEndsAtThePosition) {
    EXPECT_EQ(CountChracterBackwards('x', "axxxb", 3), 3U);
    EXPECT_EQ(CountChracterBackwards('x', "axxxb", 2), 2U);
    EXPECT_EQ(CountChracterBackwards('x', "xx", 1), 2U);
}

TEST(KvStringTest, CountCharacterBackwardsIsZeroWithoutARun) {
    EXPECT_EQ(CountChracterBackwards('x', "axxxb", 4), 0U);
    EXPECT_EQ(CountChracterBackwards('x', "xx", static_cast<unsigned int>(std::string::npos)), 0U);
    EXPECT_EQ(CountChracterBackwards('x', "", 0), 0U);
}

TEST(KvStringTest, SafeStrTokGivesThePartsOneByOne) {
    char text[] = ",a,,b;c";
    char* rest = nullptr;
    EXPECT_STREQ(KvstringSafeStrTok(text, ",;", &rest), "a");
    EXPECT_STREQ(KvstringSafeStrTok(nullptr, ",;", &rest), "b");
    EXPECT_STREQ(KvstringSafeStrTok(nullptr, ",;", &rest), "c");
    EXPECT_EQ(KvstringSafeStrTok(nullptr, ",;", &rest), nullptr);
}

TEST(KvStringTest, SafeStrTokCutsTwoTextsAtATime) {
    char numbers[] = "1 2";
    char letters[] = "a b";
    char* restOfNumbers = nullptr;
    char* restOfLetters = nullptr;
    EXPECT_STREQ(KvstringSafeStrTok(numbers, " ", &restOfNumbers), "1");
    EXPECT_STREQ(KvstringSafeStrTok(letters, " ", &restOfLetters), "a");
    EXPECT_STREQ(KvstringSafeStrTok(nullptr, " ", &restOfNumbers), "2");
    EXPECT_STREQ(KvstringSafeStrTok(nullptr, " ", &restOfLetters), "b");
}

TEST(KvStringTest, NStrTokGivesOnePartByItsIndex) {
    EXPECT_EQ(KvstringNStrTok(",a,,b", ",", 0), "a");
    EXPECT_EQ(KvstringNStrTok(",a,,b", ",", 1), "b");
    EXPECT_EQ(KvstringNStrTok(",a,,b", ",", 2), "");
}

TEST(KvStringTest, JoinPutsTheSeparatorBetweenTheParts) {
    EXPECT_EQ(KvstringJoin({"a", "", "b"}, ", "), "a, , b");
    EXPECT_EQ(KvstringJoin({"a"}, ", "), "a");
    EXPECT_EQ(KvstringJoin({}, ", "), "");
}

TEST(KvStringTest, BuildStringVectorEndsAtTheNullPointer) {
    const char* texts[] = {"mail", "", "-s", nullptr, "behind"};
    EXPECT_EQ(BuildStringVector(texts), (Texts{"mail", "", "-s"}));
    EXPECT_EQ(BuildStringVector(texts + 3), Texts{});
}

}  // namespace
