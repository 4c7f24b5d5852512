#include "KvString.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

TEST(KvStringTest, NumbersAreWrittenInDecimal) {
    EXPECT_EQ(KvintToStr(INT_MIN), "-2147483648");
    EXPECT_EQ(Kvint64ToStr(LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(KvuintToStr(UINT_MAX), "4294967295");
    EXPECT_EQ(KvlongToStr(-2147483647L), "-2147483647");
    EXPECT_EQ(KvulongToStr(4294967295UL), "4294967295");
}

TEST(KvStringTest, UlongToStrShowsTheLow32Bits) {
    EXPECT_EQ(KvulongToStr(static_cast<unsigned long>(0x100000005ULL)), "5");
    EXPECT_EQ(KvulongToStr(ULONG_MAX), "4294967295");
}

TEST(KvStringTest, DeduceDataTypeTellsIntegersDecimalsAndTexts) {
    EXPECT_EQ(KvdeduceDataType("42"), 1);
    EXPECT_EQ(KvdeduceDataType("-42"), 1);
    EXPECT_EQ(KvdeduceDataType("+4.2"), 2);
    EXPECT_EQ(KvdeduceDataType(".5"), 2);
    EXPECT_EQ(KvdeduceDataType("5."), 2);
    EXPECT_EQ(KvdeduceDataType("4a"), 0);
    EXPECT_EQ(KvdeduceDataType("a4"), 0);
    EXPECT_EQ(KvdeduceDataType("4-2"), 0);
    EXPECT_EQ(KvdeduceDataType(""), 0);
}

TEST(KvStringTest, DeduceDataTypeOfTwoPointsIsText) {
    EXPECT_EQ(KvdeduceDataType("1.2.3"), 0);
    EXPECT_EQ(KvdeduceDataType(".1."), 0);
}

TEST(KvStringTest, DeduceDataTypeTakesALoneSignForAnInteger) {
    EXPECT_EQ(KvdeduceDataType("+"), 1);
    EXPECT_EQ(KvdeduceDataType("-"), 1);
    EXPECT_EQ(KvdeduceDataType("."), 2);
}

TEST(KvStringTest, IsNumericAcceptsDigitsOnly) {
    EXPECT_TRUE(KvstringIsNumeric("0123456789"));
    EXPECT_FALSE(KvstringIsNumeric("-1"));
    EXPECT_FALSE(KvstringIsNumeric("1.5"));
    EXPECT_FALSE(KvstringIsNumeric("1 "));
}

TEST(KvStringTest, IsNumericIsTrueForAnEmptyText) {
    EXPECT_TRUE(KvstringIsNumeric(""));
}

TEST(KvStringTest, HexStrToUIntReadsHexadecimal) {
    EXPECT_EQ(KvHexStrToUInt("fF"), 255U);
    EXPECT_EQ(KvHexStrToUInt("0x10"), 16U);
    EXPECT_EQ(KvHexStrToUInt("12zz"), 18U);
    EXPECT_EQ(KvHexStrToUInt("zz"), 0U);
    EXPECT_EQ(KvHexStrToUInt(""), 0U);
    EXPECT_EQ(KvHexStrToUInt("FFFFFFFFFF"), UINT_MAX);
}

TEST(KvStringTest, HexStrToBytesConvertsPairsAndZeroesTheRest) {
    unsigned char out[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(KvHexStrToBytes("01ffzz7", out, 4), 3);
    EXPECT_EQ(out[0], 0x01);
    EXPECT_EQ(out[1], 0xff);
    EXPECT_EQ(out[2], 0);
    EXPECT_EQ(out[3], 0);
    EXPECT_EQ(out[4], 9);
}

TEST(KvStringTest, HexStrToBytesThatDoNotFitWritesNothing) {
    unsigned char out[2] = {9, 9};
    EXPECT_EQ(KvHexStrToBytes("010203", out, 2), 0);
    EXPECT_EQ(out[0], 9);
    EXPECT_EQ(KvHexStrToBytes("0102", out, 2), 2);
    EXPECT_EQ(out[1], 2);
}

TEST(KvStringTest, DblToStrHasSixDecimalsOrAsManyAsAskedFor) {
    EXPECT_EQ(KvdblToStr(2.5), "2.500000");
    EXPECT_EQ(KvdblToStr(-2.5, 2), "-2.50");
    EXPECT_EQ(KvdblToStr(2.75, 0), "3");
}

TEST(KvStringTest, HexStrToBytesGivesTheBytesAndTheirNumber) {
    int count = -1;
    EXPECT_EQ(KvHexStrToBytes("01ffzz7", count), (std::vector<unsigned char>{0x01, 0xff, 0x00}));
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(KvHexStrToBytes("f", count).empty());
    EXPECT_EQ(count, 0);
}

}  // namespace
