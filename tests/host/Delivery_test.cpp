#include "Delivery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "Eventually.h"
#include "FakeDriverFixture.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// One delivery through the fake driver, in this process.
class DeliveryTest : public kvhosttest::FakeDriverTest {
protected:
    DeliveryTest()
        : m_pLogger(MakeLogger()), m_log(m_pLogger, SecretMask(std::vector<SecretMask::Account>{})) {
        m_config.carriers["pager"].name = "pager";
        m_limits.tick = std::chrono::milliseconds(5);
    }

    std::shared_ptr<spdlog::logger> MakeLogger() {
        auto logger = std::make_shared<spdlog::logger>(
            "test", std::make_shared<spdlog::sinks::ostream_sink_mt>(m_stream));
        logger->set_pattern("%l %v");
        return logger;
    }

    /// A job with as many recipients as said; the fake driver does as `text` says.
    void AddJob(const std::string& id, const std::string& text, int recipients = 1,
                const std::string& carrier = "pager") {
        nlohmann::json job{{"id", id}, {"carrier", carrier}, {"text", text}};
        for (int i = 1; i <= recipients; ++i) {
            job["recipients"].push_back("r" + std::to_string(i) + "@b");
        }
        m_strJobs += job.dump() + "\n";
    }

    /// The jobs are all read before the first one is handed over.
    Delivery::End Run() {
        JobFeed feed({m_folder.write("jobs.jsonl", m_strJobs)}, m_config, m_outcomes);
        feed.WaitUntilRead();
        DriverLibrary library(kvhosttest::kFakeDriver);
        Delivery delivery(library, feed, m_outcomes, m_log, m_config, m_limits, m_nStopRequests);
        const Delivery::End end = delivery.Run([this](const Tally& tally) { OnChange(tally); });
        m_strError = delivery.Error();
        m_outcomes.Close();
        return end;
    }

    std::vector<std::string> CallsThatStartWith(const std::string& name) const {
        std::vector<std::string> calls = Calls();
        std::erase_if(calls, [&](const std::string& call) { return call.rfind(name, 0) != 0; });
        return calls;
    }

    virtual void OnChange(const Tally& tally) {
        if (m_stopWhen && m_stopWhen(tally)) {
            m_nStopRequests = 2;
        }
    }
    /// Ends the run, without a wait, as soon as `condition` holds.
    void StopWhen(std::function<bool(const Tally&)> condition) { m_stopWhen = std::move(condition); }

    /// How many files each tick had that had any.
    std::vector<int> TickSizes() const {
        const std::string name = "PeriodicEvent with ";
        std::vector<int> sizes;
        for (const std::string& call : CallsThatStartWith(name)) {
            sizes.push_back(std::stoi(call.substr(name.size())));
        }
        return sizes;
    }

    std::vector<std::string> Statuses() const {
        std::vector<std::string> statuses;
        for (const Outcome& outcome : m_outcomes.All()) {
            statuses.push_back(outcome.job + ": " + StatusName(outcome.status) +
                               (outcome.reason.empty() ? "" : ": " + outcome.reason));
        }
        return statuses;
    }

    HostConfig m_config;
    std::string m_strJobs;
    std::atomic<int> m_nStopRequests{0};
    std::function<bool(const Tally&)> m_stopWhen;
    DeliveryLimits m_limits;
    Outcomes m_outcomes;
    std::ostringstream m_stream;
    std::shared_ptr<spdlog::logger> m_pLogger;
    LogSink m_log;
    std::string m_strError;
};

TEST_F(DeliveryTest, TheDriverIsCalledInTheContractsOrder) {
    m_config.driverSettings = {{"smart_driver.threadpool_size", "4"}};
    AddJob("a", "complete");
    AddJob("b", "complete");
    m_limits.tick = std::chrono::milliseconds(10000);
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_THAT(Calls(), ElementsAre("GetDriverInstance", "Configure", "  smart_driver.threadpool_size=4",
                                     "Setup", "SendAMessage a_1", "SendAMessage b_1", "PeriodicEvent with 2",
                                     "Cleanup", "ReleaseDriverInstance"));
}

