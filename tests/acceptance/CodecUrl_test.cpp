#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "AcceptedTextKit.h"
#include "KvsysCodec.h"

namespace {

using acceptedtext::Bytes;
using acceptedtext::Conversion;

bool IsAsciiAlnum(int c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

std::string Escape(int c) {
    char text[8];
    std::snprintf(text, sizeof text, "%%%02X", static_cast<unsigned int>(c) & 0xFFU);
    return text;
}

std::string Char(int c) {
    return std::string(1, static_cast<char>(c));
}

TEST(AcceptedUrl, EncodesEveryByteButDigitsLettersAndUnderscore) {
    for (int c = 0; c < 256; ++c) {
        const std::string expected = c == ' ' ? "+" : IsAsciiAlnum(c) || c == '_' ? Char(c) : Escape(c);
        EXPECT_EQ(KvsysCodec::EncodeUrl(Char(c)), expected) << c;
    }
}

TEST(AcceptedUrl, EncodesWholeTexts) {
    EXPECT_EQ(KvsysCodec::EncodeUrl("a b-c"), "a+b%2Dc");
    EXPECT_EQ(KvsysCodec::EncodeUrl(""), "");
    EXPECT_EQ(KvsysCodec::EncodeUrl("-.~"), "%2D%2E%7E");
    EXPECT_EQ(KvsysCodec::EncodeUrl(Bytes("a\0b")), "a%00b");
    EXPECT_EQ(KvsysCodec::EncodeUrl("\xe9"), "%E9");
}

const std::vector<Conversion> kUrlDecoding{Conversion{"Empty", "", ""},
                                           Conversion{"Plain", "abc-._~", "abc-._~"},
                                           Conversion{"Plus", "a+b++", "a b  "},
                                           Conversion{"Escape", "%41%2d%2D", "A--"},
                                           Conversion{"HighByte", "%E9%ff", "\xe9\xff"},
                                           Conversion{"Nul", "a%00b", Bytes("a\0b")},
                                           Conversion{"NotHexadecimal", "a%zzb", Bytes("a\0b")},
                                           Conversion{"HalfHexadecimal", "%4z", "\x04"},
                                           Conversion{"EscapedPercent", "%2541", "%41"},
                                           Conversion{"EndsInPercent", "abc%", ""},
                                           Conversion{"EndsInPercentAndOneDigit", "abc%4", ""},
                                           Conversion{"PercentOnly", "%", ""},
                                           Conversion{"EndsAtTheFirstNul", Bytes("ab\0cd"), "ab"},
                                           Conversion{"EscapeCutByANul",
                                                      Bytes("ab%4\0"
                                                            "1"),
                                                      ""},
                                           Conversion{"LastEscape", "ab%41", "abA"},
                                           Conversion{"HighByteStays", "\xe9", "\xe9"},
                                           Conversion{"PlusInAnEscape", "%+4", "\x04"},
                                           Conversion{"BlankInAnEscape", "% 4", "\x04"},
                                           Conversion{"MinusInAnEscape", "%-1", "\xff"}};

TEST(AcceptedUrlDecoding, Gives) {
    for (const Conversion& row : kUrlDecoding) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::DecodeUrl(row.in), row.out);
    }
}

TEST(AcceptedUrl, IsDecodedBack) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += Char(c);
    }
    EXPECT_EQ(KvsysCodec::DecodeUrl(KvsysCodec::EncodeUrl(all)), all);
}

// ---- into a caller's buffer ----

/// The output for a buffer of `size` bytes; "untouched" when nothing was written.
std::string HttpEncode(const std::string& in, int size = 200) {
    char out[256];
    std::snprintf(out, sizeof out, "untouched");
    KvsysCodec::KvhttpStrEncode(out, size, in.c_str());
    return out;
}

TEST(AcceptedHttpEncoding, KeepsLettersDigitsAndThreeMarks) {
    for (int c = 1; c < 128; ++c) {
        const bool kept = IsAsciiAlnum(c) || c == '/' || c == '_' || c == '.';
        const std::string expected = c == '\n' ? "%0D%0A" : kept ? Char(c) : Escape(c);
        EXPECT_EQ(HttpEncode(Char(c)), expected) << c;
    }
}

TEST(AcceptedHttpEncoding, TurnsEveryHighByteIntoPercentFF) {
    for (int c = 128; c < 256; ++c) {
        EXPECT_EQ(HttpEncode(Char(c) + "a"), "%FFa") << c;
    }
}

