#include "AuthExchangeMask.h"

#include <gtest/gtest.h>

#include <thread>

namespace kvhost {
namespace {

TEST(AuthExchangeMaskTest, WhatIsSentAfterAuthPlainIsHidden) {
    AuthExchangeMask mask;
    EXPECT_EQ(mask.Apply("<= AUTH PLAIN<CR><LF>"), "<= AUTH PLAIN<CR><LF>");
    EXPECT_EQ(mask.Apply("=> 334 <CR><LF>"), "=> 334 <CR><LF>");
    EXPECT_EQ(mask.Apply("<= AHVzZXIAcGFzcw==<CR><LF>"), "<= [masked]");
    EXPECT_EQ(mask.Apply("=> 235 go ahead<CR><LF>"), "=> 235 go ahead<CR><LF>");
    EXPECT_EQ(mask.Apply("<= MAIL FROM: <a@b><CR><LF>"), "<= MAIL FROM: <a@b><CR><LF>");
}

TEST(AuthExchangeMaskTest, BothAnswersOfAuthLoginAreHidden) {
    AuthExchangeMask mask;
    mask.Apply("<= AUTH LOGIN<CR><LF>");
    mask.Apply("=> 334 VXNlcm5hbWU6<CR><LF>");
    EXPECT_EQ(mask.Apply("<= dXNlcg==<CR><LF>"), "<= [masked]");
    mask.Apply("=> 334 UGFzc3dvcmQ6<CR><LF>");
    EXPECT_EQ(mask.Apply("<= cGFzcw==<CR><LF>"), "<= [masked]");
}

TEST(AuthExchangeMaskTest, ARefusalEndsTheExchange) {
    AuthExchangeMask mask;
    mask.Apply("<= AUTH PLAIN<CR><LF>");
    mask.Apply("=> 535 no<CR><LF>");
    EXPECT_EQ(mask.Apply("<= RSET<CR><LF>"), "<= RSET<CR><LF>");
}

TEST(AuthExchangeMaskTest, TheRestOfASplitReplyDoesNotEndTheExchange) {
    AuthExchangeMask mask;
    mask.Apply("<= AUTH LOGIN<CR><LF>");
    mask.Apply("=> 334 VXNl");
    mask.Apply("=> cm5hbWU6<CR><LF>");
    EXPECT_EQ(mask.Apply("<= dXNlcg==<CR><LF>"), "<= [masked]");
}

TEST(AuthExchangeMaskTest, AnInitialResponseIsHidden) {
    AuthExchangeMask mask;
    EXPECT_EQ(mask.Apply("<= AUTH PLAIN AHVzZXIAcGFzcw==<CR><LF>"), "<= AUTH PLAIN [masked]");
}

TEST(AuthExchangeMaskTest, TheCommandIsKnownInAnyCase) {
    AuthExchangeMask mask;
    mask.Apply("<= auth plain<CR><LF>");
    EXPECT_EQ(mask.Apply("<= AHVzZXIAcGFzcw==<CR><LF>"), "<= [masked]");
}

TEST(AuthExchangeMaskTest, OtherLinesPassUnchangedDuringAnExchange) {
    AuthExchangeMask mask;
    mask.Apply("<= AUTH PLAIN<CR><LF>");
    EXPECT_EQ(mask.Apply("Entering something"), "Entering something");
}

TEST(AuthExchangeMaskTest, AConversationOfAnotherThreadIsNotHidden) {
    AuthExchangeMask mask;
    mask.Apply("<= AUTH PLAIN<CR><LF>");
    std::string other;
    std::thread([&] { other = mask.Apply("<= RSET<CR><LF>"); }).join();
    EXPECT_EQ(other, "<= RSET<CR><LF>");
    EXPECT_EQ(mask.Apply("<= c2VjcmV0<CR><LF>"), "<= [masked]");
}

TEST(AuthExchangeMaskTest, AnExchangeThatBrokeOffEndsWithTheNextGreeting) {
    AuthExchangeMask mask;
    mask.Apply("<= AUTH PLAIN<CR><LF>");
    mask.Apply("=> 220 another server<CR><LF>");
    EXPECT_EQ(mask.Apply("<= EHLO [127.0.0.1]<CR><LF>"), "<= EHLO [127.0.0.1]<CR><LF>");
}

}  // namespace
}  // namespace kvhost
