#include "KvconThread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "faults/SystemCalls.h"
#include "src/ThreadDoubles.h"

namespace {

using kvtest::CaughtFrom;
using kvtest::FailOnce;
using kvtest::Interception;
using kvtest::Latch;
using kvtest::LoggedWork;
using kvtest::RecordedSleeps;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;
using kvtest::WorkLog;

void ExpectCreateFailure(int error, const std::string& text) {
    WorkLog log;
    LoggedWork work(log);
    KvconThread thread;
    FailOnce failure(SystemCall::ThreadCreate, error);
    KvconException exception = CaughtFrom([&] { thread.Run(&work); });
    EXPECT_EQ(exception.GetMsg(), "Create Thread Failed");
    EXPECT_EQ(exception.GetFile(), "../src/KvconThread");
    EXPECT_EQ(exception.GetLine(), 200);
    EXPECT_EQ(exception.GetSysMsg(), text);
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
}

TEST(KvconThreadFaultTest, CreationThatRunsOutOfThreadsReportsAnUnknownError) {
    ExpectCreateFailure(EAGAIN, "Unknown Error [11]");
}

TEST(KvconThreadFaultTest, CreationErrorsHaveTheirTexts) {
    ExpectCreateFailure(ENOMEM, "Out of resource");
    ExpectCreateFailure(EINVAL, "Invalid attribute");
    ExpectCreateFailure(EPERM, "Permission denied");
    ExpectCreateFailure(EBUSY, "Unknown Error [16]");
}

TEST(KvconThreadFaultTest, ObjectIsIdleAfterAFailedRunAndCanRunLater) {
    WorkLog log;
    LoggedWork work(log);
    KvconThread thread;
    {
        FailOnce failure(SystemCall::ThreadCreate, EAGAIN);
        CaughtFrom([&] { thread.Run(&work); });
    }
    EXPECT_EQ(thread.GetThreadID(), static_cast<pthread_t>(-1));
    thread.Run(&work);
    KvThreadRegistry::WaitUntilGone(thread.GetThreadID());
    EXPECT_EQ(log.finished, 1);
}

class InstallationOf : public ::testing::TestWithParam<std::pair<int, int>> {};

TEST_P(InstallationOf, HandlerThatFailsThrowsItsLine) {
    const kvtest::SavedSignalHandlers saved;
    const auto [signal, line] = GetParam();
    const int failing = signal;
    Interception actions(SystemCall::SignalAction,
                         [&](const SystemCallArguments& call) -> std::optional<int> {
                             return call.number == failing ? std::optional<int>(EINVAL) : std::nullopt;
                         });
    KvconException exception = CaughtFrom(KvconThread::InitializeLibrary);
    EXPECT_EQ(exception.GetMsg(), "Initialize Thread Lib Failed");
    EXPECT_EQ(exception.GetFile(), "../src/KvconThread");
    EXPECT_EQ(exception.GetLine(), line);
    EXPECT_EQ(exception.GetSysMsg(), "Invalid argument");
    EXPECT_EQ(exception.GetThreadID(), pthread_self());
}

INSTANTIATE_TEST_SUITE_P(KvconThreadFaultTest, InstallationOf,
                         ::testing::Values(std::pair{SIGUSR1, 115}, std::pair{SIGUSR2, 119},
                                           std::pair{SIGQUIT, 124}, std::pair{SIGTERM, 128}));

TEST(KvconThreadFaultTest, HandlersAreInstalledInTheirOrder) {
    std::vector<long> signals;
    Interception actions(SystemCall::SignalAction,
                         [&](const SystemCallArguments& call) -> std::optional<int> {
                             signals.push_back(call.number);
                             return 0;
                         });
    KvconThread::InitializeLibrary();
    EXPECT_EQ(signals, (std::vector<long>{SIGUSR1, SIGUSR2, SIGQUIT, SIGTERM}));
}

TEST(KvconThreadFaultTest, ErrorNumberOfTheGuardMutexIsNotRecognised) {
    const kvtest::SavedSignalHandlers saved;
    FailOnce making(SystemCall::MutexInit, ENOMEM, &KvconThread::the_ThreadGuard);
    EXPECT_NO_THROW(KvconThread::InitializeLibrary());
    FailOnce ending(SystemCall::MutexDestroy, EBUSY, &KvconThread::the_ThreadGuard);
    EXPECT_NO_THROW(KvconThread::CloseLibrary());
    EXPECT_TRUE(making.HasFailed() && ending.HasFailed());
}

TEST(KvconThreadFaultTest, MinusOneForTheGuardMutexThrows) {
    const kvtest::SavedSignalHandlers saved;
    FailOnce making(SystemCall::MutexInit, -1, &KvconThread::the_ThreadGuard);
    KvconException exception = CaughtFrom(KvconThread::InitializeLibrary);
    EXPECT_EQ(exception.GetMsg(), "Create Lock Failed");
    EXPECT_EQ(exception.GetLine(), 97);
}

TEST(KvconThreadFaultTest, MinusOneAtTheEndOfTheGuardMutexThrowsTheInitializationText) {
    FailOnce ending(SystemCall::MutexDestroy, -1, &KvconThread::the_ThreadGuard);
    KvconException exception = CaughtFrom(KvconThread::CloseLibrary);
    EXPECT_EQ(exception.GetMsg(), "Initialize Thread Lib Failed");
    EXPECT_EQ(exception.GetFile(), "../src/KvconThread");
    EXPECT_EQ(exception.GetLine(), 138);
}

/// A thread that runs until the object ends.
class HeldThread {
public:
    HeldThread() : m_work(m_log, [this] { m_goOn.Wait(); }) { thread.Run(&m_work); }
    ~HeldThread() { LetGo(); }
    HeldThread(const HeldThread&) = delete;
    HeldThread& operator=(const HeldThread&) = delete;

    void LetGo() {
        m_goOn.Open();
        KvThreadRegistry::WaitUntilGone(thread.GetThreadID());
    }

    KvconThread thread;

private:
    Latch m_goOn;
    WorkLog m_log;
    LoggedWork m_work;
};

TEST(KvconThreadFaultTest, WaitingASecondLooksFourTimesEvery250Milliseconds) {
    HeldThread held;
    const RecordedSleeps sleeps;
    EXPECT_EQ(held.thread.WaitForThreadObject(1000), 0);
    EXPECT_EQ(sleeps.Microseconds(), (std::vector<long>{250000, 250000, 250000, 250000}));
    EXPECT_TRUE(held.thread.IsRunning());
}

TEST(KvconThreadFaultTest, OddTimeoutsWaitUntilTheThreadEnds) {
    for (const unsigned long timeout : {300UL, 0UL, 1UL}) {
        HeldThread held;
        int sleeps = 0;
        Interception sleep(SystemCall::MicroSleep, [&](const SystemCallArguments&) -> std::optional<int> {
            if (++sleeps == 20) {
                held.LetGo();
            }
            return 0;
        });
        EXPECT_EQ(held.thread.WaitForThreadObject(timeout), 0);
        EXPECT_EQ(sleeps, 20) << timeout;
    }
}

}  // namespace
