#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string EscapeString(std::string data) {
    return KvstringEscapeString(reinterpret_cast<unsigned char*>(data.data()), static_cast<int>(data.size()));
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

TEST(KvStringTest, ConvertStrToAsciiUndoesConvertAsciiToStr) {
    for (int code = 0; code < 300; ++code) {
        EXPECT_EQ(KvstringConvertStrToAscii(KvstringConvertAsciiToStr(code)), code);
    }
}

TEST(KvStringTest, ConvertStrToAsciiOfAnotherTextIsMinusOne) {
    for (const char* name : {"", "AB", "<>", "<DEL>", "<nl>", "<7F>", "<a>", "<7f", "7f", "\x01", "<7f>x"}) {
        EXPECT_EQ(KvstringConvertStrToAscii(name), -1) << name;
    }
}

TEST(KvStringTest, SafeStringRendersAWholeText) {
    EXPECT_EQ(KvstringSafeString(std::string("a\r\n\0b", 5)), "a<CR><LF><NUL>b");
    EXPECT_EQ(KvstringSafeString(""), "");
}

TEST(KvStringTest, EscapePrintfStringDoublesPercentSigns) {
    EXPECT_EQ(KvstringEscapePrintfString("100% %s%%"), "100%% %%s%%%%");
}

}  // namespace
