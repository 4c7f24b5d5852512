#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "AcceptedTextKit.h"
#include "KvsysCodec.h"

namespace {

using acceptedtext::Bytes;
using acceptedtext::Conversion;

unsigned char* Data(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

std::string Encode(std::string bytes, bool lineBreaks = true) {
    return KvsysCodec::EncodeBase64(Data(bytes), static_cast<int>(bytes.size()), lineBreaks);
}

/// The form that answers into a text; "false" when it says so.
std::string EncodeInto(std::string bytes, bool lineBreaks) {
    std::string out = "old";
    const bool done = KvsysCodec::EncodeBase64(Data(bytes), static_cast<int>(bytes.size()), out, lineBreaks);
    return done ? out : "false" + out;
}

TEST(AcceptedCodec, HasNoDataDescendsFromNothingAndHasAVirtualDestructor) {
    EXPECT_EQ(sizeof(KvsysCodec), sizeof(void*));
    EXPECT_TRUE(std::has_virtual_destructor_v<KvsysCodec>);
    EXPECT_TRUE(std::is_default_constructible_v<KvsysCodec>);
}

const std::vector<Conversion> kBase64{
    Conversion{"OneByte", "f", "Zg=="},
    Conversion{"TwoBytes", "fo", "Zm8="},
    Conversion{"ThreeBytes", "foo", "Zm9v"},
    Conversion{"FourBytes", "foob", "Zm9vYg=="},
    Conversion{"FiveBytes", "fooba", "Zm9vYmE="},
    Conversion{"SixBytes", "foobar", "Zm9vYmFy"},
    Conversion{"Man", "Man", "TWFu"},
    Conversion{"Capital", "\x4d", "TQ=="},
    Conversion{"Nuls", Bytes("\0\0\0\0"), "AAAAAA=="},
    Conversion{"AllOnes", "\xff\xff\xff", "////"},
    Conversion{"Plus", "\xfb\xef\xbe", "++++"},
    Conversion{"Mixed", Bytes("\0\x10\x83\x10\x51\x87\x20\x92\x8b\x30\xd3\x8f"), "ABCDEFGHIJKLMNOP"},
    Conversion{"SaslPlain", Bytes("\0user\0pw"), "AHVzZXIAcHc="}};

TEST(AcceptedBase64, AsATextEndsWithALineEnd) {
    for (const Conversion& row : kBase64) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Encode(row.in), row.out + "\r\n");
    }
}

TEST(AcceptedBase64, AsATextIgnoresItsFlag) {
    for (const Conversion& row : kBase64) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Encode(row.in, false), row.out + "\r\n");
    }
}

TEST(AcceptedBase64, IntoATextHasNoLineEndWithoutTheFlag) {
    for (const Conversion& row : kBase64) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(EncodeInto(row.in, false), row.out);
    }
}

TEST(AcceptedBase64, IntoATextHasALineEndWithTheFlag) {
    for (const Conversion& row : kBase64) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(EncodeInto(row.in, true), row.out + "\r\n");
    }
}

TEST(AcceptedBase64, IsDecodedBack) {
    for (const Conversion& row : kBase64) {
        SCOPED_TRACE(row.name);
        std::string buffer = row.out;
        int length = static_cast<int>(buffer.size());
        EXPECT_TRUE(KvsysCodec::DecodeBase64(Data(buffer), length));
        EXPECT_EQ(buffer.substr(0, static_cast<std::size_t>(length)), row.in);
    }
}

struct Lines {
    int bytes;
    std::vector<std::size_t> lengths;
};

const std::vector<Lines> kBase64Lines{Lines{56, {76}},         Lines{57, {76}},
                                      Lines{58, {76, 4}},      Lines{114, {76, 76}},
                                      Lines{115, {76, 76, 4}}, Lines{200, {76, 76, 76, 40}}};

TEST(AcceptedBase64Lines, BreakAfter76Characters) {
    for (const Lines& row : kBase64Lines) {
        SCOPED_TRACE(row.bytes);
        std::string bytes;
        for (int i = 0; i < row.bytes; ++i) {
            bytes.push_back(static_cast<char>(i * 7));
        }
        const std::string plain = EncodeInto(bytes, false);
        std::string expected;
        std::size_t position = 0;
        for (const std::size_t length : row.lengths) {
            expected += plain.substr(position, length) + "\r\n";
            position += length;
        }
        EXPECT_EQ(position, plain.size());
        EXPECT_EQ(Encode(bytes), expected);
        EXPECT_EQ(EncodeInto(bytes, true), expected);
    }
}

TEST(AcceptedBase64Nothing, AsATextIsEmpty) {
    unsigned char byte = 'x';
    EXPECT_EQ(KvsysCodec::EncodeBase64(&byte, 0, true), "");
    EXPECT_EQ(KvsysCodec::EncodeBase64(nullptr, 3, true), "");
}

