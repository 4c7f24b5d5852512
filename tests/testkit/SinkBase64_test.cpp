#include <gtest/gtest.h>

#include "sink/Base64.h"

using kvsink::decodeBase64;
using kvsink::encodeBase64;

TEST(SinkBase64Test, EncodesTheVectorsOfTheStandard) {
    EXPECT_EQ(encodeBase64(""), "");
    EXPECT_EQ(encodeBase64("f"), "Zg==");
    EXPECT_EQ(encodeBase64("fo"), "Zm8=");
    EXPECT_EQ(encodeBase64("foobar"), "Zm9vYmFy");
}

TEST(SinkBase64Test, DecodesTheVectorsOfTheStandard) {
    EXPECT_EQ(decodeBase64(""), "");
    EXPECT_EQ(decodeBase64("Zg=="), "f");
    EXPECT_EQ(decodeBase64("Zm8="), "fo");
    EXPECT_EQ(decodeBase64("Zm9vYmFy"), "foobar");
}

TEST(SinkBase64Test, DecodesNulBytes) {
    EXPECT_EQ(decodeBase64("AHUAcA=="), std::string("\0u\0p", 4));
}

TEST(SinkBase64Test, ForeignCharactersAreNotDecoded) {
    EXPECT_FALSE(decodeBase64("Zm9v!mFy"));
    EXPECT_FALSE(decodeBase64("Zm9v YmF"));
}

TEST(SinkBase64Test, WrongLengthIsNotDecoded) {
    EXPECT_FALSE(decodeBase64("Zm9vY"));
}

TEST(SinkBase64Test, MisplacedPaddingIsNotDecoded) {
    EXPECT_FALSE(decodeBase64("Zg==Zg=="));
    EXPECT_FALSE(decodeBase64("===="));
}
