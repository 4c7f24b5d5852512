#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CrashRun.h"

namespace kvruntest {
namespace {

TEST(RunKillTest, NothingIsLostOrDeliveredTwiceWithoutADoubtHoweverOftenTheDaemonIsKilled) {
    CrashRun run(20);
    run.Run(50);
    EXPECT_THAT(run.Faults(), testing::IsEmpty()) << run.Summary();
}

}  // namespace
}  // namespace kvruntest