TEST_F(DeliveryTest, TheFilesOfOneJobAreHandedOverWithoutATickBetweenThem) {
    m_limits.tick = std::chrono::milliseconds(0);
    for (int i = 0; i < 25; ++i) {
        AddJob(std::to_string(i), "complete", 2);
    }
    Run();
    EXPECT_THAT(CallsThatStartWith("PeriodicEvent"),
                ElementsAre("PeriodicEvent with 40", "PeriodicEvent with 10"));
}

TEST_F(DeliveryTest, ACarrierThatDeliversNothingGetsEverythingAfterItsTrial) {
    for (int i = 0; i < 2000; ++i) {
        AddJob(std::to_string(i), "fail no connection");
    }
    Run();
    EXPECT_THAT(CallsThatStartWith("PeriodicEvent"),
                ElementsAre("PeriodicEvent with 20", "PeriodicEvent with 1980"));
    EXPECT_EQ(m_outcomes.Count().Of(OutcomeStatus::Failed), 2000U);
}

TEST_F(DeliveryTest, WhenLittleIsLeftAConnectionGetsHalfOfIt) {
    m_config.driverSettings["smart_driver.same_carrier_connection_count"] = "1";
    for (int i = 0; i < 100; ++i) {
        AddJob(std::to_string(i), "complete");
    }
    Run();
    const std::vector<int> sizes = TickSizes();
    ASSERT_FALSE(sizes.empty());
    EXPECT_EQ(sizes[0], 20);
    int left = 80;
    for (std::size_t i = 1; i < sizes.size(); ++i) {
        EXPECT_LE(sizes[i], std::max(20, left / 2));
        left -= sizes[i];
    }
    EXPECT_EQ(left, 0);
}

TEST_F(DeliveryTest, ACarrierOnTrialHoldsUpNoOther) {
    m_config.carriers["fax"].name = "fax";
    for (int i = 0; i < 100; ++i) {
        AddJob("f" + std::to_string(i), "cleanup", 1, "fax");
    }
    for (int i = 0; i < 100; ++i) {
        AddJob("p" + std::to_string(i), "complete");
    }
    StopWhen([](const Tally& tally) { return tally.Of(OutcomeStatus::Delivered) == 100; });
    Run();
    EXPECT_EQ(m_outcomes.Count().Of(OutcomeStatus::Delivered), 100U);
    EXPECT_EQ(m_outcomes.Count().Of(OutcomeStatus::NotSent), 80U);
}

TEST_F(DeliveryTest, ACarrierOnTrialGetsNothingMoreUntilItDelivers) {
    AddJob("a", "cleanup");
    for (int i = 0; i < 20; ++i) {
        AddJob("f" + std::to_string(i), "fail no");
    }
    StopWhen([](const Tally& tally) { return tally.Of(OutcomeStatus::Failed) == 19; });
    Run();
    EXPECT_THAT(CallsThatStartWith("PeriodicEvent"), ElementsAre("PeriodicEvent with 20"));
    EXPECT_EQ(m_outcomes.Count().Of(OutcomeStatus::NotSent), 1U);
}

TEST_F(DeliveryTest, WhatTheDriverWasNotOfferedIsNotSent) {
    for (int i = 0; i < 20; ++i) {
        AddJob("first" + std::to_string(i), "complete");
    }
    AddJob("breaks", "tick throws");
    for (int i = 0; i < 2000; ++i) {
        AddJob("behind" + std::to_string(i), "complete");
    }
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_EQ(m_strError, "the driver threw out of PeriodicEvent: cogwheel is broken");
    const std::vector<std::string> statuses = Statuses();
    EXPECT_EQ(statuses[20], "breaks: not returned: the driver did not hand it back");
    EXPECT_EQ(statuses.back(), "behind1999: not sent: the command stopped before this was handed over");
    // What was offered is what the tick that broke had.
    EXPECT_EQ(m_outcomes.Count().Of(OutcomeStatus::NotReturned),
              static_cast<std::size_t>(TickSizes().back()));
}

