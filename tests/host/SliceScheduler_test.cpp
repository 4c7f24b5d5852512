#include "SliceScheduler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "HostConfig.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SliceSchedulerTest : public testing::Test {
protected:
    using Time = SliceScheduler::Time;

    static SliceLimits Limits(int perCarrier, int inAll, int jobsPerSlice, int jobsInAll = 1000) {
        return {perCarrier, inAll, jobsPerSlice, jobsInAll};
    }
    /// The carrier has so many jobs due, with the keys 1, 2, …
    void SetDue(const std::string& carrier, int jobs) {
        auto& keys = m_mapDue[carrier];
        keys.clear();
        for (int i = 1; i <= jobs; ++i) {
            keys.push_back(i);
        }
    }
    std::vector<SliceScheduler::TickLoad> Plan(const std::vector<CarrierDemand>& demands) {
        return m_scheduler.Plan(
            demands,
            [this](const std::string& carrier, int limit) {
                auto keys = m_mapDue[carrier];
                keys.resize(std::min(keys.size(), static_cast<std::size_t>(limit)));
                return keys;
            },
            m_now);
    }
    /// Plans and hands everything over.
    std::vector<Slice> Go(const std::vector<CarrierDemand>& demands) {
        std::vector<Slice> all;
        for (const SliceScheduler::TickLoad& load : Plan(demands)) {
            for (const Slice& slice : load) {
                m_scheduler.Begin(slice, static_cast<int>(slice.jobs.size()), m_now);
                all.push_back(slice);
            }
        }
        return all;
    }
    void BringBack(const Slice& slice) {
        for (std::size_t i = 0; i < slice.jobs.size(); ++i) {
            m_scheduler.NoteBack(slice.id, m_now);
        }
    }
    static std::vector<std::string> CarriersOf(const std::vector<Slice>& slices) {
        std::vector<std::string> names;
        for (const Slice& slice : slices) {
            names.push_back(slice.carrier);
        }
        return names;
    }

    std::map<std::string, std::vector<std::int64_t>> m_mapDue;
    SliceScheduler m_scheduler{Limits(3, 10, 20)};
    Time m_now = Time() + std::chrono::hours(1);
};

TEST_F(SliceSchedulerTest, NoCarrierIsTwiceInTheLoadOfOneTick) {
    SetDue("east", 100);
    SetDue("west", 100);
    const auto loads = Plan({{"east"}, {"west"}});
    ASSERT_THAT(loads, SizeIs(3));
    for (const SliceScheduler::TickLoad& load : loads) {
        EXPECT_THAT(CarriersOf(load), testing::UnorderedElementsAre("east", "west"));
    }
}

TEST_F(SliceSchedulerTest, TheSlicesOfACarrierHoldDifferentJobsInTheirOrder) {
    m_scheduler.SetLimits(Limits(2, 10, 3));
    SetDue("east", 5);
    const auto loads = Plan({{"east"}});
    ASSERT_THAT(loads, SizeIs(2));
    EXPECT_THAT(loads[0][0].jobs, ElementsAre(1, 2, 3));
    EXPECT_THAT(loads[1][0].jobs, ElementsAre(4, 5));
}

TEST_F(SliceSchedulerTest, ThePaceIsThatOfJobsHoweverManyFilesTheyHave) {
    m_scheduler.SetLimits(Limits(1, 10, 100));
    SetDue("lists", 20);
    const Slice first = Plan({{"lists"}})[0][0];
    m_scheduler.Begin(first, 1000, m_now);
    m_now += std::chrono::seconds(2);  // 100 ms for a job of fifty files
    for (int i = 0; i < 1000; ++i) {
        m_scheduler.NoteBack(first.id, m_now);
    }
    m_now += std::chrono::seconds(1);
    SetDue("lists", 100);
    EXPECT_THAT(Go({{"lists"}})[0].jobs, SizeIs(2));
}

