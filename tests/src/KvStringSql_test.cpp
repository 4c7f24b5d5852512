#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KvStringTest, SqlEncodeDoublesApostrophes) {
    EXPECT_EQ(KvstringSQLEncode("O'Brien"), "O''Brien");
    EXPECT_EQ(KvstringSQLEncode("''"), "''''");
}

TEST(KvStringTest, SqlEncodeEndsAtTheFirstNulByte) {
    EXPECT_EQ(KvstringSQLEncode(std::string("a'\0b", 4)), "a''");
}

TEST(KvStringTest, SqlEncodeOfANumberIsItsText) {
    EXPECT_EQ(KvstringSQLEncode(-5), "-5");
    EXPECT_EQ(KvstringSQLEncode(-2147483647L), "-2147483647");
    EXPECT_EQ(KvstringSQLEncode(4294967295UL), "4294967295");
    EXPECT_EQ(KvstringSQLEncode(4294967295U), "4294967295");
    EXPECT_EQ(KvstringSQLEncode(1.5F), "1.500000");
    EXPECT_EQ(KvstringSQLEncode(-2.25), "-2.250000");
}

TEST(KvStringTest, SqlLikeEncodeMarksTheCharactersOfPatterns) {
    EXPECT_EQ(KvstringSQLLikeEncode("a'b%c_d[e\\f]"), "a''b\\%c\\_d\\[e\\\\f]");
}

TEST(KvStringTest, SqlFilterEncodeOfZeroOrNothingMatchesAnything) {
    EXPECT_EQ(KvstringSQLFilterEncode(0), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(0.0F), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(0.0), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(""), "%");
}

TEST(KvStringTest, SqlFilterEncodeOfAValueIsItsText) {
    EXPECT_EQ(KvstringSQLFilterEncode(7), "7");
    EXPECT_EQ(KvstringSQLFilterEncode(0.5F), "0.500000");
    EXPECT_EQ(KvstringSQLFilterEncode(-0.5), "-0.500000");
    EXPECT_EQ(KvstringSQLFilterEncode("O'Brien"), "O''Brien");
}

TEST(KvStringTest, SqlFilterEncodeOfUnsignedValuesMatchesAnythingForZero) {
    EXPECT_EQ(KvstringSQLFilterEncode(0U), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(0UL), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(4294967295U), "4294967295");
    EXPECT_EQ(KvstringSQLFilterEncode(4294967295UL), "4294967295");
}

}  // namespace
