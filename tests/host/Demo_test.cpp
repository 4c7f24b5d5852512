#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "TempDir.h"

namespace kvhosttest {
namespace {

// The real driver, real mail servers and the sample jobs: the script itself compares every outcome and every
// received mail with what is expected.
TEST(DemoTest, EveryOutcomeAndEveryReceivedMailIsTheExpectedOne) {
    const kvtest::TempDir folder;
    ChildProcess demo({KV_SOURCE_DIR "/examples/demo.sh", KV_BINARY_DIR, folder.file("work")}, {});
    EXPECT_EQ(demo.Wait(), 0) << demo.Error();
    EXPECT_THAT(demo.Output(), testing::HasSubstr("19 outcomes and the received mails are as expected\n"));
}

}  // namespace
}  // namespace kvhosttest