TEST_F(SliceSchedulerTest, JobsThatDoNotFillTheSlicesAreSharedOut) {
    m_scheduler.SetLimits(Limits(1, 10, 100));
    SetDue("fast", 20);
    BringBack(Go({{"fast"}})[0]);
    m_now += std::chrono::seconds(1);
    m_scheduler.SetLimits(Limits(3, 10, 100));
    const auto sizes = [this](int jobs) {
        SetDue("fast", jobs);
        std::vector<std::size_t> all;
        for (const SliceScheduler::TickLoad& load : Plan({{"fast"}})) {
            all.push_back(load[0].jobs.size());
        }
        return all;
    };
    EXPECT_THAT(sizes(150), ElementsAre(50, 50, 50));
    EXPECT_THAT(sizes(1000), ElementsAre(100, 100, 100));
    EXPECT_THAT(sizes(50), ElementsAre(20, 20, 10));  // too few are not worth a connection
}

TEST_F(SliceSchedulerTest, ACarrierGetsNoMoreThanItsSlices) {
    SetDue("east", 1000);
    EXPECT_THAT(Go({{"east"}}), SizeIs(3));
    EXPECT_THAT(Go({{"east"}}), IsEmpty());
}

TEST_F(SliceSchedulerTest, AllCarriersTogetherGetNoMoreThanAllSlices) {
    m_scheduler.SetLimits(Limits(3, 4, 20));
    SetDue("a", 100);
    SetDue("b", 100);
    SetDue("c", 100);
    EXPECT_THAT(CarriersOf(Go({{"a"}, {"b"}, {"c"}})), testing::UnorderedElementsAre("a", "b", "c", "a"));
    EXPECT_FALSE(m_scheduler.HasRoom(m_now));
}

TEST_F(SliceSchedulerTest, NoMoreJobsAreUnderWayThanTheCap) {
    m_scheduler.SetLimits(Limits(3, 10, 20, 30));
    SetDue("a", 100);
    SetDue("b", 100);
    int jobs = 0;
    for (const Slice& slice : Go({{"a"}, {"b"}})) {
        jobs += static_cast<int>(slice.jobs.size());
    }
    EXPECT_EQ(jobs, 30);
    EXPECT_EQ(m_scheduler.UnderWay(), 30);
    EXPECT_FALSE(m_scheduler.HasRoom(m_now));
}

TEST_F(SliceSchedulerTest, ACarrierWithAnUrgentJobComesFirst) {
    m_scheduler.SetLimits(Limits(1, 1, 20));
    SetDue("a", 100);
    SetDue("b", 1);
    EXPECT_THAT(CarriersOf(Go({{"a"}, {"b", true}})), ElementsAre("b"));
}

TEST_F(SliceSchedulerTest, ACarrierWithFewerSlicesUnderWayComesFirst) {
    SetDue("a", 1000);
    Go({{"a"}});
    m_scheduler.SetLimits(Limits(10, 4, 20));
    SetDue("b", 1);
    EXPECT_THAT(CarriersOf(Go({{"a"}, {"b"}})), ElementsAre("b"));
}

TEST_F(SliceSchedulerTest, CarriersTakeTurns) {
    m_scheduler.SetLimits(Limits(1, 1, 20));
    std::vector<std::string> order;
    for (int i = 0; i < 6; ++i) {
        for (const char* carrier : {"a", "b", "c"}) {
            SetDue(carrier, 100);
        }
        const std::vector<Slice> slices = Go({{"a"}, {"b"}, {"c"}});
        ASSERT_THAT(slices, SizeIs(1));
        order.push_back(slices[0].carrier);
        BringBack(slices[0]);
        m_now += std::chrono::seconds(1);
    }
    EXPECT_THAT(order, ElementsAre("a", "b", "c", "a", "b", "c"));
}

TEST_F(SliceSchedulerTest, ACarrierOnTrialGetsOneSliceOfItsSize) {
    SetDue("a", 100);
    const std::vector<Slice> slices = Go({{"a", false, 1}});
    ASSERT_THAT(slices, SizeIs(1));
    EXPECT_THAT(slices[0].jobs, ElementsAre(1));
    SetDue("b", 100);
    const std::vector<Slice> larger = Go({{"b", false, 70}});
    ASSERT_THAT(larger, SizeIs(1));
    EXPECT_THAT(larger[0].jobs, SizeIs(70));
}

