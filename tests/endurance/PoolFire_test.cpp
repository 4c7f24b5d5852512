// The pool is stopped while its workers send: at no moment is a worker's end more than the end of its work.
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "endurance/Interceptions.h"
#include "endurance/PoolFire.h"

namespace {

using kvtest::FireReport;
using kvtest::PoolFire;

TEST(PoolFireTest, WorkersEndedAtAnyMomentLeaveEveryJobBackOnceEveryLockFreeAndNothingOpen) {
    PoolFire fire(1);
    fire.run(200);
    const FireReport& report = fire.report();
    EXPECT_THAT(report.wrong, testing::IsEmpty());
    EXPECT_EQ(report.handedBack, report.filed);
    EXPECT_GT(report.completed, 0U);
    EXPECT_GT(report.internalErrors, 0U);
    EXPECT_GE(report.lastSteps.size(), 10U) << "the stops came at many different moments";
}

/// Ends the process when no worker is ended any more: a lock that a dead worker holds is waited for without end, with
/// every signal blocked. Under fire the ends follow each other within milliseconds.
void EndAHangingProcess() {
    unsigned long seen = 0;
    for (int calm = 0; calm < 30; ++calm) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const unsigned long ended = kvtest::ThreadsEndedBySignal();
        calm = ended == seen ? calm : 0;
        seen = ended;
    }
    _exit(2);
}

/// The same with workers whose end signals are always open. Ends with 0 when that does no harm.
[[noreturn]] void FireAtUnshieldedWorkers() {
    const kvtest::UnshieldedWorkers unshielded;
    std::thread(EndAHangingProcess).detach();
    PoolFire fire(1);
    fire.run(5000);  // the harm comes within some hundred, as a rule
    _exit(fire.report().wrong.empty() ? 0 : 1);
}

TEST(PoolFireDeathTest, WithoutTheShieldOfTheWorkersTheSameFireDoesHarm) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(FireAtUnshieldedWorkers(), std::not_fn(testing::ExitedWithCode(0)), "");
}

}  // namespace