const std::vector<Conversion> kHttpEncodingText{Conversion{"Path", "/a b/c_d.e", "/a%20b/c_d.e"},
                                                Conversion{"LoneLineFeed", "a\nb", "a%0D%0Ab"},
                                                Conversion{"CarriageReturnAndLineFeed", "a\r\nb", "a%0D%0Ab"},
                                                Conversion{"LoneCarriageReturn", "a\rb", "a%0Db"},
                                                Conversion{"TwoLineFeeds", "\n\n", "%0D%0A%0D%0A"},
                                                Conversion{"LineEndAndLineFeed", "\r\n\n", "%0D%0A%0D%0A"},
                                                Conversion{"Nothing", "", "untouched"}};

TEST(AcceptedHttpEncodingText, Gives) {
    for (const Conversion& row : kHttpEncodingText) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(HttpEncode(row.in), row.out);
    }
}

TEST(AcceptedHttpEncoding, WritesNothingIntoABufferBelowFive) {
    for (const int size : {-1, 0, 1, 4}) {
        EXPECT_EQ(HttpEncode("abc", size), "untouched") << size;
    }
}

TEST(AcceptedHttpEncoding, StopsWhenFourMoreCharactersWouldReachTheSize) {
    EXPECT_EQ(HttpEncode("abcdefgh", 5), "a");
    EXPECT_EQ(HttpEncode("abcdefgh", 6), "ab");
    EXPECT_EQ(HttpEncode("abcdefgh", 10), "abcdef");
    EXPECT_EQ(HttpEncode("abcdefgh", 13), "abcdefgh");
}

TEST(AcceptedHttpEncoding, StopsBehindAWholeEscape) {
    EXPECT_EQ(HttpEncode("-----", 5), "%2D");
    EXPECT_EQ(HttpEncode("-----", 7), "%2D");
    EXPECT_EQ(HttpEncode("-----", 8), "%2D%2D");
    EXPECT_EQ(HttpEncode("a-b-c", 8), "a%2D");
    EXPECT_EQ(HttpEncode("a-b-c", 9), "a%2Db");
}

// ---- names ----

using Encoding = std::string (*)(const std::string&);

/// Both do the same.
const std::vector<Encoding> kNames{&KvsysCodec::EncodeName, &KvsysCodec::EncodeFileName};

TEST(AcceptedNames, EncodeEveryAsciiByteButDigitsAndLetters) {
    for (const Encoding encode : kNames) {
        for (int c = 0; c < 128; ++c) {
            EXPECT_EQ(encode(Char(c)), IsAsciiAlnum(c) ? Char(c) : Escape(c)) << c;
        }
    }
}

TEST(AcceptedNames, EncodeEveryHighByteAsPercentFF) {
    for (const Encoding encode : kNames) {
        for (int c = 128; c < 256; ++c) {
            EXPECT_EQ(encode(Char(c)), "%FF") << c;
            EXPECT_EQ(encode("a" + Char(c) + "b"), "a%FFb") << c;
        }
    }
}

TEST(AcceptedNames, EncodeWholeTexts) {
    for (const Encoding encode : kNames) {
        EXPECT_EQ(encode(""), "");
        EXPECT_EQ(encode("my file_1.txt"), "my%20file%5F1%2Etxt");
        EXPECT_EQ(encode("\xe9\xe9\xe9\xe9"), "%FF%FF%FF%FF");
    }
}

const std::vector<Conversion> kNameDecoding{Conversion{"Empty", "", ""},
                                            Conversion{"Plain", "a+b.c", "a+b.c"},
                                            Conversion{"Escapes", "my%20file%5f1%2Etxt", "my file_1.txt"},
                                            Conversion{"LastEscape", "a%41", "aA"},
                                            Conversion{"PercentAtTheEnd", "a%", "a%"},
                                            Conversion{"PercentAndOneCharacter", "a%4", "a%4"},
                                            Conversion{"HalfHexadecimal", "%4z", "\x04"},
                                            Conversion{"High", "%FF%e9", "\xff\xe9"},
                                            Conversion{"EscapedPercent", "%2541", "%41"},
                                            Conversion{"HighByteStays", "\xe9", "\xe9"}};

TEST(AcceptedNameDecoding, OfANameGives) {
    for (const Conversion& row : kNameDecoding) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::DecodeName(row.in), row.out);
    }
}

TEST(AcceptedNameDecoding, OfAFileNameGivesTheSame) {
    for (const Conversion& row : kNameDecoding) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KvsysCodec::DecodeFileName(row.in), row.out);
    }
}

TEST(AcceptedNameRoundTrip, BringsBackAsciiTexts) {
    std::string all;
    for (int c = 1; c < 128; ++c) {
        all += Char(c);
    }
    EXPECT_EQ(KvsysCodec::DecodeName(KvsysCodec::EncodeName(all)), all);
    EXPECT_EQ(KvsysCodec::DecodeFileName(KvsysCodec::EncodeFileName(all)), all);
}

}  // namespace