TEST_F(SliceSchedulerTest, ThePlaceOfASliceIsFreeAMomentAfterItsLastJobIsBack) {
    m_scheduler.SetLimits(Limits(1, 1, 2));
    SetDue("a", 10);
    const std::vector<Slice> slices = Go({{"a"}});
    ASSERT_THAT(slices, SizeIs(1));
    EXPECT_EQ(m_scheduler.NoteBack(slices[0].id, m_now), std::nullopt);
    EXPECT_EQ(m_scheduler.NextFree(), std::nullopt);
    EXPECT_EQ(m_scheduler.NoteBack(slices[0].id, m_now), "a");
    EXPECT_FALSE(m_scheduler.HasRoom(m_now));
    ASSERT_TRUE(m_scheduler.NextFree());
    EXPECT_TRUE(m_scheduler.HasRoom(*m_scheduler.NextFree()));
}

TEST_F(SliceSchedulerTest, AJobThatIsBackTwiceIsCountedOnce) {
    m_scheduler.SetLimits(Limits(1, 1, 1));
    SetDue("a", 1);
    const std::vector<Slice> slices = Go({{"a"}});
    m_scheduler.NoteBack(slices[0].id, m_now);
    m_scheduler.NoteBack(slices[0].id, m_now);
    EXPECT_EQ(m_scheduler.UnderWay(), 0);
}

TEST_F(SliceSchedulerTest, ASlowCarrierGetsSmallerSlices) {
    m_scheduler.SetLimits(Limits(1, 10, 20));
    SetDue("slow", 100);
    const std::vector<Slice> first = Go({{"slow"}});
    EXPECT_THAT(first[0].jobs, SizeIs(20));
    m_now += std::chrono::seconds(2);  // 100 ms for a job
    BringBack(first[0]);
    m_now += std::chrono::seconds(1);
    EXPECT_THAT(Go({{"slow"}})[0].jobs, SizeIs(2));
}

TEST_F(SliceSchedulerTest, ACarrierGetsLargeSlicesOnceItIsKnownToBeFast) {
    m_scheduler.SetLimits(Limits(1, 10, 100));
    SetDue("fast", 1000);
    const std::vector<Slice> first = Go({{"fast"}});
    EXPECT_THAT(first[0].jobs, SizeIs(20));
    m_now += std::chrono::milliseconds(20);  // 1 ms for a job
    BringBack(first[0]);
    m_now += std::chrono::seconds(1);
    EXPECT_THAT(Go({{"fast"}})[0].jobs, SizeIs(100));
}

TEST_F(SliceSchedulerTest, ASliceIsNoLargerThanWhatTakesAQuarterOfASecond) {
    m_scheduler.SetLimits(Limits(1, 10, 100));
    SetDue("middling", 1000);
    const std::vector<Slice> first = Go({{"middling"}});
    m_now += std::chrono::milliseconds(100);  // 5 ms for a job
    BringBack(first[0]);
    m_now += std::chrono::seconds(1);
    EXPECT_THAT(Go({{"middling"}})[0].jobs, SizeIs(50));
}

TEST_F(SliceSchedulerTest, ACarrierWithNothingDueAfterAllGetsNothing) {
    SetDue("a", 0);
    SetDue("b", 1);
    EXPECT_THAT(CarriersOf(Go({{"a"}, {"b"}})), ElementsAre("b"));
}

TEST(SliceLimitsTest, TheDriversDefaultsHoldForWhatIsNotConfigured) {
    HostConfig config;
    config.carriers["a"];
    const SliceLimits limits = SliceLimitsOf(config);
    EXPECT_EQ(limits.perCarrier, 3);
    EXPECT_EQ(limits.inAll, 2);
    EXPECT_EQ(limits.jobsPerSlice, 100);
    EXPECT_EQ(limits.jobsInAll, 1000);
}

TEST(SliceLimitsTest, OneCarrierNeverTakesAllWorkersWhenThereIsAnother) {
    HostConfig config;
    config.driverSettings["smart_driver.threadpool_size"] = "3";
    config.driverSettings["smart_driver.same_carrier_connection_count"] = "5";
    config.carriers["a"];
    EXPECT_EQ(SliceLimitsOf(config).perCarrier, 5);
    config.carriers["b"];
    EXPECT_EQ(SliceLimitsOf(config).perCarrier, 2);
}

TEST(SliceLimitsTest, TheConnectionsOfAllCarriersBoundTheSlices) {
    HostConfig config;
    config.driverSettings["smart_driver.threadpool_size"] = "100";
    config.driverSettings["smart_driver.diff_carrier_connection_count"] = "7";
    EXPECT_EQ(SliceLimitsOf(config).inAll, 7);
}

}  // namespace
}  // namespace kvhost
