#include "TransferDecoding.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

TEST(TransferDecodingTest, Base64OfEveryLengthIsDecoded) {
    EXPECT_EQ(DecodeBase64(""), "");
    EXPECT_EQ(DecodeBase64("Zg=="), "f");
    EXPECT_EQ(DecodeBase64("Zm8="), "fo");
    EXPECT_EQ(DecodeBase64("Zm9v"), "foo");
    EXPECT_EQ(DecodeBase64("Zm9vYmFy"), "foobar");
    EXPECT_EQ(DecodeBase64("/+8A"), std::string("\xff\xef\0", 3));
}

TEST(TransferDecodingTest, Base64MayHaveLineEnds) {
    EXPECT_EQ(DecodeBase64("Zm9v\r\nYmFy\n"), "foobar");
}

TEST(TransferDecodingTest, MalformedBase64IsNothing) {
    for (const char* text :
         {"Z", "Zg", "Zg=", "Zg===", "Zm9v=", "Zm9v====", "Zm=v", "Zm9v!", "=", "Z===", "Zm8-"}) {
        EXPECT_EQ(DecodeBase64(text), std::nullopt) << text;
    }
}

TEST(TransferDecodingTest, QuotedPrintableIsDecoded) {
    EXPECT_EQ(DecodeQuotedPrintable("caf=C3=A9 =3D\r\n"), "caf\xc3\xa9 =\r\n");
    EXPECT_EQ(DecodeQuotedPrintable("one=\r\ntwo=  \nthree \t\r\n\nend=20"), "onetwothree\r\n\nend ");
    EXPECT_EQ(DecodeQuotedPrintable("=c3=a9"), "\xc3\xa9");
    EXPECT_EQ(DecodeQuotedPrintable("soft="), "soft");
}

TEST(TransferDecodingTest, MalformedQuotedPrintableIsNothing) {
    for (const char* text : {"=4", "=4G", "a=b c", "=G1\r\n"}) {
        EXPECT_EQ(DecodeQuotedPrintable(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace kvhost
