#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <string>
#include <vector>

#include "AcceptedTextKit.h"
#include "KvString.h"

namespace {

using acceptedtext::Bytes;
using acceptedtext::Conversion;
using acceptedtext::TimeZone;

// ---- numbers ----

TEST(AcceptedNumberText, OfIntegers) {
    EXPECT_EQ(KvintToStr(0), "0");
    EXPECT_EQ(KvintToStr(-42), "-42");
    EXPECT_EQ(KvintToStr(INT_MAX), "2147483647");
    EXPECT_EQ(KvintToStr(INT_MIN), "-2147483648");
}

TEST(AcceptedNumberText, OfWideIntegers) {
    EXPECT_EQ(Kvint64ToStr(0), "0");
    EXPECT_EQ(Kvint64ToStr(LLONG_MAX), "9223372036854775807");
    EXPECT_EQ(Kvint64ToStr(LLONG_MIN), "-9223372036854775808");
}

TEST(AcceptedNumberText, OfUnsignedIntegers) {
    EXPECT_EQ(KvuintToStr(0), "0");
    EXPECT_EQ(KvuintToStr(UINT_MAX), "4294967295");
}

TEST(AcceptedNumberText, OfUnsignedLongsShows32Bits) {
    EXPECT_EQ(KvulongToStr(0), "0");
    EXPECT_EQ(KvulongToStr(4294967295UL), "4294967295");
    EXPECT_EQ(KvulongToStr(ULONG_MAX), "4294967295");
    if constexpr (sizeof(long) > 4) {
        EXPECT_EQ(KvulongToStr((1UL << 16 << 16) + 5), "5");
    }
}

TEST(AcceptedNumberText, OfLongs) {
    EXPECT_EQ(KvlongToStr(-7), "-7");
    EXPECT_EQ(KvlongToStr(LONG_MAX), std::to_string(LONG_MAX));
    EXPECT_EQ(KvlongToStr(LONG_MIN), std::to_string(LONG_MIN));
}

TEST(AcceptedNumberText, OfDecimals) {
    EXPECT_EQ(KvdblToStr(2.5), "2.500000");
    EXPECT_EQ(KvdblToStr(-0.125), "-0.125000");
    EXPECT_EQ(KvdblToStr(2.5, 2), "2.50");
    EXPECT_EQ(KvdblToStr(2.75, 0), "3");
}

TEST(AcceptedSqlNumber, IsTheNumbersText) {
    EXPECT_EQ(KvstringSQLEncode(-5), "-5");
    EXPECT_EQ(KvstringSQLEncode(0), "0");
    EXPECT_EQ(KvstringSQLEncode(LONG_MIN), std::to_string(LONG_MIN));
    EXPECT_EQ(KvstringSQLEncode(ULONG_MAX), std::to_string(ULONG_MAX));
    EXPECT_EQ(KvstringSQLEncode(UINT_MAX), "4294967295");
    EXPECT_EQ(KvstringSQLEncode(1.5F), "1.500000");
    EXPECT_EQ(KvstringSQLEncode(-2.25), "-2.250000");
}

TEST(AcceptedSqlFilterNumber, IsTheNumbersTextAndMatchesAnythingForZero) {
    EXPECT_EQ(KvstringSQLFilterEncode(0), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(-3), "-3");
    EXPECT_EQ(KvstringSQLFilterEncode(0.0F), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(0.5F), "0.500000");
    EXPECT_EQ(KvstringSQLFilterEncode(0.0), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(-0.5), "-0.500000");
    EXPECT_EQ(KvstringSQLFilterEncode(0U), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(7U), "7");
    EXPECT_EQ(KvstringSQLFilterEncode(0UL), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(8UL), "8");
}

// ---- SQL texts ----

TEST(AcceptedSqlText, DoublesApostrophes) {
    EXPECT_EQ(KvstringSQLEncode("O'Brien"), "O''Brien");
    EXPECT_EQ(KvstringSQLEncode("''"), "''''");
    EXPECT_EQ(KvstringSQLEncode("\"%_[\\"), "\"%_[\\");
    EXPECT_EQ(KvstringSQLEncode(""), "");
}

TEST(AcceptedSqlText, EndsAtTheFirstNul) {
    EXPECT_EQ(KvstringSQLEncode(Bytes("a'\0b'")), "a''");
}

const std::vector<Conversion> kSqlLike{Conversion{"Apostrophe", "'", "''"},
                                       Conversion{"Percent", "%", R"(\%)"},
                                       Conversion{"Underscore", "_", R"(\_)"},
                                       Conversion{"Bracket", "[", R"(\[)"},
                                       Conversion{"Backslash", R"(\)", R"(\\)"},
                                       Conversion{"ClosingBracketStays", "]\"a", "]\"a"},
                                       Conversion{"Text", "50%_[a]'\\", R"(50\%\_\[a]''\\)"},
                                       Conversion{"Empty", "", ""}};

TEST(AcceptedSqlLike, Gives) {
    for (const Conversion& row : kSqlLike) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvstringSQLLikeEncode(row.in), row.out);
    }
}

