#include "KvNonBlockingMode.h"

#include <gtest/gtest.h>

#include "src/SocketDoubles.h"

namespace {

class KvNonBlockingModeTest : public ::testing::Test {
protected:
    bool IsNonBlocking() const { return kvtest::HasStatusFlag(pair.near.get(), O_NONBLOCK); }

    kvtest::StreamPair pair;
};

TEST_F(KvNonBlockingModeTest, LastsAsLongAsTheObject) {
    {
        const KvNonBlockingMode mode(pair.near.get());
        EXPECT_TRUE(mode.IsSwitched());
        EXPECT_TRUE(IsNonBlocking());
    }
    EXPECT_FALSE(IsNonBlocking());
}

TEST_F(KvNonBlockingModeTest, DescriptorThatWasNonBlockingStaysSo) {
    ASSERT_TRUE(KvNonBlockingMode::Set(pair.near.get(), true));
    {
        const KvNonBlockingMode mode(pair.near.get());
        EXPECT_FALSE(mode.IsSwitched());
    }
    EXPECT_TRUE(IsNonBlocking());
}

TEST_F(KvNonBlockingModeTest, KeptModeOutlivesTheObject) {
    {
        KvNonBlockingMode mode(pair.near.get());
        mode.Keep();
    }
    EXPECT_TRUE(IsNonBlocking());
}

TEST_F(KvNonBlockingModeTest, OtherStatusFlagsStay) {
    ASSERT_EQ(fcntl(pair.near.get(), F_SETFL, O_APPEND), 0);
    { const KvNonBlockingMode mode(pair.near.get()); }
    EXPECT_TRUE(kvtest::HasStatusFlag(pair.near.get(), O_APPEND));
}

TEST_F(KvNonBlockingModeTest, DescriptorThatIsNotOpenIsNotSwitched) {
    const KvNonBlockingMode mode(-1);
    EXPECT_FALSE(mode.IsSwitched());
    EXPECT_FALSE(KvNonBlockingMode::IsOn(-1));
    EXPECT_FALSE(KvNonBlockingMode::Set(-1, true));
}

}  // namespace