TEST_F(DeliveryTest, ACompletedJobIsDelivered) {
    AddJob("a", "complete");
    Run();
    EXPECT_THAT(Statuses(), ElementsAre("a: delivered"));
}

TEST_F(DeliveryTest, AFailedJobHasItsReasonWithoutTheLineEndAndInPrint) {
    // A text reaches the driver with line feeds alone.
    AddJob("a", "fail 550-no\n550 such user\x07");
    Run();
    EXPECT_THAT(Statuses(), ElementsAre("a: failed: 550-no<LF>550 such user<07>"));
}

TEST_F(DeliveryTest, ARejectedJobIsAnOutcomeOfItsOwn) {
    AddJob("a", "reject");
    AddJob("b", "complete");
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_THAT(Statuses(), ElementsAre("a: rejected: the driver did not accept it", "b: delivered"));
}

TEST_F(DeliveryTest, AJobOnWhichTheDriverThrowsIsRejected) {
    AddJob("a", "throw");
    AddJob("b", "complete");
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_THAT(Statuses(), ElementsAre("a: rejected: the driver threw out of SendAMessage: out of paper",
                                        "b: delivered"));
}

TEST_F(DeliveryTest, AJobMayComeBackFromAnyThread) {
    AddJob("a", "thread", 20);
    Run();
    EXPECT_EQ(m_outcomes.Count().Of(OutcomeStatus::Delivered), 20U);
}

TEST_F(DeliveryTest, AJobThatComesBackDuringCleanupIsCollected) {
    m_limits.overall = std::chrono::milliseconds(100);
    AddJob("a", "cleanup");
    Run();
    EXPECT_THAT(Statuses(), ElementsAre("a: failed: Messenger internal error."));
}

TEST_F(DeliveryTest, AJobThatNeverComesBackIsReportedAfterTheTimeLimit) {
    m_limits.overall = std::chrono::milliseconds(100);
    AddJob("a", "never");
    AddJob("b", "complete");
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_THAT(Statuses(), ElementsAre("a: not returned: the driver did not hand it back", "b: delivered"));
}

TEST_F(DeliveryTest, AJobHandedBackTwiceCountsOnceAndIsWarnedAbout) {
    AddJob("a", "twice");
    Run();
    EXPECT_THAT(Statuses(), ElementsAre("a: delivered"));
    EXPECT_THAT(m_stream.str(),
                HasSubstr("warning kvhost the driver handed back a_1 although it had ended before"));
}

TEST_F(DeliveryTest, AJobHandedBackForDeletionFailed) {
    AddJob("a", "deletion");
    Run();
    EXPECT_THAT(Statuses(), ElementsAre("a: failed: the driver handed it back to be deleted"));
}

TEST_F(DeliveryTest, AJobHandedBackWithAnUnknownStatusFailed) {
    AddJob("a", "status 5");
    Run();
    EXPECT_THAT(Statuses(), ElementsAre("a: failed: the driver handed it back with the status 5"));
}

TEST_F(DeliveryTest, TheReportsOfTheDriverAreLogged) {
    AddJob("a", "complete");
    Run();
    EXPECT_THAT(m_stream.str(), HasSubstr("info kvhost report on a_1: status 3\n"));
}

