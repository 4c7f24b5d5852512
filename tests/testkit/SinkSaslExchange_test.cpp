#include <gtest/gtest.h>

#include "sink/Base64.h"
#include "sink/SaslExchange.h"

using kvsink::encodeBase64;
using kvsink::SaslExchange;
using Outcome = kvsink::SaslExchange::Outcome;

namespace {

const std::vector<kvsink::Account> ACCOUNTS = {{"anna", "secret"}, {"bert", ""}};

/// base64 of actAs NUL name NUL password
std::string plain(const std::string& actAs, const std::string& name, const std::string& password) {
    return encodeBase64(actAs + '\0' + name + '\0' + password);
}

}  // namespace

TEST(SinkSaslExchangeTest, PlainWithInitialResponseIsAccepted) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("PLAIN " + plain("", "anna", "secret")), Outcome::accepted);
    EXPECT_FALSE(exchange.isActive());
}

TEST(SinkSaslExchangeTest, PlainWithoutInitialResponseGetsAnEmptyChallenge) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("plain"), Outcome::challenge);
    EXPECT_EQ(exchange.challenge(), "");
    EXPECT_TRUE(exchange.isActive());
    EXPECT_EQ(exchange.answer(plain("", "anna", "secret")), Outcome::accepted);
}

TEST(SinkSaslExchangeTest, PlainToActAsOneselfIsAccepted) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("PLAIN " + plain("anna", "anna", "secret")), Outcome::accepted);
}

TEST(SinkSaslExchangeTest, PlainToActAsSomebodyElseIsRejected) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("PLAIN " + plain("bert", "anna", "secret")), Outcome::rejected);
}

TEST(SinkSaslExchangeTest, WrongNameOrPasswordIsRejected) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("PLAIN " + plain("", "anna", "Secret")), Outcome::rejected);
    EXPECT_EQ(exchange.start("PLAIN " + plain("", "carl", "secret")), Outcome::rejected);
}

TEST(SinkSaslExchangeTest, PlainWithoutTwoSeparatorsIsMalformed) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("PLAIN " + encodeBase64("anna")), Outcome::malformed);
    EXPECT_EQ(exchange.start("PLAIN ="), Outcome::malformed);
}

TEST(SinkSaslExchangeTest, LoginAsksForNameAndPassword) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("LOGIN"), Outcome::challenge);
    EXPECT_EQ(exchange.challenge(), "VXNlcm5hbWU6");
    EXPECT_EQ(exchange.answer(encodeBase64("anna")), Outcome::challenge);
    EXPECT_EQ(exchange.challenge(), "UGFzc3dvcmQ6");
    EXPECT_EQ(exchange.answer(encodeBase64("secret")), Outcome::accepted);
}

TEST(SinkSaslExchangeTest, LoginTakesTheNameAsInitialResponse) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("LOGIN " + encodeBase64("anna")), Outcome::challenge);
    EXPECT_EQ(exchange.challenge(), "UGFzc3dvcmQ6");
    EXPECT_EQ(exchange.answer(encodeBase64("wrong")), Outcome::rejected);
}

TEST(SinkSaslExchangeTest, LoginTakesAnEmptyPassword) {
    SaslExchange exchange(ACCOUNTS);
    exchange.start("LOGIN " + encodeBase64("bert"));
    EXPECT_EQ(exchange.answer(""), Outcome::accepted);
}

TEST(SinkSaslExchangeTest, AsteriskCancelsAtEachStep) {
    SaslExchange exchange(ACCOUNTS);
    exchange.start("LOGIN");
    EXPECT_EQ(exchange.answer("*"), Outcome::cancelled);
    EXPECT_FALSE(exchange.isActive());
    exchange.start("LOGIN " + encodeBase64("anna"));
    EXPECT_EQ(exchange.answer("*"), Outcome::cancelled);
}

TEST(SinkSaslExchangeTest, BadBase64IsMalformedAndEndsTheExchange) {
    SaslExchange exchange(ACCOUNTS);
    exchange.start("LOGIN");
    EXPECT_EQ(exchange.answer("anna!"), Outcome::malformed);
    EXPECT_FALSE(exchange.isActive());
}

TEST(SinkSaslExchangeTest, OtherMechanismsAreUnknown) {
    SaslExchange exchange(ACCOUNTS);
    EXPECT_EQ(exchange.start("CRAM-MD5"), Outcome::unknownMechanism);
    EXPECT_FALSE(exchange.isActive());
}
