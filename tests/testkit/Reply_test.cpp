#include "Reply.h"

#include <gmock/gmock.h>

using kvtest::Reply;
using kvtest::Then;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

TEST(ReplyTest, AReplyIsOnePieceUnlessItIsSplit) {
    EXPECT_THAT(Reply("250 ok\r\n").pieces(), ElementsAre("250 ok\r\n"));
}

TEST(ReplyTest, AnEmptyReplyHasNoPieces) {
    EXPECT_THAT(Reply().pieces(), IsEmpty());
}

TEST(ReplyTest, PiecesBeginAtTheOffsets) {
    EXPECT_THAT(Reply("250 ok\r\n").split({1, 4, 7}).pieces(), ElementsAre("2", "50 ", "ok\r", "\n"));
}

TEST(ReplyTest, OffsetsAtTheEndsBehindItOrNotGrowingAreIgnored) {
    EXPECT_THAT(Reply("abcd").split({0, 2, 2, 1, 4, 9}).pieces(), ElementsAre("ab", "cd"));
}

TEST(ReplyTest, ByteByByteMakesAPieceOfEachByte) {
    EXPECT_THAT(Reply("25\r\n").byteByByte().pieces(), ElementsAre("2", "5", "\r", "\n"));
}

TEST(ReplyTest, ABinaryReplyKeepsItsNulBytes) {
    const std::string bytes("2\0\xff", 3);
    EXPECT_THAT(Reply(bytes).pieces(), ElementsAre(bytes));
}

TEST(ReplyTest, OnlyA4OrA5InFrontIsARefusal) {
    EXPECT_TRUE(Reply("421 bye\r\n").isRefusal());
    EXPECT_TRUE(Reply("550 no\r\n").isRefusal());
    EXPECT_FALSE(Reply("250 ok\r\n").isRefusal());
    EXPECT_FALSE(Reply("354 go\r\n").isRefusal());
    EXPECT_FALSE(Reply(" 550 no\r\n").isRefusal());
    EXPECT_FALSE(Reply().isRefusal());
}

TEST(ReplyTest, TheActionKeepsTheConnectionUnlessToldOtherwise) {
    EXPECT_EQ(Reply("250 ok\r\n").then, Then::Keep);
    EXPECT_EQ(Reply("250 ok\r\n").thenClose().then, Then::Close);
    EXPECT_EQ(Reply("250 ok\r\n").thenCloseAbruptly().then, Then::CloseAbruptly);
    EXPECT_EQ(Reply("250 ok\r\n").thenReset().then, Then::Reset);
    EXPECT_EQ(Reply("250 ok\r\n").thenStall().then, Then::Stall);
    EXPECT_EQ(Reply("250 ok\r\n").thenStartTls().then, Then::StartTls);
    EXPECT_EQ(Reply("250 ok\r\n").thenStartTlsGarbage().then, Then::StartTlsGarbage);
}

TEST(ReplyTest, TimesAreKeptAsGiven) {
    const Reply reply = Reply("250 ok\r\n").split({3}, 7ms).delayed(9ms);
    EXPECT_EQ(reply.pause, 7ms);
    EXPECT_EQ(reply.delay, 9ms);
}
