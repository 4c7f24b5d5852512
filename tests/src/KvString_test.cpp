#include "KvString.h"

#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
    findandreplace(text, what, with);
    return text;
}

std::string EscapeString(std::string data) {
    return KvstringEscapeString(reinterpret_cast<unsigned char*>(data.data()), static_cast<int>(data.size()));
}

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

/// Runs one of the in-place functions on a copy of `text`.
std::string InPlace(void (*trim)(char*), std::string text) {
    trim(text.data());
    return text.c_str();
}

std::string CreatedPath(std::string dir, std::string name) {
    char out[64];
    KvstringCreatePath(out, dir.data(), name.data());
    return out;
}

/// 5 March 2024, 14:07:09 local time.
long AfternoonInMarch() {
    tm parts{};
    parts.tm_year = 124;
    parts.tm_mon = 2;
    parts.tm_mday = 5;
    parts.tm_hour = 14;
    parts.tm_min = 7;
    parts.tm_sec = 9;
    parts.tm_isdst = -1;
    return static_cast<long>(mktime(&parts));
}

// Replacement and rendering

TEST(KvStringTest, FindAndReplaceReplacesEveryOccurrence) {
    EXPECT_EQ(Replaced("a\r\nb\r\n\r\nc", "\r\n", "\n"), "a\nb\n\nc");
    EXPECT_EQ(Replaced("abc", "x", "y"), "abc");
    EXPECT_EQ(Replaced("", "x", "y"), "");
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

TEST(KvStringTest, EscapeStringMarksWhatIsNotPrintable) {
    EXPECT_EQ(EscapeString(std::string("a \0\x01\x7f\x80\xff", 7)), "a \\0\\01\\7F\\80\\FF");
}

TEST(KvStringTest, EscapeStringCopiesTabsAndLineEnds) {
    EXPECT_EQ(EscapeString("a\tb\r\nc"), "a\tb\r\nc");
}

TEST(KvStringTest, EscapeStringStaysAtTheFirstBackslash) {
    EXPECT_EQ(EscapeString("ab\\cd"), "ab\\\\\\\\\\\\");
    EXPECT_EQ(EscapeString("\\"), "\\\\");
}

TEST(KvStringTest, EscapeStringEndsOnceMoreThan4090CharactersAreWritten) {
    EXPECT_EQ(EscapeString(std::string(5000, 'a')), std::string(4091, 'a'));
    EXPECT_EQ(EscapeString(std::string(4090, 'a') + "\x80z"), std::string(4090, 'a') + "\\80");
}

TEST(KvStringTest, ConvertAsciiToStrNamesTheControlCharacters) {
    EXPECT_STREQ(KvstringConvertAsciiToStr(0), "<NUL>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(9), "<HT>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(10), "<NL>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(12), "<NP>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(13), "<CR>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(15), "<SI>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(16), "<DLE>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(31), "<US>");
}

TEST(KvStringTest, ConvertAsciiToStrRendersPrintableCharactersAsThemselves) {
    EXPECT_STREQ(KvstringConvertAsciiToStr(65), "A");
    EXPECT_STREQ(KvstringConvertAsciiToStr(' '), " ");
    EXPECT_STREQ(KvstringConvertAsciiToStr('~'), "~");
}

TEST(KvStringTest, ConvertAsciiToStrRendersDelByItsCode) {
    EXPECT_STREQ(KvstringConvertAsciiToStr(127), "<7f>");
}

TEST(KvStringTest, ConvertAsciiToStrRendersOtherCodesInHexadecimal) {
    EXPECT_STREQ(KvstringConvertAsciiToStr(0xe9), "<e9>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(4096), "<1000>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(-1), "<ffffffff>");
}

TEST(KvStringTest, ConvertAsciiToStrAnswersTheSameBufferEveryTime) {
    const char* first = KvstringConvertAsciiToStr('a');
    EXPECT_EQ(KvstringConvertAsciiToStr('b'), first);
    EXPECT_STREQ(first, "b");
}

// SQL literals and filters

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

// Numbers as text

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

// Times as text

TEST(KvStringTest, SqlTimePutsTheMonthFirst) {
    EXPECT_EQ(KvstringSQLTime(AfternoonInMarch()), "03/05/2024 14:07:09");
}

TEST(KvStringTest, SqlFilterTimeOfZeroMatchesAnything) {
    EXPECT_EQ(KvstringSQLFilterTime(0), "%");
    EXPECT_EQ(KvstringSQLFilterTime(AfternoonInMarch()), "03/05/2024 14:07:09");
}

TEST(KvStringTest, SqlCTimeHasNoNewline) {
    EXPECT_EQ(KvstringSQLCTime(AfternoonInMarch()), "Tue Mar  5 14:07:09 2024");
}

TEST(KvStringTest, GetDateFormatsTheTimeGiven) {
    EXPECT_EQ(KvstringGetDate(AfternoonInMarch(), "%Y-%m-%d %H:%M"), "2024-03-05 14:07");
}

TEST(KvStringTest, GetDateWithoutATimeFormatsTheCurrentOne) {
    const long before = static_cast<long>(time(nullptr));
    const long formatted = std::stol(KvstringGetDate("%s"));
    EXPECT_GE(formatted, before);
    EXPECT_LE(formatted, static_cast<long>(time(nullptr)));
}

TEST(KvStringTest, GetDateOfMoreThan79CharactersIsEmpty) {
    EXPECT_EQ(KvstringGetDate(AfternoonInMarch(), std::string(79, 'x')), std::string(79, 'x'));
    EXPECT_EQ(KvstringGetDate(AfternoonInMarch(), std::string(80, 'x')), "");
}

TEST(KvStringTest, ATimeWithoutADateHasNoText) {
    if (sizeof(long) < 8) {
        GTEST_SKIP() << "every 32-bit time has a date";
    }
    EXPECT_EQ(KvstringSQLTime(LONG_MAX), "");
    EXPECT_EQ(KvstringSQLCTime(LONG_MAX), "");
    EXPECT_EQ(KvstringGetDate(LONG_MAX, "%Y"), "");
}

TEST(KvStringTest, SqlGetTimeIsAlwaysZero) {
    EXPECT_EQ(KvstringSQLGetTime("2024-03-05 14:07:09"), 0);
    EXPECT_EQ(KvstringSQLGetTime("no time"), 0);
}

// Parsing, classification and lists

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

// Trimming and paths

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

TEST(KvStringTest, GetFileNameIsThePartBehindTheLastSlash) {
    EXPECT_STREQ(GetFileName("/var/log/mail.log"), "mail.log");
    EXPECT_STREQ(GetFileName("mail.log"), "mail.log");
    EXPECT_STREQ(GetFileName("/var/"), "");
}

TEST(KvStringTest, CreatePathPutsOneSlashBetweenDirectoryAndName) {
    EXPECT_EQ(CreatedPath("/var", "mail"), "/var/mail");
    EXPECT_EQ(CreatedPath("/var/", "mail"), "/var/mail");
    EXPECT_EQ(CreatedPath("", "mail"), "/mail");
}

// Patterns

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
