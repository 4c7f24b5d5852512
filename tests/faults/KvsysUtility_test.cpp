#include "KvsysUtility.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "faults/SystemCalls.h"

namespace {

using kvtest::FailOnce;
using kvtest::Interception;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;

TEST(KvsysUtilityFaultTest, ACommandThatCannotBeStartedAnswersFalse) {
    const FailOnce noPipe(SystemCall::PipeOpen, EMFILE);
    EXPECT_FALSE(KvsysUtility::VerifyIP("127.0.0.1"));
    EXPECT_TRUE(noPipe.HasFailed());
}

TEST(KvsysUtilityFaultTest, TheCommandIsThis) {
    std::string command;
    const Interception watch(SystemCall::PipeOpen, [&](const SystemCallArguments& arguments) {
        command = static_cast<const char*>(arguments.object);
        return EMFILE;
    });
    KvsysUtility::VerifyIP("10.0.0.1");
    EXPECT_EQ(command, "ifconfig -a | grep -v grep | grep 10.0.0.1\\  | wc -l |awk '{print $1}'");
}

}  // namespace
