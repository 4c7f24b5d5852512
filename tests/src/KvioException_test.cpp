#include "KvioException.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KvioExceptionTest, ToStringBeginsWithThePath) {
    KvioException error("host:25", "../src/KvioSocket", 120, "Socket Connecting Failed",
                        "Connection refused");
    EXPECT_EQ(error.ToString(),
              "Exception raised! IO path[host:25] File[../src/KvioSocket] Line[120] "
              "Msg[Socket Connecting Failed] SysMsg[Connection refused]");
}

TEST(KvioExceptionTest, WithoutASystemMessageTheTextEndsWithEmptyBrackets) {
    KvioException error("host:25", "../src/KvioSocket", 120, "Socket Connecting Failed");
    EXPECT_EQ(error.ToString(),
              "Exception raised! IO path[host:25] File[../src/KvioSocket] Line[120] "
              "Msg[Socket Connecting Failed] SysMsg[]");
    EXPECT_EQ(error.GetSysMsg(), "");
}

TEST(KvioExceptionTest, OfAPathAndAMessageHasNoFileAndLineZero) {
    KvioException error("host:25", "SSL Write Error");
    EXPECT_EQ(error.GetFile(), "");
    EXPECT_EQ(error.GetLine(), 0);
    EXPECT_EQ(error.ToString(),
              "Exception raised! IO path[host:25] File[] Line[0] Msg[SSL Write Error] SysMsg[]");
}

TEST(KvioExceptionTest, AccessorsAnswerTheFields) {
    const KvioException error("host:25", "../src/KvioSocket", 120, "Failed", "Connection refused");
    EXPECT_EQ(error.GetPath(), "host:25");
    KvioException copy(error);
    EXPECT_EQ(copy.GetMsg(), "Failed");
    EXPECT_EQ(copy.GetFile(), "../src/KvioSocket");
    EXPECT_EQ(copy.GetLine(), 120);
    EXPECT_EQ(copy.GetSysMsg(), "Connection refused");
}

TEST(KvioExceptionTest, APathOfAnyLengthIsNotCut) {
    const std::string path(20000, 'p');
    KvioException error(path, "Failed");
    EXPECT_EQ(error.ToString(),
              "Exception raised! IO path[" + path + "] File[] Line[0] Msg[Failed] SysMsg[]");
}

}  // namespace
