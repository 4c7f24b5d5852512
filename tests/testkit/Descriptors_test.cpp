#include "Descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <limits>

using kvtest::OccupiedDescriptors;
using kvtest::OpenDescriptorCount;
using kvtest::RaiseDescriptorLimit;
using kvtest::ScopedDescriptor;

TEST(DescriptorsTest, AnOpenDescriptorIsCountedUntilItIsClosed) {
    const int before = OpenDescriptorCount();
    ScopedDescriptor one(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
    one.reset();
    EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST(DescriptorsTest, TheLimitIsAtLeastWhatWasWanted) {
    ASSERT_TRUE(RaiseDescriptorLimit(64));
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_GE(limit.rlim_cur, 64U);
}

TEST(DescriptorsTest, MoreThanTheHardLimitIsRefused) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max >= std::numeric_limits<unsigned>::max()) {
        GTEST_SKIP() << "this system has no hard limit that could be exceeded";
    }
    EXPECT_FALSE(RaiseDescriptorLimit(std::numeric_limits<unsigned>::max()));
}

TEST(DescriptorsTest, OccupiedDescriptorsPushNewOnesUp) {
    const int before = OpenDescriptorCount();
    {
        const OccupiedDescriptors occupied(1100);
        const ScopedDescriptor next(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_GE(next.get(), 1100);
    }
    EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST(ScopedDescriptorTest, AMovedDescriptorIsClosedOnce) {
    const int before = OpenDescriptorCount();
    {
        ScopedDescriptor one(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const ScopedDescriptor other(std::move(one));
        EXPECT_TRUE(other.valid());
        EXPECT_EQ(OpenDescriptorCount(), before + 1);
    }
    EXPECT_EQ(OpenDescriptorCount(), before);
}
