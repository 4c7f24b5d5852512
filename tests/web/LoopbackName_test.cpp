#include "LoopbackName.h"

#include <gtest/gtest.h>

namespace kvhosttest {
namespace {

using kvhost::HostOf;
using kvhost::IsLoopback;

TEST(LoopbackNameTest, LoopbackNamesAndAddressesAreKnown) {
    for (const char* host : {"localhost", "LocalHost", "127.0.0.1", "127.8.9.10", "::1"}) {
        EXPECT_TRUE(IsLoopback(host)) << host;
    }
}

TEST(LoopbackNameTest, OtherNamesAreNone) {
    for (const char* host : {"", "0.0.0.0", "128.0.0.1", "127.0.0.1.evil.example", "localhost.evil.example",
                             "evil.example", "127.1", "::2", "10.0.0.1"}) {
        EXPECT_FALSE(IsLoopback(host)) << host;
    }
}

TEST(LoopbackNameTest, TheHostIsFoundBesideItsPort) {
    EXPECT_EQ(HostOf("localhost:8025"), "localhost");
    EXPECT_EQ(HostOf("127.0.0.1"), "127.0.0.1");
    EXPECT_EQ(HostOf("[::1]:8025"), "::1");
    EXPECT_EQ(HostOf("[::1]"), "::1");
    EXPECT_EQ(HostOf("[::1"), "[::1");
    EXPECT_EQ(HostOf(""), "");
}

}  // namespace
}  // namespace kvhosttest
