#include "KvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KvStringTest, MsgCpyCopiesWhatFitsAndTerminatesIt) {
    char out[] = "~~~~~~";
    EXPECT_EQ(KvstringMsgCpy(out, "abcdef", 4), 3U);
    EXPECT_EQ(std::string(out, 6), std::string("abc\0~~", 6));
    EXPECT_EQ(KvstringMsgCpy(out, "x", 4), 1U);
    EXPECT_EQ(std::string(out, 6), std::string("x\0c\0~~", 6));
}

TEST(KvStringTest, MsgCpyIntoNoRoomWritesNothing) {
    char out[] = "~";
    EXPECT_EQ(KvstringMsgCpy(out, "a", 0), 0U);
    EXPECT_EQ(KvstringMsgCpy2(out, "a", 0), 0U);
    EXPECT_STREQ(out, "~");
}

TEST(KvStringTest, MsgCpy2FillsTheRestWithNuls) {
    char out[] = "~~~~~~";
    EXPECT_EQ(KvstringMsgCpy2(out, "x", 4), 1U);
    EXPECT_EQ(std::string(out, 6), std::string("x\0\0\0~~", 6));
    EXPECT_EQ(KvstringMsgCpy2(out, "abcdef", 4), 3U);
    EXPECT_STREQ(out, "abc");
}

TEST(KvStringTest, CopyMsgCopiesAtMostTheGivenNumberOfCharacters) {
    EXPECT_EQ(KvstringCopyMsg("abc", 2), "ab");
    EXPECT_EQ(KvstringCopyMsg("abc", 9), "abc");
    EXPECT_EQ(KvstringCopyMsg("abc", 0), "");
}

}  // namespace
