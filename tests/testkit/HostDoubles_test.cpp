#include "HostDoubles.h"

#include <gtest/gtest.h>

using kvtest::HostDoubles;

namespace {

struct Driver {
    KvLogInterface* m_pLog = nullptr;
    KvMessengerReportsMngrInterface* m_pReportsMngr = nullptr;
    KvMessageFileQueue* m_pMsgFileQueue = nullptr;
};

}  // namespace

TEST(HostDoublesTest, ADriverIsLentAllThree) {
    HostDoubles host;
    Driver driver;
    host.lendTo(driver);
    EXPECT_EQ(driver.m_pLog, &host.log);
    EXPECT_EQ(driver.m_pReportsMngr, &host.reports);
    EXPECT_EQ(driver.m_pMsgFileQueue, &host.queue);
}
