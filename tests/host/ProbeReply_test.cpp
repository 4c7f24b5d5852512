#include "ProbeReply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ProbeError.h"

namespace kvhost {
namespace {

using testing::ElementsAre;

TEST(ProbeReplyTest, AReplyOfOneLineIsTakenAndTheRestStays) {
    std::string input = "250 ok\r\n220 more";
    const auto reply = TakeReply(input);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->code, 250);
    EXPECT_THAT(reply->lines, ElementsAre("250 ok"));
    EXPECT_EQ(reply->bytes, 8U);
    EXPECT_EQ(input, "220 more");
}

TEST(ProbeReplyTest, AReplyIsCompleteWithItsLastLineOnly) {
    const std::string whole = "250-one\r\n250-\r\n250 three\r\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        std::string input = whole.substr(0, length);
        EXPECT_FALSE(TakeReply(input)) << input;
        EXPECT_EQ(input, whole.substr(0, length));
    }
    std::string input = whole;
    const auto reply = TakeReply(input);
    ASSERT_TRUE(reply);
    EXPECT_THAT(reply->lines, ElementsAre("250-one", "250-", "250 three"));
    EXPECT_EQ(reply->Text(), "250-one / 250- / 250 three");
    EXPECT_EQ(input, "");
}

TEST(ProbeReplyTest, ALineMayEndInLfAloneAndHaveNoText) {
    std::string input = "354\n421\r\n";
    EXPECT_EQ(TakeReply(input).value().code, 354);
    const auto second = TakeReply(input);
    EXPECT_EQ(second.value().code, 421);
    EXPECT_TRUE(second->IsRefusal());
}

TEST(ProbeReplyTest, WhatIsNoReplyIsRefused) {
    for (std::string input : {"hello\r\n", "\r\n", "25 x\r\n", "2500 x\r\n", "650 x\r\n", "150 x\r\n",
                              "250_x\r\n", "250-x\r\nHTTP/1.1\r\n"}) {
        EXPECT_THROW(TakeReply(input), ProbeError) << input;
    }
}

}  // namespace
}  // namespace kvhost
