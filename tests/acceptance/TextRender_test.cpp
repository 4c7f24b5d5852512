#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "AcceptedTextKit.h"
#include "KvString.h"

namespace {

using acceptedtext::Bytes;
using acceptedtext::Conversion;

// ---- bytes ----

std::string Escape(std::string bytes) {
    return KvstringEscapeString(reinterpret_cast<unsigned char*>(bytes.data()),
                                static_cast<int>(bytes.size()));
}

const std::vector<Conversion> kEscapedBytes{Conversion{"Printable", "Az 9~!<>", "Az 9~!<>"},
                                            Conversion{"WhiteSpaceStays", "a\tb\nc\rd", "a\tb\nc\rd"},
                                            Conversion{"Nul", Bytes("a\0b"), R"(a\0b)"},
                                            Conversion{"Control", "\x01\x1b\x7f", R"(\01\1B\7F)"},
                                            Conversion{"VerticalTabAndFormFeed", "\v\f", R"(\0B\0C)"},
                                            Conversion{"High", "\x80\xe9\xff", R"(\80\E9\FF)"},
                                            Conversion{"BackslashOnly", R"(\)", R"(\\)"},
                                            Conversion{"BackslashLast", R"(ab\)", R"(ab\\)"},
                                            Conversion{"BackslashFirst", R"(\ab)", R"(\\\\\\)"},
                                            Conversion{"BackslashInside", "a\\\n\x01", R"(a\\\\\\)"},
                                            Conversion{"Empty", "", ""}};

TEST(AcceptedEscapedBytes, Give) {
    for (const Conversion& row : kEscapedBytes) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Escape(row.in), row.out);
    }
}

TEST(AcceptedEscapedBytesLength, BoundsWhatIsRead) {
    unsigned char data[] = "abcdef";
    EXPECT_EQ(KvstringEscapeString(data, 3), "abc");
    EXPECT_EQ(KvstringEscapeString(data, 0), "");
}

TEST(AcceptedEscapedBytesLength, EndsOnceMoreThan4090CharactersAreWritten) {
    EXPECT_EQ(Escape(std::string(4090, 'a')).size(), 4090U);
    EXPECT_EQ(Escape(std::string(9000, 'a')).size(), 4091U);
    EXPECT_EQ(Escape(std::string(9000, '\\')).size(), 4092U);
    EXPECT_EQ(Escape(std::string(9000, '\0')).size(), 4092U);
    EXPECT_EQ(Escape(std::string(9000, '\xff')).size(), 4092U);
}

// ---- one character ----

TEST(AcceptedCharacterName, IsThatOfTheTableForTheFirst32Codes) {
    const char* names[] = {"NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "NL",
                           "VT",  "NP",  "CR",  "SO",  "SI",  "DLE", "DC1", "DC2", "DC3", "DC4", "NAK",
                           "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US"};
    for (int c = 0; c < 32; ++c) {
        const std::string expected = std::string("<") + names[c] + ">";
        EXPECT_EQ(KvstringConvertAsciiToStr(c), expected) << c;
        EXPECT_EQ(KvstringConvertStrToAscii(expected), c);
    }
}

TEST(AcceptedCharacterName, IsTheCharacterWhenItIsPrintable) {
    for (int c = 32; c < 127; ++c) {
        const std::string expected(1, static_cast<char>(c));
        EXPECT_EQ(KvstringConvertAsciiToStr(c), expected);
        EXPECT_EQ(KvstringConvertStrToAscii(expected), c);
    }
}

TEST(AcceptedCharacterName, IsTheLowerCaseHexadecimalCodeOtherwise) {
    EXPECT_STREQ(KvstringConvertAsciiToStr(127), "<7f>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(128), "<80>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(0xE9), "<e9>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(255), "<ff>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(-1), "<ffffffff>");
}

TEST(AcceptedCharacterName, OfDelIsNotInTheTableAndSiKeepsItsOwn) {
    EXPECT_STREQ(KvstringConvertAsciiToStr(15), "<SI>");
    EXPECT_STREQ(KvstringConvertAsciiToStr(127), "<7f>");
}

TEST(AcceptedCharacterName, StandsInABufferThatTheNextCallOverwrites) {
    const char* first = KvstringConvertAsciiToStr('A');
    const char* second = KvstringConvertAsciiToStr('B');
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "B");
}

TEST(AcceptedCharacterName, IsReadBackFromItsCode) {
    EXPECT_EQ(KvstringConvertStrToAscii("<7f>"), 127);
    EXPECT_EQ(KvstringConvertStrToAscii("<ff>"), 255);
    EXPECT_EQ(KvstringConvertStrToAscii("no name"), -1);
    EXPECT_EQ(KvstringConvertStrToAscii("<XYZ>"), -1);
    EXPECT_EQ(KvstringConvertStrToAscii(""), -1);
}

TEST(AcceptedRendering, OfATextIsThatOfTheTrafficLog) {
    EXPECT_EQ(KvstringSafeString("a\r\n"), "a<CR><LF>");
    EXPECT_EQ(KvstringSafeString(Bytes("\t\0\x1b\x01")), "<TAB><NUL><ESC><01>");
    EXPECT_EQ(KvstringSafeString(""), "");
}

TEST(AcceptedRendering, ForPrintfShowsTheTextAsItIs) {
    for (const std::string text : {"100%", "%s%n%%", "plain", ""}) {
        char shown[64];
        const std::string format = KvstringEscapePrintfString(text);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        std::snprintf(shown, sizeof shown, format.c_str());
#pragma GCC diagnostic pop
        EXPECT_EQ(shown, text);
    }
    EXPECT_EQ(KvstringEscapePrintfString("100%"), "100%%");
}

}  // namespace
