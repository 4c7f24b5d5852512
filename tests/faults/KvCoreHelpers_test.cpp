#include "KvCoreHelpers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "faults/SystemCalls.h"

namespace {

using kvtest::FixedTimeOfDay;
using kvtest::RecordedSleeps;
using kvtest::SystemCall;

TEST(KvCoreHelpersFaultTest, SleepOfSecondsAndARestIsTwoCalls) {
    const RecordedSleeps sleeps;
    Kvsleep(2500);
    EXPECT_EQ(sleeps.Microseconds(), (std::vector<long>{2000000, 500000}));
}

TEST(KvCoreHelpersFaultTest, SleepBelowASecondIsOneCall) {
    const RecordedSleeps sleeps;
    const kvtest::CallCount secondSleeps(SystemCall::SecondSleep);
    Kvsleep(999);
    EXPECT_EQ(sleeps.Microseconds(), std::vector<long>{999000});
    EXPECT_EQ(secondSleeps, 0);
}

TEST(KvCoreHelpersFaultTest, SleepOfWholeSecondsEndsWithARestOfZero) {
    const RecordedSleeps sleeps;
    Kvsleep(1000);
    EXPECT_EQ(sleeps.Microseconds(), (std::vector<long>{1000000, 0}));
}

TEST(KvCoreHelpersFaultTest, SleepOfZeroIsOneCall) {
    const RecordedSleeps sleeps;
    Kvsleep(0);
    EXPECT_EQ(sleeps.Microseconds(), std::vector<long>{0});
}

TEST(KvCoreHelpersFaultTest, SleepOfSecondsIsOneCallOfSeconds) {
    const RecordedSleeps sleeps;
    const kvtest::CallCount microSleeps(SystemCall::MicroSleep);
    KvsleepSec(3);
    EXPECT_EQ(sleeps.Microseconds(), std::vector<long>{3000000});
    EXPECT_EQ(microSleeps, 0);
}

TEST(KvCoreHelpersFaultTest, MillisecondsAreTheTimeOfDay) {
    const FixedTimeOfDay clock({1000, 999999});
    EXPECT_EQ(GetCurrTimeInMS(), 1000999UL);
}

TEST(KvCoreHelpersFaultTest, MillisecondsWrapAt32Bits) {
    {
        const FixedTimeOfDay last({4294967, 295999});
        EXPECT_EQ(GetCurrTimeInMS(), 4294967295UL);
    }
    const FixedTimeOfDay wrapped({4294967, 296000});
    EXPECT_EQ(GetCurrTimeInMS(), 0UL);
}

TEST(KvCoreHelpersFaultTest, MillisecondsOfTodayFitInto32Bits) {
    const FixedTimeOfDay clock({1700000000, 0});
    EXPECT_EQ(GetCurrTimeInMS(), 1700000000000UL % 4294967296UL);
}

TEST(KvCoreHelpersFaultTest, MillisecondsAreZeroWhenTheClockCannotBeRead) {
    const kvtest::FailOnce failure(SystemCall::TimeOfDay, EFAULT);
    EXPECT_EQ(GetCurrTimeInMS(), 0UL);
    EXPECT_TRUE(failure.HasFailed());
}

}  // namespace