TEST_F(DeliveryTest, ADriverThatRefusesItsSettingsIsReleasedWithoutCleanup) {
    Set("KVFAKE_CONFIGURE", "refuse");
    AddJob("a", "complete");
    EXPECT_EQ(Run(), Delivery::End::NotStarted);
    EXPECT_EQ(m_strError, "the driver refused its settings");
    EXPECT_THAT(Calls(), ElementsAre("GetDriverInstance", "Configure", "ReleaseDriverInstance"));
    EXPECT_THAT(Statuses(), ElementsAre("a: not sent: the command stopped before this was handed over"));
}

TEST_F(DeliveryTest, ADriverThatCannotSetItselfUpIsReleased) {
    Set("KVFAKE_SETUP", "refuse");
    AddJob("a", "complete");
    EXPECT_EQ(Run(), Delivery::End::NotStarted);
    EXPECT_EQ(m_strError, "the driver could not set itself up");
    EXPECT_THAT(Calls(), ElementsAre("GetDriverInstance", "Configure", "Setup", "ReleaseDriverInstance"));
}

TEST_F(DeliveryTest, ATickThatThrowsEndsTheRunWithACleanup) {
    Set("KVFAKE_TICK", "throw when busy");
    AddJob("a", "complete");
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_EQ(m_strError, "the driver threw out of PeriodicEvent: clock is broken");
    EXPECT_THAT(Calls(), ElementsAre("GetDriverInstance", "Configure", "Setup", "SendAMessage a_1", "Cleanup",
                                     "ReleaseDriverInstance"));
    EXPECT_THAT(Statuses(), ElementsAre("a: not returned: the driver did not hand it back"));
}

TEST_F(DeliveryTest, TheFirstThingThatBreaksIsTheOneThatIsTold) {
    Set("KVFAKE_TICK", "throw when busy");
    Set("KVFAKE_CLEANUP", "throw");
    AddJob("a", "complete");
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_EQ(m_strError, "the driver threw out of PeriodicEvent: clock is broken");
}

TEST_F(DeliveryTest, ATickThatReportsFailureIsWarnedAboutOnce) {
    Set("KVFAKE_TICK", "false");
    m_limits.overall = std::chrono::milliseconds(100);
    AddJob("a", "never");
    Run();
    const std::string warning = "warning kvhost the driver reports that its periodic event failed\n";
    const std::string log = m_stream.str();
    const auto first = log.find(warning);
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(log.find(warning, first + 1), std::string::npos);
}

TEST_F(DeliveryTest, ACleanupThatThrowsIsAnErrorAfterTheOutcomes) {
    Set("KVFAKE_CLEANUP", "throw");
    AddJob("a", "complete");
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_EQ(m_strError, "the driver threw out of Cleanup: mop is broken");
    EXPECT_THAT(Statuses(), ElementsAre("a: delivered"));
}

/// Asks for a stop as soon as the driver has something.
class DeliveryStopTest : public DeliveryTest {
protected:
    void OnChange(const Tally& tally) override {
        if (tally.Of(OutcomeStatus::UnderWay) > 0) {
            EXPECT_TRUE(kvtest::Eventually([this] { return !CallsThatStartWith("PeriodicEvent").empty(); }));
            for (; m_nStops > 0; --m_nStops) {
                ++m_nStopRequests;
            }
        }
    }

    int m_nStops = 1;
};

TEST_F(DeliveryStopTest, AStopLeavesTheLimitToWhatIsUnderWay) {
    m_limits.afterStop = std::chrono::milliseconds(100);
    AddJob("a", "never");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_THAT(Statuses(), ElementsAre("a: not returned: the driver did not hand it back"));
    EXPECT_THAT(Calls(), testing::Contains("Cleanup"));
}

TEST_F(DeliveryStopTest, ASecondStopEndsTheWait) {
    m_nStops = 2;
    m_limits.afterStop = std::chrono::seconds(3600);
    AddJob("a", "never");
    EXPECT_EQ(Run(), Delivery::End::Finished);
    EXPECT_THAT(Statuses(), ElementsAre("a: not returned: the driver did not hand it back"));
}

}  // namespace
}  // namespace kvhost
