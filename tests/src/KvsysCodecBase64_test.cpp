#include "KvsysCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string Base64Of(std::string data, bool lineBreaks = true) {
    return KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(data.data()),
                                    static_cast<int>(data.size()), lineBreaks);
}

/// The output-parameter form; "(false)" when it answers false.
std::string Base64Into(std::string data, bool lineBreaks) {
    std::string out = "old";
    const bool result = KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(data.data()),
                                                 static_cast<int>(data.size()), out, lineBreaks);
    return result ? out : out + "(false)";
}

struct Decoded {
    bool valid;
    std::string bytes;
    char terminator;
};

Decoded DecodeBase64(const std::string& text) {
    std::vector<unsigned char> buffer(text.begin(), text.end());
    buffer.push_back('?');
    int length = static_cast<int>(text.size());
    const bool valid = KvsysCodec::DecodeBase64(buffer.data(), length);
    const std::string bytes(buffer.begin(), buffer.begin() + length);
    return {valid, bytes, static_cast<char>(buffer[static_cast<std::size_t>(length)])};
}

TEST(KvsysCodecTest, EncodeBase64OfThreeBytesIsOneGroupAndALineEnd) {
    EXPECT_EQ(Base64Of("Man"), "TWFu\r\n");
}

TEST(KvsysCodecTest, EncodeBase64OfOneByteIsPaddedTwice) {
    EXPECT_EQ(Base64Of("M"), "TQ==\r\n");
}

TEST(KvsysCodecTest, EncodeBase64OfTwoBytesIsPaddedOnce) {
    EXPECT_EQ(Base64Of("Ma"), "TWE=\r\n");
}

TEST(KvsysCodecTest, EncodeBase64UsesTheStandardAlphabet) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string everyValue = DecodeBase64(alphabet).bytes;
    ASSERT_EQ(everyValue.size(), 48U);
    EXPECT_EQ(Base64Of(everyValue), alphabet + "\r\n");
    EXPECT_EQ(Base64Of("\xfb\xff\xbf"), "+/+/\r\n");
}

TEST(KvsysCodecTest, EncodeBase64ToAStringBreaksLinesWhateverItsFlagSays) {
    EXPECT_EQ(Base64Of("Man", false), "TWFu\r\n");
    EXPECT_EQ(Base64Of(std::string(58, 'A'), false), Base64Of(std::string(58, 'A'), true));
}

TEST(KvsysCodecTest, EncodeBase64Of57BytesIsOneFullLine) {
    std::string line;
    for (int i = 0; i < 19; ++i) {
        line += "QUFB";
    }
    EXPECT_EQ(Base64Of(std::string(57, 'A')), line + "\r\n");
}

TEST(KvsysCodecTest, EncodeBase64Of58BytesIsAFullLineAndAShortOne) {
    const std::string encoded = Base64Of(std::string(58, 'A'));
    ASSERT_EQ(encoded.size(), 84U);
    EXPECT_EQ(encoded.substr(76), "\r\nQQ==\r\n");
}

TEST(KvsysCodecTest, EncodeBase64OfTwoFullLinesEndsWithOneLineEnd) {
    const std::string encoded = Base64Of(std::string(114, 'A'));
    ASSERT_EQ(encoded.size(), 156U);
    EXPECT_EQ(encoded.substr(74, 6), "FB\r\nQU");
    EXPECT_EQ(encoded.substr(152), "FB\r\n");
}

TEST(KvsysCodecTest, EncodeBase64OfNoDataIsEmpty) {
    unsigned char byte = 'M';
    EXPECT_EQ(KvsysCodec::EncodeBase64(&byte, 0, true), "");
    EXPECT_EQ(KvsysCodec::EncodeBase64(nullptr, 3, true), "");
}

TEST(KvsysCodecTest, EncodeBase64IntoAStringHonoursItsFlag) {
    EXPECT_EQ(Base64Into("M", false), "TQ==");
    EXPECT_EQ(Base64Into("M", true), "TQ==\r\n");
    EXPECT_EQ(Base64Into(std::string(58, 'A'), false).find('\r'), std::string::npos);
}

TEST(KvsysCodecTest, EncodeBase64IntoAStringOfNoDataEmptiesItAndIsFalse) {
    EXPECT_EQ(Base64Into("", false), "(false)");
    std::string out = "old";
    EXPECT_FALSE(KvsysCodec::EncodeBase64(nullptr, 3, out, false));
    EXPECT_EQ(out, "");
}

TEST(KvsysCodecTest, DecodeBase64SkipsTheLineEnd) {
    const Decoded decoded = DecodeBase64("TWFu\r\n");
    EXPECT_TRUE(decoded.valid);
    EXPECT_EQ(decoded.bytes, "Man");
}

TEST(KvsysCodecTest, DecodeBase64PutsANulBehindTheBytes) {
    EXPECT_EQ(DecodeBase64("TWFu").terminator, '\0');
}

TEST(KvsysCodecTest, DecodeBase64OfTwoLeftoverCharactersGivesOneByte) {
    const Decoded decoded = DecodeBase64("TQ");
    EXPECT_TRUE(decoded.valid);
    EXPECT_EQ(decoded.bytes, "M");
}

TEST(KvsysCodecTest, DecodeBase64OfThreeLeftoverCharactersGivesTwoBytes) {
    const Decoded decoded = DecodeBase64("TWE");
    EXPECT_TRUE(decoded.valid);
    EXPECT_EQ(decoded.bytes, "Ma");
}

TEST(KvsysCodecTest, DecodeBase64OfASingleLeftoverCharacterIsFalse) {
    const Decoded decoded = DecodeBase64("T");
    EXPECT_FALSE(decoded.valid);
    EXPECT_EQ(decoded.bytes, "");
    EXPECT_EQ(decoded.terminator, '\0');
}

TEST(KvsysCodecTest, DecodeBase64StopsAtTheFirstEqualsSign) {
    const Decoded decoded = DecodeBase64("TW=*Fu");
    EXPECT_TRUE(decoded.valid);
    EXPECT_EQ(decoded.bytes, "M");
}

TEST(KvsysCodecTest, DecodeBase64SkipsInvalidCharactersAndIsFalse) {
    const Decoded decoded = DecodeBase64("TW*Fu");
    EXPECT_FALSE(decoded.valid);
    EXPECT_EQ(decoded.bytes, "Man");
    EXPECT_FALSE(DecodeBase64("TW\xe9"
                              "Fu")
                     .valid);
}

TEST(KvsysCodecTest, DecodeBase64OfNothingTouchesNothing) {
    unsigned char buffer[] = "T";
    int length = 0;
    EXPECT_TRUE(KvsysCodec::DecodeBase64(buffer, length));
    EXPECT_EQ(length, 0);
    EXPECT_EQ(buffer[0], 'T');
}

TEST(KvsysCodecTest, DecodeBase64OfANegativeLengthEmptiesTheBuffer) {
    unsigned char buffer[] = "T";
    int length = -1;
    EXPECT_TRUE(KvsysCodec::DecodeBase64(buffer, length));
    EXPECT_EQ(length, 0);
    EXPECT_EQ(buffer[0], '\0');
}

TEST(KvsysCodecTest, DecodeBase64BringsBackWhatEncodeBase64WasGiven) {
    std::string bytes;
    for (int length = 0; length < 256; ++length) {
        EXPECT_EQ(DecodeBase64(Base64Of(bytes)).bytes, bytes) << length;
        bytes += static_cast<char>(length);
    }
}

}  // namespace
