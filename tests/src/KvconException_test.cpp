#include "KvconException.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KvconExceptionTest, ToStringBeginsWithTheThreadId) {
    KvconException error(77, "../src/KvconLock", 66, "Create Lock Failed", "Cannot allocate memory");
    EXPECT_EQ(error.ToString(),
              "Exception raised! ThreadID[77] File[../src/KvconLock] Line[66] Msg[Create Lock Failed] "
              "SysMsg[Cannot allocate memory]");
}

TEST(KvconExceptionTest, WithoutASystemMessageTheTextEndsWithEmptyBrackets) {
    KvconException error(77, "../src/KvconLock", 66, "Create Lock Failed");
    EXPECT_EQ(
        error.ToString(),
        "Exception raised! ThreadID[77] File[../src/KvconLock] Line[66] Msg[Create Lock Failed] SysMsg[]");
    EXPECT_EQ(error.GetSysMsg(), "");
}

TEST(KvconExceptionTest, OfAThreadAndAMessageHasNoFileAndLineZero) {
    KvconException error(77, "Failed");
    EXPECT_EQ(error.GetFile(), "");
    EXPECT_EQ(error.GetLine(), 0);
    EXPECT_EQ(error.ToString(), "Exception raised! ThreadID[77] File[] Line[0] Msg[Failed] SysMsg[]");
}

TEST(KvconExceptionTest, ThreadIdIsPrintedAsASigned32BitNumber) {
    EXPECT_EQ(KvconException(0xffffffffUL, "Failed").ToString(),
              "Exception raised! ThreadID[-1] File[] Line[0] Msg[Failed] SysMsg[]");
    EXPECT_EQ(KvconException(0x80000000UL, "Failed").ToString(),
              "Exception raised! ThreadID[-2147483648] File[] Line[0] Msg[Failed] SysMsg[]");
}

TEST(KvconExceptionTest, ThreadIdIsAnsweredWhole) {
    EXPECT_EQ(KvconException(0xffffffffUL, "Failed").GetThreadID(), 0xffffffffUL);
    EXPECT_EQ(KvconException(~0UL, "Failed").GetThreadID(), ~0UL);
}

TEST(KvconExceptionTest, MessagesOfAnyLengthAreNotCut) {
    const std::string message(20000, 'm');
    KvconException error(7, message);
    EXPECT_EQ(error.ToString(), "Exception raised! ThreadID[7] File[] Line[0] Msg[" + message + "] SysMsg[]");
}

}  // namespace
