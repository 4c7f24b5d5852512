#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "KvEmailDriver.h"
#include "system/EngineDoubles.h"
#include "system_faults/Services.h"

// The port of a server that is named without a useful one.

namespace {

using kvtest::OpenEngine;
using kvtest::ServiceLookup;

int ResolvedPort(const std::string& host) {
    OpenEngine engine;
    KvEmailDriver::Job job;
    job.strHost = host;
    engine.SetHostPort(job);
    return job.nPort;
}

TEST(KvEmailDriverPortTest, WithoutAUsefulPortItIsThatOfTheSmtpService) {
    const ServiceLookup service(2525);
    for (const char* host : {"mx1", "mx1:", "mx1:0", "mx1:abc", "mx1:-1"}) {
        EXPECT_EQ(ResolvedPort(host), 2525) << host;
    }
}

TEST(KvEmailDriverPortTest, AServiceThatIsNotKnownIsOnPort25) {
    const ServiceLookup service(std::nullopt);
    for (const char* host : {"mx1", "mx1:", "mx1:0", "mx1:abc", "mx1:-1"}) {
        EXPECT_EQ(ResolvedPort(host), 25) << host;
    }
}

TEST(KvEmailDriverPortTest, ANamedPortNeedsNoService) {
    const ServiceLookup service(2525);
    EXPECT_EQ(ResolvedPort("mx1:587"), 587);
}

}  // namespace
