#include "Health.h"

#include <gtest/gtest.h>

namespace kvhosttest {
namespace {

using kvhost::Health;
using kvhost::HealthOf;
using kvhost::RunSnapshot;
using kvhost::StoreTime;
using std::chrono::seconds;
using Phase = RunSnapshot::Phase;

const StoreTime kNow = kvhost::FromNumber(1'700'000'000'000);

RunSnapshot Board(Phase phase, seconds sinceRound) {
    RunSnapshot run;
    run.phase = phase;
    run.started = kNow - seconds(1000);
    run.lastRound = kNow - sinceRound;
    return run;
}

TEST(HealthTest, ARunningDaemonIsAliveAndReady) {
    const Health health = HealthOf(Board(Phase::Running, seconds(60)), kNow);
    EXPECT_TRUE(health.isAlive);
    EXPECT_TRUE(health.isReady);
    EXPECT_EQ(health.why, "");
}

TEST(HealthTest, WithoutARoundForAMinuteItIsDead) {
    const Health health = HealthOf(Board(Phase::Running, seconds(61)), kNow);
    EXPECT_FALSE(health.isAlive);
    EXPECT_FALSE(health.isReady);
    EXPECT_EQ(health.why, "no sign of the thread that runs the jobs for 1 min 1 s");
}

TEST(HealthTest, AStartIsAliveAndNotReady) {
    const Health health = HealthOf(RunSnapshot(), kNow);
    EXPECT_TRUE(health.isAlive);
    EXPECT_FALSE(health.isReady);
    EXPECT_EQ(health.why, "starting");
}

TEST(HealthTest, AStartThatLastsTooLongIsDead) {
    RunSnapshot run;
    run.started = kNow - seconds(61);
    EXPECT_FALSE(HealthOf(run, kNow).isAlive);
    run.started = kNow - seconds(59);
    EXPECT_TRUE(HealthOf(run, kNow).isAlive);
}

TEST(HealthTest, AStopHasLimitsOfItsOwn) {
    const Health health = HealthOf(Board(Phase::Stopping, seconds(100)), kNow);
    EXPECT_TRUE(health.isAlive);
    EXPECT_FALSE(health.isReady);
    EXPECT_EQ(health.why, "stopping");
}

TEST(HealthTest, WithoutItsStoreItIsNotReady) {
    RunSnapshot run = Board(Phase::Running, seconds(1));
    run.storeTrouble = "database or disk is full";
    const Health health = HealthOf(run, kNow);
    EXPECT_TRUE(health.isAlive);
    EXPECT_FALSE(health.isReady);
    EXPECT_EQ(health.why, "the store cannot be used: database or disk is full");
}

}  // namespace
}  // namespace kvhosttest
