#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "KvProtocolDriverInterface.h"
#include "contract/Abi.h"
#include "contract/Calls.h"
#include "contract/DriverRecorders.h"

// A host's calls of a driver. Of the product this file knows the contract headers alone, as a host does; the drivers are
// compiled elsewhere.

namespace kvcontract {

using ReportsStatus = KvMessengerReportsMngrInterface::ReportsStatus;
using Calls = std::vector<Call>;
using Settings = std::map<std::string, std::string>;

struct Driver {
    const char* name;
    KvProtocolDriverInterface* (*make)();
    std::size_t slots;
};

class HostCallsDriverTest : public testing::TestWithParam<Driver> {
protected:
    void TearDown() override {
        if (m_driver != nullptr) {
            CallSlot<void>(m_driver, 1);
        }
        TakeCalls();
    }

    void* m_driver = GetParam().make();
    int m_file = 0;
    KvMessageFile* const m_pFile = reinterpret_cast<KvMessageFile*>(&m_file);
    ReportsStatus m_status = KvMessengerReportsMngrInterface::REPORT_NONE;
};

TEST_P(HostCallsDriverTest, Slot0DestroysAndLeavesTheMemory) {
    CallSlot<void>(m_driver, 0);
    EXPECT_EQ(TakeCalls(), (Calls{{"destroyed", {}}}));
    Free(std::exchange(m_driver, nullptr));
}

TEST_P(HostCallsDriverTest, Slot1DestroysAndFrees) {
    CallSlot<void>(std::exchange(m_driver, nullptr), 1);
    EXPECT_EQ(TakeCalls(), (Calls{{"destroyed", {}}, {"freed", {}}}));
}

TEST_P(HostCallsDriverTest, Slots2To5AreTheNames) {
    EXPECT_STREQ(CallSlot<const char*>(m_driver, 2), "name");
    EXPECT_STREQ(CallSlot<const char*>(m_driver, 3), "version");
    EXPECT_STREQ(CallSlot<const char*>(m_driver, 4), "protocol");
    EXPECT_STREQ(CallSlot<const char*>(m_driver, 5), "carrier");
}

TEST_P(HostCallsDriverTest, Slots6And7AreConfigureAndSetup) {
    Settings settings;
    KvMessengerInstConfBasic instance;
    EXPECT_TRUE((CallSlot<bool, Settings&>(m_driver, 6, settings)));
    EXPECT_TRUE((CallSlot<bool, KvMessengerInstConfBasic*>(m_driver, 7, &instance)));
    EXPECT_EQ(TakeCalls(), (Calls{{"Configure", {AddressOf(settings)}}, {"Setup", {AddressOf(instance)}}}));
}

TEST_P(HostCallsDriverTest, Slots8And9AreThePeriodicEventAndTheReset) {
    EXPECT_TRUE(CallSlot<bool>(m_driver, 8));
    EXPECT_TRUE(CallSlot<bool>(m_driver, 9));
    EXPECT_EQ(TakeCalls(), (Calls{{"PeriodicEvent", {}}, {"ResetDevice", {}}}));
}

TEST_P(HostCallsDriverTest, Slots10And11AreTheQueryAndThenTheMessage) {
    EXPECT_TRUE((CallSlot<bool, KvMessageFile*, ReportsStatus&>(m_driver, 10, m_pFile, m_status)));
    EXPECT_TRUE((CallSlot<bool, KvMessageFile*, ReportsStatus&>(m_driver, 11, m_pFile, m_status)));
    EXPECT_EQ(TakeCalls(), (Calls{{"Send2WayRespQuery", {Word(m_pFile), AddressOf(m_status)}},
                                  {"SendAMessage", {Word(m_pFile), AddressOf(m_status)}}}));
}

TEST_P(HostCallsDriverTest, Slots12And13AreTheCleanUpAndTheSignal) {
    EXPECT_TRUE(CallSlot<bool>(m_driver, 12));
    EXPECT_TRUE(CallSlot<bool>(m_driver, 13));
    EXPECT_EQ(TakeCalls(), (Calls{{"Cleanup", {}}, {"ProcessSignal", {}}}));
}

TEST_P(HostCallsDriverTest, TheSlotBehindTheLastBelongsToDerivedClasses) {
    CallSlot<void>(m_driver, GetParam().slots);
    EXPECT_EQ(TakeCalls(), (Calls{{"OperationOfADerivedClass", {}}}));
}

// A host's compiler finds the same slots in the header.
TEST_P(HostCallsDriverTest, ACallThroughTheHeaderReachesTheSameOperations) {
    auto* const driver = static_cast<KvProtocolDriverInterface*>(m_driver);
    EXPECT_STREQ(driver->GetProtocolName(), "protocol");
    EXPECT_TRUE(driver->SendAMessage(m_pFile, m_status));
    EXPECT_TRUE(driver->ProcessSignal());
    EXPECT_EQ(TakeCalls(),
              (Calls{{"SendAMessage", {Word(m_pFile), AddressOf(m_status)}}, {"ProcessSignal", {}}}));
}

INSTANTIATE_TEST_SUITE_P(Drivers, HostCallsDriverTest,
                         testing::Values(Driver{"Interface", NewRecordingProtocolDriver, 14},
                                         Driver{"Asyn", NewRecordingAsynDriver, 20},
                                         Driver{"MultiThreaded", NewRecordingMultiThreadedDriver, 24},
                                         Driver{"Smtp", NewRecordingSmtpDriver, 24}),
                         [](const auto& driver) { return std::string(driver.param.name); });

}  // namespace kvcontract
