#include "KvString.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
    findandreplace(text, what, with);
    return text;
}

TEST(KvStringTest, FindAndReplaceReplacesEveryOccurrence) {
    EXPECT_EQ(Replaced("a\r\nb\r\n\r\nc", "\r\n", "\n"), "a\nb\n\nc");
    EXPECT_EQ(Replaced("abc", "x", "y"), "abc");
    EXPECT_EQ(Replaced("", "x", "y"), "");
}

std::string RandomText(std::mt19937& random, std::size_t shortest, std::size_t longest) {
    std::string text(shortest + random() % (longest - shortest + 1), '\0');
    for (char& c : text) {
        c = "abc"[random() % 3];
    }
    return text;
}

/// The definition: the leftmost occurrence, again and again from the beginning.
std::string ReplacedOneByOne(std::string text, const std::string& what, const std::string& with) {
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what)) {
        text.replace(at, what.size(), with);
    }
    return text;
}

TEST(KvStringTest, FindAndReplaceGivesWhatReplacingOneByOneGives) {
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        const std::string text = RandomText(random, 0, 30);
        const std::string what = RandomText(random, 1, 3);
        const std::string with = RandomText(random, 0, 3);
        // A replacement longer than what it replaces may form new occurrences without end.
        if (with.find(what) == std::string::npos && with.size() <= what.size()) {
            ASSERT_EQ(Replaced(text, what, with), ReplacedOneByOne(text, what, with))
                << text << ' ' << what << ' ' << with;
        }
    }
}

TEST(KvStringTest, FindAndReplaceReplacesWhatAReplacementFormsWithItsNeighbours) {
    EXPECT_EQ(Replaced("\r\r\n\n", "\r\n", "\n"), "\n\n");
    EXPECT_EQ(Replaced("aaab", "ab", "b"), "b");
    EXPECT_EQ(Replaced("aabbc", "ab", ""), "c");
}

TEST(KvStringTest, FindAndReplaceTakesTheLeftmostOccurrenceFirst) {
    EXPECT_EQ(Replaced("aaa", "aa", "b"), "ba");
}

TEST(KvStringTest, FindAndReplaceReplacesAWholeBodyOfLineEndsAtOnce) {
    std::string body;
    std::string expected;
    for (int i = 0; i < 100000; ++i) {
        body += "line\r\n";
        expected += "line\n";
    }
    EXPECT_EQ(Replaced(body, "\r\n", "\n"), expected);
}

TEST(KvStringTest, ReplaceCharReplacesEveryOccurrence) {
    char text[] = "a.b..";
    KvstringReplaceChar(text, '.', '-');
    EXPECT_STREQ(text, "a-b--");
    EXPECT_EQ(KvstringReplaceChar(std::string("a.b."), '.', '-'), "a-b-");
    EXPECT_EQ(KvstringReplaceChar(std::string(), '.', '-'), "");
}

TEST(KvStringTest, ReplaceCharOfAStringGoesBeyondNulBytes) {
    EXPECT_EQ(KvstringReplaceChar(std::string("a.\0.", 4), '.', '-'), std::string("a-\0-", 4));
}

TEST(KvStringTest, ReplaceCharAnyOfReplacesEachOfTheCharacters) {
    EXPECT_EQ(KvstringReplaceCharAnyOf("a.b,c.", ".,", '-'), "a-b-c-");
    EXPECT_EQ(KvstringReplaceCharAnyOf("a.b", "", '-'), "a.b");
}

TEST(KvStringTest, ReplaceStrDoesNotLookAtWhatItHasPutIn) {
    EXPECT_EQ(KvstringReplaceStr("aaa", "aa", "aab"), "aaba");
    EXPECT_EQ(KvstringReplaceStr("\r\r\n\n", "\r\n", "\n"), "\r\n\n");
    EXPECT_EQ(KvstringReplaceStr("abc", "b", ""), "ac");
}

TEST(KvStringTest, ReplaceStrOfAnEmptyTextReplacesNothing) {
    EXPECT_EQ(KvstringReplaceStr("abc", "", "x"), "abc");
}

TEST(KvStringTest, ReplaceColonReplacesEveryColon) {
    EXPECT_EQ(KvstringReplaceColon("12:30:00", '-'), "12-30-00");
}

}  // namespace
