#include "CarrierProbe.h"

#include <gtest/gtest.h>

#include <atomic>

#include "Eventually.h"
#include "ScriptedSmtpServer.h"
#include "TestPorts.h"
#include "WakeUp.h"

namespace kvhost {
namespace {

using Kind = ProbeResult::Kind;

constexpr ProbeLimits kShort{Milliseconds(200), Milliseconds(200)};
constexpr ProbeLimits kLong{Milliseconds(20000), Milliseconds(20000)};

TEST(ProbeServerTest, AServerThatGreetsAnswersAndIsLeftPolitely) {
    kvtest::ScriptedSmtpServer server;
    const ProbeResult result = ProbeServer(server.address(), kLong, -1);
    EXPECT_EQ(result.kind, Kind::Answers) << result.text;
    EXPECT_TRUE(server.waitForCommand("QUIT")) << server.toText();
}

TEST(ProbeServerTest, APortThatNobodyListensOnRefuses) {
    const kvtest::RefusingPort port;
    const ProbeResult result = ProbeServer(port.address(), kLong, -1);
    EXPECT_EQ(result.kind, Kind::Refuses);
    EXPECT_EQ(result.text, "no connection came about: Connection refused");
}

TEST(ProbeServerTest, AConnectionThatNeverComesAboutIsSilence) {
    const kvtest::UnansweringPort port;
    const ProbeResult result = ProbeServer(port.address(), kShort, -1);
    EXPECT_EQ(result.kind, Kind::Silent);
    EXPECT_EQ(result.text, "no connection came about within 200 ms");
}

TEST(ProbeServerTest, AServerThatDoesNotGreetIsSilent) {
    const kvtest::SilentListener server;
    const ProbeResult result = ProbeServer(server.address(), kShort, -1);
    EXPECT_EQ(result.kind, Kind::Silent);
    EXPECT_EQ(result.text, "a connection, but no greeting within 200 ms");
}

TEST(ProbeServerTest, AServerThatGreetsWithARefusalRefuses) {
    kvtest::ScriptedSmtpServer server;
    server.on(kvtest::step::Greeting).reply("554 not today\r\n");
    const ProbeResult result = ProbeServer(server.address(), kLong, -1);
    EXPECT_EQ(result.kind, Kind::Refuses);
    EXPECT_EQ(result.text, "the server greets with \"554 not today\"");
}

TEST(ProbeServerTest, AServerThatHangsUpRefuses) {
    kvtest::ScriptedSmtpServer server;
    server.cutAfter(0);
    EXPECT_EQ(ProbeServer(server.address(), kLong, -1).kind, Kind::Refuses);
}

TEST(ProbeServerTest, ANameThatHasNoAddressRefuses) {
    const ProbeResult result = ProbeServer("no host:25", kLong, -1);
    EXPECT_EQ(result.kind, Kind::Refuses);
    EXPECT_EQ(result.text.rfind("the address of no host cannot be found: ", 0), 0U) << result.text;
}

TEST(CarrierProbeTest, AFindingWakesItsOwner) {
    kvtest::ScriptedSmtpServer server;
    WakeUp wakeUp;
    CarrierProbe probe([&wakeUp] { wakeUp.Wake(); });
    probe.Begin("east", server.address(), kLong);
    ASSERT_TRUE(kvtest::Eventually([&] { return wakeUp.Answer(); }));
    const auto findings = probe.TakeFindings();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].carrier, "east");
    EXPECT_EQ(findings[0].result.kind, Kind::Answers);
    EXPECT_TRUE(probe.TakeFindings().empty());
}

TEST(CarrierProbeTest, NobodyIsToldOnceTheEndOfTheObjectHasBegun) {
    const kvtest::SilentListener server;
    std::atomic<int> told{0};
    for (int round = 1; round <= 300; ++round) {  // what is broken off ends at the same moment
        CarrierProbe probe([&told] { ++told; });
        probe.Begin("east", server.address(), kLong);
        ASSERT_TRUE(server.waitForConnections(round));
    }
    EXPECT_EQ(told, 0);
}

TEST(CarrierProbeTest, TheEndOfTheObjectBreaksOffWhatIsUnderWay) {
    const kvtest::SilentListener server;
    const auto begun = std::chrono::steady_clock::now();
    {
        CarrierProbe probe([] { ADD_FAILURE() << "nobody is there to be told"; });
        probe.Begin("east", server.address(), kLong);
        ASSERT_TRUE(server.waitForConnections(1));
    }
    // Far less than the 20 s that the probe would have waited.
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
}

}  // namespace
}  // namespace kvhost
