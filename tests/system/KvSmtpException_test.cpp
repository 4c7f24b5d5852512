#include "KvSmtpException.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "KvException.h"

namespace {

using testing::HasSubstr;

TEST(KvSmtpExceptionTest, AReplyGivesItsCodeAndTheTextBehindTheBlankWithItsLineEnd) {
    const KvSmtpException error("550 5.1.1 no such user\r\n");
    EXPECT_EQ(error.m_nError, 550);
    EXPECT_EQ(error.m_strError, "5.1.1 no such user\r\n");
}

TEST(KvSmtpExceptionTest, AReplyOfThreeCharactersIsOutOfRange) {
    try {
        KvSmtpException error("421");
        FAIL() << "code " << error.m_nError;
    } catch (const std::out_of_range& error) {
        EXPECT_THAT(error.what(), HasSubstr("basic_string::substr"));
    }
}

TEST(KvSmtpExceptionTest, AnEmptyReplyIsOutOfRange) {
    EXPECT_THROW(KvSmtpException(""), std::out_of_range);
}

TEST(KvSmtpExceptionTest, ACodeAndABlankGiveAnEmptyText) {
    const KvSmtpException error("421 ");
    EXPECT_EQ(error.m_nError, 421);
    EXPECT_EQ(error.m_strError, "");
}

TEST(KvSmtpExceptionTest, ACodeAndALineEndGiveTheSecondHalfOfTheLineEnd) {
    const KvSmtpException error("421\r\n");
    EXPECT_EQ(error.m_nError, 421);
    EXPECT_EQ(error.m_strError, "\n");
}

TEST(KvSmtpExceptionTest, AReplyOfTwoLinesKeepsBothBehindTheFirstHyphen) {
    const KvSmtpException error("535-5.7.8 not accepted\r\n535 5.7.8 see the help page\r\n");
    EXPECT_EQ(error.m_nError, 535);
    EXPECT_EQ(error.m_strError, "5.7.8 not accepted\r\n535 5.7.8 see the help page\r\n");
}

TEST(KvSmtpExceptionTest, TheCodeIsTheLeadingDigitsOfTheFirstThreeCharacters) {
    EXPECT_EQ(KvSmtpException("5x0 text").m_nError, 5);
    EXPECT_EQ(KvSmtpException("45 text").m_nError, 45);
    EXPECT_EQ(KvSmtpException("55012 text").m_nError, 550);
    EXPECT_EQ(KvSmtpException("x50 text").m_nError, 0);
}

TEST(KvSmtpExceptionTest, ACodeAndATextAreKeptAsGiven) {
    const KvSmtpException error(815, "TLS Required but not supported");
    EXPECT_EQ(error.m_nError, 815);
    EXPECT_EQ(error.m_strError, "TLS Required but not supported");
}

TEST(KvSmtpExceptionTest, BothKindsOfConstructionSetTheKindTo5) {
    EXPECT_EQ(KvSmtpException(815, "text").m_nKind, 5);
    EXPECT_EQ(KvSmtpException("550 text").m_nKind, 5);
}

TEST(KvSmtpExceptionTest, SetErrorReplacesCodeAndTextAndLeavesTheKind) {
    KvSmtpException error("550 text");
    error.SetError(801, "other text");
    EXPECT_EQ(error.m_nError, 801);
    EXPECT_EQ(error.m_strError, "other text");
    EXPECT_EQ(error.m_nKind, 5);
}

TEST(KvSmtpExceptionTest, TheEngineCodesHaveTheirFixedValues) {
    EXPECT_EQ(KvSmtpException::MISSING_SERVER, 801);
    EXPECT_EQ(KvSmtpException::MISSING_TO, 802);
    EXPECT_EQ(KvSmtpException::MISSING_FROM, 803);
    EXPECT_EQ(KvSmtpException::MISSING_BODY, 804);
    EXPECT_EQ(KvSmtpException::TLS_REQUIRED, 815);
    EXPECT_EQ(KvSmtpException::STARTTLS_FAILED, 816);
    EXPECT_EQ(KvSmtpException::UNEXPECTED_PASSWORD_CHALLENGE, 817);
    EXPECT_EQ(KvSmtpException::UNEXPECTED_USERNAME_CHALLENGE, 818);
    EXPECT_EQ(KvSmtpException::AUTH_LOGIN_REFUSED, 819);
    EXPECT_EQ(KvSmtpException::MALFORMED_FROM, 820);
}

TEST(KvSmtpExceptionTest, ItIsAProtocolExceptionOfAFamilyOfItsOwn) {
    EXPECT_TRUE((std::is_base_of_v<KvProtocolException, KvSmtpException>));
    EXPECT_FALSE((std::is_base_of_v<KvException, KvSmtpException>));
    EXPECT_FALSE((std::is_base_of_v<std::exception, KvProtocolException>));
    EXPECT_TRUE(std::has_virtual_destructor_v<KvProtocolException>);
}

TEST(KvSmtpExceptionTest, ACopyCarriesKindCodeAndText) {
    const KvSmtpException error("550 no such user\r\n");
    const KvSmtpException copy = error;
    EXPECT_EQ(copy.m_nKind, 5);
    EXPECT_EQ(copy.m_nError, 550);
    EXPECT_EQ(copy.m_strError, "no such user\r\n");
}

TEST(KvSmtpExceptionTest, AHandlerOfTheRootSeesCodeAndText) {
    try {
        throw KvSmtpException("450 later\r\n");
    } catch (const KvProtocolException& error) {
        EXPECT_EQ(error.m_nError, 450);
        EXPECT_EQ(error.m_strError, "later\r\n");
    }
}

}  // namespace
