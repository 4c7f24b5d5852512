#include "SmtpCredentials.h"

#include <gtest/gtest.h>

using kvtest::DecodeBase64;
using kvtest::SplitPlainMessage;

TEST(SmtpCredentialsTest, Base64IsDecodedWithEachLengthOfPadding) {
    EXPECT_EQ(DecodeBase64(""), "");
    EXPECT_EQ(DecodeBase64("YQ=="), "a");
    EXPECT_EQ(DecodeBase64("YWI="), "ab");
    EXPECT_EQ(DecodeBase64("YWJj"), "abc");
}

TEST(SmtpCredentialsTest, ZeroBytesSurvive) {
    EXPECT_EQ(DecodeBase64("AGEA"), std::string("\0a\0", 3));
}

TEST(SmtpCredentialsTest, TextThatIsNoBase64IsAbsent) {
    EXPECT_FALSE(DecodeBase64("YWJ"));
    EXPECT_FALSE(DecodeBase64("Y*Jj"));
}

TEST(SmtpCredentialsTest, TheIdentityInFrontOfTheUserIsPassedOver) {
    const auto account = SplitPlainMessage(std::string("boss\0ann\0secret", 15));
    ASSERT_TRUE(account);
    EXPECT_EQ(account->user, "ann");
    EXPECT_EQ(account->password, "secret");
}

TEST(SmtpCredentialsTest, AMessageWithFewerThanTwoZeroBytesIsAbsent) {
    EXPECT_FALSE(SplitPlainMessage("ann"));
    EXPECT_FALSE(SplitPlainMessage(std::string("\0ann", 4)));
}
