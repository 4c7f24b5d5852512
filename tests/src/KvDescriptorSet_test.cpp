#include "KvDescriptorSet.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

/// Whether the bit of `descriptor` is set, where the kernel looks for it.
bool HasBit(KvDescriptorSet& set, int descriptor) {
    constexpr int kBits = 8 * sizeof(fd_mask);
    fd_mask word = 0;
    const auto place = static_cast<std::size_t>(descriptor / kBits) * sizeof(word);
    std::memcpy(&word, reinterpret_cast<const char*>(set.Get()) + place, sizeof(word));
    return (word >> (descriptor % kBits) & 1) != 0;
}

class KvDescriptorSetTest : public ::testing::TestWithParam<int> {};

TEST_P(KvDescriptorSetTest, DescriptorIsAMemberOnceItIsSet) {
    KvDescriptorSet set(GetParam());
    EXPECT_FALSE(set.Contains());
    EXPECT_FALSE(HasBit(set, GetParam()));
    set.Set(true);
    EXPECT_TRUE(set.Contains());
    EXPECT_TRUE(HasBit(set, GetParam()));
    set.Set(false);
    EXPECT_FALSE(set.Contains());
    EXPECT_FALSE(HasBit(set, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Descriptors, KvDescriptorSetTest,
                         ::testing::Values(0, 1, 31, 32, 63, 64, 1023, 1024, 1087, 1088, 100000));

TEST(KvDescriptorSetBasicTest, NegativeDescriptorIsNeverAMember) {
    KvDescriptorSet set(-1);
    set.Set(true);
    EXPECT_FALSE(set.Contains());
    EXPECT_FALSE(HasBit(set, 0));
}

TEST(KvDescriptorSetBasicTest, SetIsAsLargeAsAnOrdinaryOneAtLeast) {
    KvDescriptorSet set(3);
    EXPECT_FALSE(HasBit(set, FD_SETSIZE - 1));
}

}  // namespace
