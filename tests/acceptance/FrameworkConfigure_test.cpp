#include <gtest/gtest.h>

#include <ostream>

#include "Eventually.h"
#include "FrameworkKit.h"
#include "KvconThreadPool.h"

using namespace kvframework;
using kvtest::Severity;

namespace {

struct SettingsCase {
    const char* name;
    std::map<std::string, std::string> settings;
    unsigned int pool, total, same, pins;

    friend void PrintTo(const SettingsCase& each, std::ostream* out) { *out << each.name; }
};

constexpr const char* kPool = "smart_driver.threadpool_size";
constexpr const char* kTotal = "smart_driver.diff_carrier_connection_count";
constexpr const char* kSame = "smart_driver.same_carrier_connection_count";
constexpr const char* kPins = "smart_driver.max_pins_per_transaction";

class FrameworkSettings : public testing::TestWithParam<SettingsCase> {};

TEST_P(FrameworkSettings, AreStoredAsReadByStrtoul) {
    FakeDriver driver;
    std::map<std::string, std::string> settings = GetParam().settings;
    EXPECT_TRUE(driver.ConfigureExt(settings));
    EXPECT_EQ(driver.m_nThreadPoolSize, GetParam().pool);
    EXPECT_EQ(driver.m_nMaxConnections, GetParam().total);
    EXPECT_EQ(driver.m_nMaxSameCarrierConnections, GetParam().same);
    EXPECT_EQ(driver.m_nMaxPinsPerTransaction, GetParam().pins);
    EXPECT_EQ(settings, GetParam().settings);
}

INSTANTIATE_TEST_SUITE_P(
    All, FrameworkSettings,
    testing::Values(
        SettingsCase{"Defaults", {}, 1, 10, 3, 10}, SettingsCase{"PoolSize", {{kPool, "8"}}, 8, 10, 3, 10},
        SettingsCase{"Total", {{kTotal, "25"}}, 1, 25, 3, 10},
        SettingsCase{"SameCarrier", {{kSame, "7"}}, 1, 10, 7, 10},
        SettingsCase{"Pins", {{kPins, "100"}}, 1, 10, 3, 100},
        SettingsCase{"AllFour", {{kPool, "2"}, {kTotal, "4"}, {kSame, "6"}, {kPins, "8"}}, 2, 4, 6, 8},
        SettingsCase{"NoNumberIsZero", {{kSame, "abc"}}, 1, 10, 0, 10},
        SettingsCase{"EmptyIsZero", {{kTotal, ""}}, 1, 0, 3, 10},
        SettingsCase{"TrailingTextIsIgnored", {{kPool, "12 workers"}}, 12, 10, 3, 10},
        SettingsCase{"LeadingZerosAreDecimal", {{kPins, "0010"}}, 1, 10, 3, 10},
        SettingsCase{"HexIsZero", {{kPins, "0x10"}}, 1, 10, 3, 0},
        SettingsCase{"LeadingBlanks", {{kPins, " \t9"}}, 1, 10, 3, 9},
        SettingsCase{"PlusSign", {{kPins, "+9"}}, 1, 10, 3, 9},
        SettingsCase{"MinusOneIsTheLargest", {{kTotal, "-1"}}, 1, 4294967295U, 3, 10},
        SettingsCase{"KeysAreCaseSensitive", {{"Smart_Driver.threadpool_size", "5"}}, 1, 10, 3, 10},
        SettingsCase{"UnknownKeysAreIgnored", {{"smart_driver.other", "5"}}, 1, 10, 3, 10}),
    [](const auto& each) { return each.param.name; });

TEST(FrameworkConfigure, AFreshDriverHasNoPoolNoLockAndNoConnections) {
    FakeDriver driver;
    EXPECT_EQ(driver.m_nThreadPoolSize, 0U);
    EXPECT_EQ(driver.m_nMaxConnections, 0U);
    EXPECT_EQ(driver.m_nMaxSameCarrierConnections, 0U);
    EXPECT_EQ(driver.m_pThreadPool, nullptr);
    EXPECT_TRUE(driver.m_mapConnCache.empty());
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_EQ(driver.m_pCacheLock, nullptr);
}

TEST(FrameworkConfigure, ASecondConfigurationStartsFromTheDefaults) {
    FakeDriver driver;
    std::map<std::string, std::string> first{{kPool, "8"}, {kTotal, "8"}, {kSame, "8"}, {kPins, "8"}};
    std::map<std::string, std::string> second{{kSame, "5"}};
    driver.ConfigureExt(first);
    driver.ConfigureExt(second);
    EXPECT_EQ(driver.m_nThreadPoolSize, 1U);
    EXPECT_EQ(driver.m_nMaxConnections, 10U);
    EXPECT_EQ(driver.m_nMaxSameCarrierConnections, 5U);
    EXPECT_EQ(driver.m_nMaxPinsPerTransaction, 10U);
}

TEST(FrameworkConfigure, ConfigureReachesTheFourSettings) {
    FakeDriver driver;
    std::map<std::string, std::string> settings{{kTotal, "77"}};
    EXPECT_TRUE(driver.Configure(settings));
    EXPECT_EQ(driver.m_nMaxConnections, 77U);
}

TEST(FrameworkConfigure, ConfigureExtIsTraced) {
    kvtest::HostDoubles host;
    FakeDriver driver;
    host.lendTo(driver);
    std::map<std::string, std::string> settings;
    driver.ConfigureExt(settings);
    EXPECT_EQ(host.log.texts(),
              (Texts{"Entering KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt()",
                     "Leaving KvSmartAsynProtocolDriverMultiThreaded::ConfigureExt() with TRUE."}));
    EXPECT_EQ(host.log.count(Severity::Trace), 2);
    for (const kvtest::LogEntry& entry : host.log.entries()) {
        EXPECT_GT(entry.line, 0);
        EXPECT_TRUE(entry.file.ends_with(".cpp")) << entry.file;
    }
}

TEST(FrameworkSetup, MakesTheCacheLockAndThePoolWithoutAnInstanceConfiguration) {
    kvtest::HostDoubles host;
    FakeDriver driver;
    host.lendTo(driver);
    std::map<std::string, std::string> settings;
    driver.ConfigureExt(settings);
    host.log.clear();
    EXPECT_TRUE(driver.SetupExt(nullptr));
    ASSERT_NE(driver.m_pCacheLock, nullptr);
    ASSERT_NE(driver.m_pThreadPool, nullptr);
    EXPECT_EQ(driver.m_pThreadPool->RunningSize(), 0U);
    EXPECT_EQ(host.log.texts(Severity::Trace),
              (Texts{"Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()",
                     "Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with TRUE."}));
    driver.CleanupExt();
}

TEST(FrameworkSetup, SetupMakesTheDriverLockToo) {
    kvtest::HostDoubles host;
    FakeDriver driver;
    std::map<std::string, std::string> settings;
    EXPECT_TRUE(driver.Configure(settings));
    EXPECT_TRUE(driver.Setup(&host.instanceConf));
    EXPECT_NE(driver.m_pLock, nullptr);
    EXPECT_NE(driver.m_pCacheLock, nullptr);
    EXPECT_NE(driver.m_pThreadPool, nullptr);
    EXPECT_TRUE(driver.Cleanup());
    EXPECT_EQ(driver.m_pLock, nullptr);
    EXPECT_EQ(driver.m_pCacheLock, nullptr);
    EXPECT_EQ(driver.m_pThreadPool, nullptr);
}

class BlockingWork : public KvconDelegate {
public:
    BlockingWork(Journal& journal, kvtest::Gate gate) : m_journal(journal), m_gate(std::move(gate)) {}
    void* DoWork(void*) override {
        m_journal.add("running");
        kvtest::Eventually([this] { return m_gate.isOpen(); });
        m_journal.add("done");
        return nullptr;
    }

private:
    Journal& m_journal;
    kvtest::Gate m_gate;
};

TEST(FrameworkSetup, ThePoolHasAsManyWorkersAsConfigured) {
    FakeDriver driver;
    std::map<std::string, std::string> settings{{kPool, "2"}};
    driver.ConfigureExt(settings);
    driver.SetupExt(nullptr);
    Journal journal;
    kvtest::Gate gate;
    for (int n = 0; n < 3; ++n) {
        driver.m_pThreadPool->AddWork(new BlockingWork(journal, gate));
    }
    EXPECT_EQ(driver.m_pThreadPool->RunningSize(), 2U);
    EXPECT_TRUE(kvtest::Eventually([&] { return journal.count("running") == 2; }));
    gate.open();
    EXPECT_TRUE(kvtest::Eventually([&] { return journal.count("done") == 3; }));
    driver.CleanupExt();
}

class FrameworkCleanup : public FrameworkTest {};

TEST_F(FrameworkCleanup, ClosesEveryIdleConnectionAndEmptiesTheCache) {
    KvConn* first = take("b");
    KvConn* second = take("a");
    KvConn* third = take("a");
    giveBack(first);
    giveBack(third);
    giveBack(second);
    driver.journal.clear();
    EXPECT_TRUE(driver.CleanupExt());
    EXPECT_EQ(driver.journal.events(), (Texts{"close 3", "close 2", "close 1"}));
    EXPECT_TRUE(driver.m_mapConnCache.empty());
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_EQ(driver.m_pCacheLock, nullptr);
}

TEST_F(FrameworkCleanup, LeavesConnectionsInUseAlone) {
    KvConn* used = forget(take("a"));
    EXPECT_TRUE(driver.CleanupExt());
    EXPECT_EQ(driver.journal.count("close 1"), 0);
    EXPECT_EQ(FakeDriver::numberOf(*used), 1);
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    driver.CloseConnection(*used);
    delete used;
}

TEST_F(FrameworkCleanup, IsTracedUnderTheNameOfSetup) {
    driver.CleanupExt();
    EXPECT_EQ(host.log.texts(),
              (Texts{"Entering KvSmartAsynProtocolDriverMultiThreaded::SetupExt()",
                     "Leaving KvSmartAsynProtocolDriverMultiThreaded::SetupExt() with TRUE."}));
}

TEST_F(FrameworkCleanup, StopsThePoolAndDestroysIt) {
    driver.CleanupExt();
    driver.SetupExt(nullptr);
    EXPECT_TRUE(driver.CleanupExt());
    EXPECT_EQ(driver.m_pThreadPool, nullptr);
    EXPECT_EQ(driver.m_pCacheLock, nullptr);
}

TEST_F(FrameworkCleanup, CanBeRepeated) {
    EXPECT_TRUE(driver.CleanupExt());
    EXPECT_TRUE(driver.CleanupExt());
}

TEST_F(FrameworkCleanup, WaitsForWorkThatEndsInTime) {
    driver.CleanupExt();
    driver.SetupExt(nullptr);
    kvtest::Gate gate;
    gate.open();
    driver.m_pThreadPool->AddWork(new BlockingWork(driver.journal, gate));
    ASSERT_TRUE(kvtest::Eventually([&] { return driver.journal.count("done") == 1; }));
    EXPECT_TRUE(driver.CleanupExt());
    EXPECT_EQ(driver.m_pThreadPool, nullptr);
}

TEST_F(FrameworkCleanup, AsksRunningWorkToStopFirst) {
    class Stoppable : public KvconDelegate {
    public:
        Stoppable(Journal& journal, kvtest::Gate gate) : m_journal(journal), m_gate(std::move(gate)) {}
        void* DoWork(void*) override {
            m_journal.add("running");
            kvtest::Eventually([this] { return m_gate.isOpen(); });
            return nullptr;
        }
        void StopWork() override {
            m_journal.add("stop");
            m_gate.open();
        }

    private:
        Journal& m_journal;
        kvtest::Gate m_gate;
    };
    driver.CleanupExt();
    driver.SetupExt(nullptr);
    driver.m_pThreadPool->AddWork(new Stoppable(driver.journal, kvtest::Gate()));
    ASSERT_TRUE(kvtest::Eventually([&] { return driver.journal.count("running") == 1; }));
    EXPECT_TRUE(driver.CleanupExt());
    EXPECT_EQ(driver.journal.events(), (Texts{"running", "stop"}));
}

}  // namespace
