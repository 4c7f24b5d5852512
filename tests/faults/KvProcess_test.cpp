#include "KvProcess.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <memory>

#include "ScopedDescriptor.h"
#include "TempDir.h"
#include "faults/SystemCalls.h"
#include "src/ProcessDoubles.h"

namespace {

using kvtest::FailOnce;
using kvtest::FixedTimeOfDay;
using kvtest::Interception;
using kvtest::StatusOfChild;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;

TEST(KvProcessFaultTest, AProgramForWhichThereIsNoProcessAnswersZero) {
    const FailOnce noProcess(SystemCall::Fork, EAGAIN);
    EXPECT_EQ(Kvsystem("/bin/sh", {"sh", "-c", "exit 3"}), 0);
    EXPECT_TRUE(noProcess.HasFailed());
}

TEST(KvProcessFaultTest, ADaemonWhoseFirstProcessCannotBeMadeStaysTheCaller) {
    const pid_t caller = getpid();
    const pid_t session = getsid(0);
    const FailOnce noProcess(SystemCall::Fork, EAGAIN);
    EXPECT_FALSE(KvstartDaemon(true, true));
    EXPECT_EQ(getpid(), caller);
    EXPECT_EQ(getsid(0), session);
    EXPECT_NE(fcntl(1, F_GETFD), -1);
}

/// What becomes of a caller of KvstartDaemon(true, true), and what it answers in the process that is there
/// then: that one leaves the text "false" or "true" in a file, with a mark when a descriptor was closed.
class KvstartDaemonFaultTest : public ::testing::Test {
protected:
    std::string TextOfStart(const std::function<std::shared_ptr<void>()>& fault) {
        EXPECT_EQ(StatusOfChild([&] {
                      const std::shared_ptr<void> lasting = fault();
                      const bool started = KvstartDaemon(true, true);
                      const bool closed = fcntl(marked.get(), F_GETFD) == -1;
                      alarm(60);
                      std::ofstream(dir.file("unfinished"))
                          << (started ? "true" : "false") << (closed ? " closed" : "");
                      std::rename(dir.file("unfinished").c_str(), dir.file("text").c_str());
                      return 2;
                  }),
                  0);
        EXPECT_TRUE(kvtest::Eventually([&] { return kvtest::FileExists(dir.file("text")); }));
        return kvtest::ContentOf(dir.file("text"));
    }

    kvtest::TempDir dir;
    const kvtest::ScopedDescriptor marked{dup(0)};
};

TEST_F(KvstartDaemonFaultTest, ACallerThatGetsNoSessionAnswersFalseInTheFirstChild) {
    EXPECT_EQ(TextOfStart([] { return std::make_shared<FailOnce>(SystemCall::SessionCreate, EPERM); }),
              "false");
}

TEST_F(KvstartDaemonFaultTest, ACallerThatGetsNoSecondProcessAnswersFalseInTheFirstChild) {
    EXPECT_EQ(TextOfStart([] { return std::make_shared<FailOnce>(SystemCall::Fork, EAGAIN, nullptr, 1); }),
              "false");
}

TEST_F(KvstartDaemonFaultTest, BothFormerProcessesEndWithStatusZero) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const kvtest::ScopedDescriptor reader(ends[0]);
    kvtest::ScopedDescriptor writer(ends[1]);
    const auto watch = [&] {
        return std::make_shared<Interception>(
            SystemCall::ProcessExit, [&](const SystemCallArguments& arguments) -> std::optional<int> {
                const char digit = static_cast<char>('0' + arguments.number);
                EXPECT_EQ(write(writer.get(), &digit, 1), 1);
                if (&__gcov_dump != nullptr) {
                    __gcov_dump();
                }
                return std::nullopt;
            });
    };
    EXPECT_EQ(TextOfStart(watch), "true closed");
    writer.reset();
    char statuses[8] = {};
    std::size_t size = 0;
    for (ssize_t more = 0; (more = read(reader.get(), statuses + size, sizeof(statuses) - 1 - size)) > 0;) {
        size += static_cast<std::size_t>(more);
    }
    EXPECT_EQ(std::string(statuses), "00");
}

TEST(KvProcessFaultTest, DescriptorsAreClosedOneByOneWhereTheSystemCannotCloseARange) {
    EXPECT_EQ(StatusOfChild([] {
                  const int lower = fcntl(0, F_DUPFD, 100);
                  const int given = fcntl(0, F_DUPFD, lower + 1);
                  const int last = fcntl(0, F_DUPFD, 199);
                  const int beyond = fcntl(0, F_DUPFD, 200);
                  rlimit limit{};
                  getrlimit(RLIMIT_NOFILE, &limit);
                  limit.rlim_cur = 200;
                  setrlimit(RLIMIT_NOFILE, &limit);
                  const FailOnce noRange(SystemCall::RangeClose, ENOSYS);
                  const bool done = closeallfiles(given) == 0 && noRange.HasFailed();
                  const auto open = [](int descriptor) { return fcntl(descriptor, F_GETFD) != -1; };
                  return done && open(lower) && !open(given) && !open(last) && open(beyond) ? 0 : 2;
              }),
              0);
}

TEST(KvProcessFaultTest, TheTimeOfDayIsWhatTheSystemAnswers) {
    const FixedTimeOfDay clock({1000, 999999});
    timeval now{};
    EXPECT_EQ(GetTimeOfDay(&now, nullptr), 0);
    EXPECT_EQ(now.tv_sec, 1000);
    EXPECT_EQ(now.tv_usec, 999999);
}

TEST(KvProcessFaultTest, ATimeOfDayThatCannotBeReadAnswersMinusOne) {
    const FailOnce failure(SystemCall::TimeOfDay, EFAULT);
    timeval now{};
    EXPECT_EQ(GetTimeOfDay(&now, nullptr), -1);
}

}  // namespace
