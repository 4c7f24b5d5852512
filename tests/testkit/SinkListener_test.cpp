#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "SinkClient.h"
#include "sink/Listener.h"
#include "sink/StartError.h"

using kvsink::Listener;

namespace {

std::string faultOf(const std::string& address) {
    try {
        const Listener listener(address);
        return "";
    } catch (const kvsink::StartError& error) {
        return error.what();
    }
}

/// While it lives, this process can open no further descriptor.
class DescriptorDrought {
public:
    DescriptorDrought() {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const int lowestFree = ::dup(STDIN_FILENO);
        ::close(lowestFree);
        const rlimit none{static_cast<rlim_t>(lowestFree), m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~DescriptorDrought() { ::setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    rlimit m_before{};
};

}  // namespace

TEST(SinkListenerTest, PortZeroTakesAFreeOneAndTellsIt) {
    const Listener listener("127.0.0.1:0");
    EXPECT_NE(listener.port(), 0);
    EXPECT_EQ(listener.boundAddress(), "127.0.0.1:" + std::to_string(listener.port()));
}

TEST(SinkListenerTest, LocalhostIsTheLoopbackAddress) {
    EXPECT_THAT(Listener("localhost:0").boundAddress(), testing::StartsWith("127.0.0.1:"));
}

TEST(SinkListenerTest, Version6LoopbackIsServed) {
    const std::string fault = faultOf("[::1]:0");
    if (!fault.empty()) {
        GTEST_SKIP() << "this machine has no IPv6 loopback: " << fault;
    }
    EXPECT_THAT(Listener("[::1]:0").boundAddress(), testing::StartsWith("[::1]:"));
}

TEST(SinkListenerTest, AddressesOffTheLoopbackAreRefused) {
    const std::string reason = "only loopback addresses are served: 127.0.0.1, [::1] or localhost";
    EXPECT_EQ(faultOf("0.0.0.0:0"), "--listen: \"0.0.0.0:0\": " + reason);
    EXPECT_EQ(faultOf("192.0.2.1:25"), "--listen: \"192.0.2.1:25\": " + reason);
    EXPECT_EQ(faultOf("[::]:25"), "--listen: \"[::]:25\": " + reason);
    EXPECT_EQ(faultOf("mail.example:25"), "--listen: \"mail.example:25\": " + reason);
}

TEST(SinkListenerTest, MalformedAddressesAreRefused) {
    EXPECT_EQ(faultOf("2525"), "--listen: \"2525\": give ADDRESS:PORT");
    EXPECT_EQ(faultOf("127.0.0.1:"), "--listen: \"127.0.0.1:\": the port is a number from 0 to 65535");
    EXPECT_EQ(faultOf("127.0.0.1:x"), "--listen: \"127.0.0.1:x\": the port is a number from 0 to 65535");
    EXPECT_EQ(faultOf("127.0.0.1:65536"),
              "--listen: \"127.0.0.1:65536\": the port is a number from 0 to 65535");
}

TEST(SinkListenerTest, TakenPortIsReported) {
    const Listener listener("127.0.0.1:0");
    const std::string address = listener.boundAddress();
    EXPECT_EQ(faultOf(address), "--listen: \"" + address + "\": Address already in use");
}

TEST(SinkListenerTest, AcceptGivesTheWaitingClientAndItsAddress) {
    Listener listener("127.0.0.1:0");
    EXPECT_FALSE(listener.accept());
    const sinktest::SinkClient client(listener.port());
    const auto arrival = listener.accept();
    ASSERT_TRUE(arrival);
    EXPECT_EQ(arrival->address, "127.0.0.1");
    EXPECT_FALSE(listener.accept());
}

TEST(SinkListenerTest, WithoutADescriptorAClientIsTurnedAwayAndTheNextIsServed) {
    Listener listener("127.0.0.1:0");
    sinktest::SinkClient unlucky(listener.port());
    {
        const DescriptorDrought drought;
        EXPECT_FALSE(listener.accept());
    }
    EXPECT_TRUE(unlucky.isClosed());
    const sinktest::SinkClient next(listener.port());
    EXPECT_TRUE(listener.accept());
}