TEST(AcceptedSqlFilterText, MatchesAnythingForAnEmptyText) {
    EXPECT_EQ(KvstringSQLFilterEncode(std::string()), "%");
    EXPECT_EQ(KvstringSQLFilterEncode(std::string("abc")), "abc");
}

// ---- times ----

/// The seconds of a local date and time.
long At(int year, int month, int day, int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return static_cast<long>(std::mktime(&parts));
}

TEST(AcceptedTimeText, ForSqlPutsTheMonthFirst) {
    EXPECT_EQ(KvstringSQLTime(At(2024, 3, 5, 14, 7, 9)), "03/05/2024 14:07:09");
    EXPECT_EQ(KvstringSQLTime(At(1999, 12, 31, 23, 59, 59)), "12/31/1999 23:59:59");
}

TEST(AcceptedTimeText, ForSqlIsLocalTime) {
    const TimeZone zone("KVT-5:30");
    EXPECT_EQ(KvstringSQLTime(0), "01/01/1970 05:30:00");
    EXPECT_EQ(KvstringSQLTime(1), "01/01/1970 05:30:01");
    EXPECT_EQ(KvstringSQLTime(-1), "01/01/1970 05:29:59");
}

TEST(AcceptedTimeText, ForASqlFilterMatchesAnythingForZero) {
    EXPECT_EQ(KvstringSQLFilterTime(0), "%");
    EXPECT_EQ(KvstringSQLFilterTime(At(2024, 3, 5, 14, 7, 9)), "03/05/2024 14:07:09");
}

TEST(AcceptedTimeText, InTheFormOfCtimeHasNoNewline) {
    EXPECT_EQ(KvstringSQLCTime(At(2024, 3, 5, 14, 7, 9)), "Tue Mar  5 14:07:09 2024");
    const TimeZone zone("KVT3");
    EXPECT_EQ(KvstringSQLCTime(0), "Wed Dec 31 21:00:00 1969");
}

TEST(AcceptedTimeText, FollowsItsFormat) {
    const long t = At(2024, 3, 5, 14, 7, 9);
    EXPECT_EQ(KvstringGetDate(t, "%Y-%m-%d %H:%M:%S"), "2024-03-05 14:07:09");
    EXPECT_EQ(KvstringGetDate(t, "%A %j%%"), "Tuesday 065%");
    EXPECT_EQ(KvstringGetDate(t, "plain"), "plain");
    EXPECT_EQ(KvstringGetDate(t, ""), "");
}

TEST(AcceptedTimeText, FollowsItsFormatInLocalTime) {
    const TimeZone zone("KVT-5:30");
    EXPECT_EQ(KvstringGetDate(0, "%H:%M %Z"), "05:30 KVT");
}

TEST(AcceptedTimeText, HasRoomFor79Characters) {
    EXPECT_EQ(KvstringGetDate(0, std::string(79, 'x')), std::string(79, 'x'));
    EXPECT_EQ(KvstringGetDate(0, std::string(80, 'x')), "");
}

TEST(AcceptedTimeText, IsThatOfNowWithoutATime) {
    const long before = static_cast<long>(std::time(nullptr));
    const std::string text = KvstringGetDate("%s");
    const long after = static_cast<long>(std::time(nullptr));
    EXPECT_GE(std::stol(text), before);
    EXPECT_LE(std::stol(text), after);
}

TEST(AcceptedTimeText, IsReadAsZeroWhateverItSays) {
    EXPECT_EQ(KvstringSQLGetTime("2024-03-05 14:07:09"), 0);
    EXPECT_EQ(KvstringSQLGetTime("nonsense"), 0);
    EXPECT_EQ(KvstringSQLGetTime(""), 0);
}

// ---- classification ----

struct Type {
    const char* text;
    int type;
};

