#include "CarrierHealth.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

using Kind = ProbeResult::Kind;
using Permit = CarrierHealth::Permit;

class CarrierHealthTest : public testing::Test {
protected:
    void Later(std::chrono::seconds by) { m_now += by; }
    void Probe(Kind kind) {
        m_health.ProbeBegun();
        m_health.ProbeEnded({kind, kind == Kind::Answers ? "" : "what was found"}, m_now);
    }
    /// Puts the carrier to work and lets the job of it fail for want of a connection.
    void FailOnce() {
        m_health.HandedOver();
        m_health.Failed(m_now, "no connection", m_now);
        m_health.SliceBack();
    }

    CarrierHealth m_health;
    CarrierHealth::Time m_now = CarrierHealth::Time() + std::chrono::hours(1);
};

TEST_F(CarrierHealthTest, ACarrierOfWhichNothingIsKnownIsProbedBeforeItGetsAJob) {
    EXPECT_EQ(m_health.Ask(m_now), Permit::None);
    EXPECT_TRUE(m_health.WantsProbe(true, m_now));
    EXPECT_FALSE(m_health.WantsProbe(false, m_now)) << "without jobs nobody needs to know";
    EXPECT_FALSE(m_health.IsInTrouble());
}

TEST_F(CarrierHealthTest, ACarrierThatAnswersGetsAllItsJobs) {
    Probe(Kind::Answers);
    EXPECT_EQ(m_health.Ask(m_now), Permit::All);
    EXPECT_FALSE(m_health.WantsProbe(true, m_now));
}

TEST_F(CarrierHealthTest, ASignOfLifeCountsForAWhile) {
    Probe(Kind::Answers);
    Later(std::chrono::seconds(29));
    EXPECT_EQ(m_health.Ask(m_now), Permit::All);
    m_health.Reached(m_now, m_now);
    Later(std::chrono::seconds(29));
    EXPECT_EQ(m_health.Ask(m_now), Permit::All);
    Later(std::chrono::seconds(1));
    EXPECT_EQ(m_health.Ask(m_now), Permit::None);
    EXPECT_TRUE(m_health.WantsProbe(true, m_now));
}

TEST_F(CarrierHealthTest, ASilentCarrierGetsNothingAndIsProbedAtGrowingIntervals) {
    for (const int pause : {1, 2, 4, 8, 16, 32, 60, 60}) {
        Probe(Kind::Silent);
        EXPECT_TRUE(m_health.IsInTrouble());
        EXPECT_EQ(m_health.Trouble(), "what was found");
        EXPECT_EQ(m_health.Ask(m_now), Permit::None);
        EXPECT_FALSE(m_health.WantsProbe(true, m_now + std::chrono::milliseconds(pause * 1000 - 1)));
        Later(std::chrono::seconds(pause));
        EXPECT_EQ(m_health.NextProbe(), m_now);
        EXPECT_TRUE(m_health.WantsProbe(false, m_now)) << "in trouble it is probed without jobs too";
    }
}

TEST_F(CarrierHealthTest, ACarrierThatMayHaveBeenMendedIsProbedAtOnce) {
    for (int i = 0; i < 5; ++i) {
        Probe(Kind::Silent);
    }
    EXPECT_FALSE(m_health.WantsProbe(true, m_now));
    m_health.ProbeSoon();
    EXPECT_TRUE(m_health.IsInTrouble());
    EXPECT_EQ(m_health.Ask(m_now), Permit::None);
    EXPECT_TRUE(m_health.WantsProbe(false, m_now));
}

TEST_F(CarrierHealthTest, OneProbeIsMadeAtATime) {
    m_health.ProbeBegun();
    EXPECT_FALSE(m_health.WantsProbe(true, m_now));
}

TEST_F(CarrierHealthTest, ACarrierThatRefusesIsTriedWithOneJob) {
    Probe(Kind::Refuses);
    EXPECT_TRUE(m_health.IsInTrouble());
    EXPECT_EQ(m_health.Ask(m_now), Permit::One);
    m_health.HandedOver();
    EXPECT_EQ(m_health.Ask(m_now), Permit::None) << "the one job is under way";
    m_health.Failed(m_now, "no connection", m_now);
    m_health.SliceBack();
    EXPECT_EQ(m_health.Ask(m_now), Permit::None);
}

TEST_F(CarrierHealthTest, AfterAFailureForWantOfAConnectionNothingGoesBeforeAProbeSucceeds) {
    Probe(Kind::Answers);
    FailOnce();
    EXPECT_TRUE(m_health.IsInTrouble());
    EXPECT_EQ(m_health.Trouble(), "no connection");
    EXPECT_EQ(m_health.Ask(m_now), Permit::None);
    EXPECT_TRUE(m_health.WantsProbe(true, m_now)) << "the first probe comes at once";
    Probe(Kind::Refuses);
    EXPECT_EQ(m_health.Ask(m_now), Permit::None);
    Later(std::chrono::seconds(2));
    Probe(Kind::Answers);
    EXPECT_EQ(m_health.Ask(m_now), Permit::One);
    m_health.HandedOver();
    m_health.Reached(m_now, m_now);
    EXPECT_EQ(m_health.Ask(m_now), Permit::All);
    EXPECT_FALSE(m_health.IsInTrouble());
}

TEST_F(CarrierHealthTest, ACarrierThatAnswersAndTakesNoJobIsTriedWithGrowingPauses) {
    Probe(Kind::Answers);
    FailOnce();
    for (const int pause : {1, 2, 4}) {
        Probe(Kind::Answers);
        ASSERT_EQ(m_health.Ask(m_now), Permit::One);
        FailOnce();
        EXPECT_FALSE(m_health.WantsProbe(true, m_now));
        Later(std::chrono::seconds(pause));
        EXPECT_TRUE(m_health.WantsProbe(true, m_now));
    }
}

TEST_F(CarrierHealthTest, WhatWasHandedOverBeforeTheTroubleChangesNothing) {
    Probe(Kind::Answers);
    const CarrierHealth::Time before = m_now;
    Later(std::chrono::seconds(1));
    FailOnce();
    m_health.Failed(before, "another", m_now);
    EXPECT_TRUE(m_health.WantsProbe(true, m_now)) << "the same failure is counted once";
    m_health.Reached(before, m_now);
    EXPECT_TRUE(m_health.IsInTrouble());
}

}  // namespace
}  // namespace kvhost