TEST(AcceptedBase64Nothing, IntoATextEmptiesItAndAnswersFalse) {
    unsigned char byte = 'x';
    std::string out = "old";
    EXPECT_FALSE(KvsysCodec::EncodeBase64(&byte, 0, out, false));
    EXPECT_EQ(out, "");
    out = "old";
    EXPECT_FALSE(KvsysCodec::EncodeBase64(nullptr, 3, out, true));
    EXPECT_EQ(out, "");
}

TEST(AcceptedBase64Input, IsNotChanged) {
    std::string bytes = "abcd";
    KvsysCodec::EncodeBase64(Data(bytes), 4, true);
    EXPECT_EQ(bytes, "abcd");
}

TEST(AcceptedBase64RoundTrip, BringsBackEveryByteAtEveryLength) {
    std::string bytes;
    for (int i = 0; i < 300; ++i) {
        std::string buffer = Encode(bytes);
        int length = static_cast<int>(buffer.size());
        EXPECT_TRUE(KvsysCodec::DecodeBase64(Data(buffer), length));
        EXPECT_EQ(buffer.substr(0, static_cast<std::size_t>(length)), bytes) << i;
        bytes.push_back(static_cast<char>(255 - i));
    }
}

// ---- decoding ----

struct Decoding {
    const char* name;
    std::string in;
    std::string out;
    bool valid;
};

const std::vector<Decoding> kBase64Decoding{
    Decoding{"WithALineEnd", "TWFu\r\n", "Man", true},
    Decoding{"TwoLeftOver", "TQ", "M", true},
    Decoding{"ThreeLeftOver", "TWE", "Ma", true},
    Decoding{"OneLeftOver", "T", "", false},
    Decoding{"OneLeftOverBehindAGroup", "TWFuT", "Man", false},
    Decoding{"StopsAtTheEqualsSign", "TW=Fu", "M", true},
    Decoding{"IgnoresBadCharactersBehindTheEqualsSign", "TQ==***", "M", true},
    Decoding{"EqualsSignOnly", "=", "", true},
    Decoding{"EqualsSignBehindOne", "T=", "", false},
    Decoding{"EqualsSignBehindAGroup", "TWFu=TWFu", "Man", true},
    Decoding{"SkipsWhiteSpace", " T\tW\nF\ru\v\f ", "Man", true},
    Decoding{"WhiteSpaceOnly", " \r\n", "", true},
    Decoding{"SkipsAnAsteriskAndAnswersFalse", "TW*Fu", "Man", false},
    Decoding{"AsteriskFirst", "*TWFu", "Man", false},
    Decoding{"AsteriskLast", "TWFu*", "Man", false},
    Decoding{"NulIsBad", Bytes("TW\0Fu"), "Man", false},
    Decoding{"HighByteIsBad",
             "TW\xe9"
             "Fu",
             "Man", false},
    Decoding{"UrlAlphabetIsBad", "TW-_Fu", "Man", false},
    Decoding{"BadOnly", "!?", "", false},
    Decoding{"HighestValues", "////", "\xff\xff\xff", true},
    Decoding{"Plus", "++++", "\xfb\xef\xbe", true},
    Decoding{"Digits", "0123456789", "\xd3\x5d\xb7\xe3\x9e\xbb\xf3", true},
    Decoding{"StrayBitsAreDropped", "TX", "M", true},
    Decoding{"Nuls", "AAAA", Bytes("\0\0\0"), true}};

TEST(AcceptedBase64Decoding, DeliversWhatItCan) {
    for (const Decoding& row : kBase64Decoding) {
        SCOPED_TRACE(row.name);
        std::string buffer = row.in + "|";
        int length = static_cast<int>(row.in.size());
        EXPECT_EQ(KvsysCodec::DecodeBase64(Data(buffer), length), row.valid);
        ASSERT_EQ(length, static_cast<int>(row.out.size()));
        EXPECT_EQ(buffer.substr(0, row.out.size()), row.out);
        EXPECT_EQ(buffer[row.out.size()], '\0');
    }
}

TEST(AcceptedBase64DecodingLength, OfZeroTouchesNothing) {
    unsigned char buffer[] = "TWFu";
    int length = 0;
    EXPECT_TRUE(KvsysCodec::DecodeBase64(buffer, length));
    EXPECT_EQ(length, 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "TWFu");
}

TEST(AcceptedBase64DecodingLength, BelowZeroGivesAnEmptyText) {
    unsigned char buffer[] = "TWFu";
    int length = -1;
    EXPECT_TRUE(KvsysCodec::DecodeBase64(buffer, length));
    EXPECT_EQ(length, 0);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], 'W');
}

TEST(AcceptedBase64DecodingLength, BoundsWhatIsRead) {
    unsigned char buffer[] = "TWFuTWFu";
    int length = 4;
    EXPECT_TRUE(KvsysCodec::DecodeBase64(buffer, length));
    EXPECT_EQ(length, 3);
    EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "Man");
}

}  // namespace