const std::vector<Type> kDataType{
    Type{"", 0},     Type{"abc", 0},  Type{"0", 1},    Type{"123", 1},
    Type{"+123", 1}, Type{"-123", 1}, Type{"+", 1},    Type{"-", 1},
    Type{".", 2},    Type{"1.5", 2},  Type{"-1.5", 2}, Type{".5", 2},
    Type{"5.", 2},   Type{"+.5", 2},  Type{"-.", 2},   Type{"1.2.3", 0},
    Type{"..", 0},   Type{".5.", 0},  Type{"1-2", 0},  Type{"+-1", 0},
    Type{"1e5", 0},  Type{"0x1F", 0}, Type{" 1", 0},   Type{"1 ", 0},
    Type{"1,5", 0},  Type{"a1", 0},   Type{"1a", 0},   Type{"99999999999999999999999", 1}};

TEST(AcceptedDataType, IsDeduced) {
    for (const Type& row : kDataType) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(KvdeduceDataType(row.text), row.type) << row.text;
    }
}

TEST(AcceptedNumeric, IsATextOfDigitsOnly) {
    for (const char* text : {"", "0", "0123456789", "99999999999999999999"}) {
        EXPECT_TRUE(KvstringIsNumeric(text)) << text;
    }
    for (const char* text : {"-1", "+1", "1.0", " 1", "1 ", "12a", "a", "/", ":", "\xb2"}) {
        EXPECT_FALSE(KvstringIsNumeric(text)) << text;
    }
    EXPECT_FALSE(KvstringIsNumeric(Bytes("1\0")));
}

// ---- hexadecimal ----

TEST(AcceptedHexNumber, IsReadAsThroughAStream) {
    EXPECT_EQ(KvHexStrToUInt("0"), 0U);
    EXPECT_EQ(KvHexStrToUInt("ff"), 255U);
    EXPECT_EQ(KvHexStrToUInt("DeadBeef"), 0xDEADBEEFU);
    EXPECT_EQ(KvHexStrToUInt("0x1F"), 31U);
    EXPECT_EQ(KvHexStrToUInt("  1f"), 31U);
    EXPECT_EQ(KvHexStrToUInt("12zz"), 0x12U);
    EXPECT_EQ(KvHexStrToUInt("FFFFFFFF"), 4294967295U);
    EXPECT_EQ(KvHexStrToUInt("100000000"), 4294967295U);
    EXPECT_EQ(KvHexStrToUInt("zz"), 0U);
    EXPECT_EQ(KvHexStrToUInt(""), 0U);
}

using ByteList = std::vector<unsigned char>;

/// The buffer of `size` bytes, filled with 0xAA before, and the result as its last element.
ByteList HexBytes(const std::string& hex, int size) {
    ByteList out(8, 0xAA);
    const int count = KvHexStrToBytes(hex, out.data(), size);
    out.push_back(static_cast<unsigned char>(count));
    return out;
}

TEST(AcceptedHexBytes, AreConvertedAndTheRestFilledWithZeros) {
    EXPECT_EQ(HexBytes("01fFa0", 6), (ByteList{0x01, 0xFF, 0xA0, 0, 0, 0, 0xAA, 0xAA, 3}));
    EXPECT_EQ(HexBytes("0102", 2), (ByteList{1, 2, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 2}));
}

TEST(AcceptedHexBytes, IgnoreALastSingleCharacter) {
    EXPECT_EQ(HexBytes("0102f", 3), (ByteList{1, 2, 0, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 2}));
    EXPECT_EQ(HexBytes("0102f", 2), (ByteList{1, 2, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 2}));
}

TEST(AcceptedHexBytes, ThatDoNotFitAreNotWritten) {
    EXPECT_EQ(HexBytes("010203", 2), (ByteList{0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0}));
}

TEST(AcceptedHexBytes, OfAnEmptyTextAreZeros) {
    EXPECT_EQ(HexBytes("", 2), (ByteList{0, 0, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0}));
}

TEST(AcceptedHexBytes, OfAPairThatIsNoNumberAreZero) {
    EXPECT_EQ(HexBytes("01zz02", 3), (ByteList{1, 0, 2, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 3}));
}

TEST(AcceptedHexBytes, AreAnsweredWithTheirCount) {
    int count = -1;
    EXPECT_EQ(KvHexStrToBytes("01ff", count), (ByteList{1, 255}));
    EXPECT_EQ(count, 2);
    EXPECT_EQ(KvHexStrToBytes("", count), ByteList{});
    EXPECT_EQ(count, 0);
}

}  // namespace
