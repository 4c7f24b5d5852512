#include <gtest/gtest.h>

#include <vector>

#include "driver/SessionDriver.h"
#include "driver_faults/Interceptions.h"

// How long the framework pauses, to the microsecond.

namespace {

using kvtest::FrameworkTest;
using kvtest::KvCarrierSess;
using kvtest::KvConn;
using kvtest::KvSmartAsynProtocolDriverTest;
using kvtest::RecordedPauses;
using kvtest::SessionDriver;

using Microseconds = std::vector<unsigned int>;

using CyclePausesTest = KvSmartAsynProtocolDriverTest;
using CachePausesTest = FrameworkTest;

TEST_F(CyclePausesTest, BetweenTwoPassesThereAreExactly200Milliseconds) {
    m_driver.onProcess = [this](KvCarrierSess& session, std::string&) {
        if (m_driver.processed.size() == 4) {
            SessionDriver::Empty(session);
        }
        return true;
    };
    Send("JOB_1");
    const RecordedPauses pauses;
    EXPECT_TRUE(m_driver.PeriodicEvent());
    EXPECT_EQ(pauses.microseconds(), Microseconds(3, 200000));
}

TEST_F(CyclePausesTest, ACycleThatLeavesNothingWaitingDoesNotPause) {
    Send("JOB_1", 1);
    Send("JOB_2", 2);
    const RecordedPauses pauses;
    m_driver.PeriodicEvent();
    m_driver.PeriodicEvent();
    EXPECT_EQ(pauses.microseconds(), Microseconds{});
}

TEST_F(CachePausesTest, AfterAConnectionFailedItsValidationThereAreExactly200Milliseconds) {
    KvConn* const broken = m_driver.Take("key");
    m_driver.onTest = [](int) { return false; };
    const RecordedPauses pauses;
    m_driver.ReleaseConnToCache(m_driver.GetValidatedConnFromCache(broken, "key", nullptr));
    EXPECT_EQ(pauses.microseconds(), Microseconds{200000});
}

TEST_F(CachePausesTest, NothingElseInTheCachePauses) {
    const RecordedPauses pauses;
    KvConn* const conn = m_driver.GetValidatedConnFromCache(nullptr, "key", nullptr);
    m_driver.ReleaseConnToCache(m_driver.GetValidatedConnFromCache(conn, "key", nullptr));
    m_driver.onTest = [](int) { return false; };  // found broken when it is handed out again
    m_driver.ReleaseConnToCache(m_driver.Take("key"));
    EXPECT_EQ(pauses.microseconds(), Microseconds{});
}

}  // namespace
