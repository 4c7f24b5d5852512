#include "RetryDecision.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace kvhost {
namespace {

constexpr StoreTime kSubmitted{Milliseconds(1772357400000)};  // 2026-03-01T09:30:00Z
constexpr double kMiddle = 0.5;                               // a jitter of nothing

RetryPolicy PlainPolicy() {
    RetryPolicy policy;
    policy.first = Milliseconds(1000);
    policy.longest = Milliseconds(60000);
    policy.lifetime = Milliseconds(86400000);
    return policy;
}

StoredJob JobAfter(int attempts) {
    StoredJob job;
    job.submitted = kSubmitted;
    job.attempts = attempts;
    return job;
}

Milliseconds WaitAfter(const RetryPolicy& policy, int attempts, double chance = kMiddle) {
    const RetryDecision decision =
        DecideRetry(policy, JobAfter(attempts), FailureClass::Passing, kSubmitted, chance);
    return decision.due ? *decision.due - kSubmitted : Milliseconds(-1);
}

TEST(RetryDecisionTest, TheWaitGrowsByItsFactorUpToTheLongest) {
    EXPECT_EQ(WaitAfter(PlainPolicy(), 1), Milliseconds(1000));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 2), Milliseconds(2000));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 3), Milliseconds(4000));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 6), Milliseconds(32000));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 7), Milliseconds(60000));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 8), Milliseconds(60000));
}

TEST(RetryDecisionTest, AFactorOfOneKeepsTheWait) {
    RetryPolicy policy = PlainPolicy();
    policy.factor = 1;
    EXPECT_EQ(WaitAfter(policy, 1), Milliseconds(1000));
    EXPECT_EQ(WaitAfter(policy, 1000000), Milliseconds(1000));
}

TEST(RetryDecisionTest, AnyNumberOfAttemptsLeadsToTheLongestWait) {
    RetryPolicy policy = PlainPolicy();
    policy.factor = 100;
    for (const int attempts : {5, 1000, 1000000, std::numeric_limits<int>::max()}) {
        EXPECT_EQ(WaitAfter(policy, attempts), Milliseconds(60000)) << attempts;
    }
    EXPECT_EQ(WaitAfter(policy, 0), Milliseconds(1000));
    EXPECT_EQ(WaitAfter(policy, std::numeric_limits<int>::min()), Milliseconds(1000));
}

TEST(RetryDecisionTest, TheChanceMovesTheWaitWithinTheJitter) {
    EXPECT_EQ(WaitAfter(PlainPolicy(), 1, 0), Milliseconds(800));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 1, 0.25), Milliseconds(900));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 1, 1), Milliseconds(1200));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 9, 1), Milliseconds(72000));
}

TEST(RetryDecisionTest, AChanceOutsideItsBoundsCountsAsTheBound) {
    EXPECT_EQ(WaitAfter(PlainPolicy(), 1, -5), Milliseconds(800));
    EXPECT_EQ(WaitAfter(PlainPolicy(), 1, 5), Milliseconds(1200));
}

TEST(RetryDecisionTest, TheNextAttemptIsNeverAtOnce) {
    RetryPolicy policy = PlainPolicy();
    policy.jitter = 1;
    EXPECT_EQ(WaitAfter(policy, 1, 0), Milliseconds(1));
}

TEST(RetryDecisionTest, LastingTroubleEndsTheJob) {
    const RetryDecision decision = DecideRetry(PlainPolicy(), JobAfter(1), FailureClass::Lasting, kSubmitted,
                                               kMiddle, "the server's code 5.1.1");
    EXPECT_FALSE(decision.due);
    EXPECT_EQ(decision.words,
              "failed for good (attempt 1 failed, lasting trouble: the server's code 5.1.1); a further "
              "attempt would "
              "fail likewise");
}

TEST(RetryDecisionTest, TheWordsTellWaitAttemptTroubleAndEnd) {
    RetryPolicy policy = PlainPolicy();
    policy.first = Milliseconds(64000);
    policy.longest = Milliseconds(64000);
    EXPECT_EQ(DecideRetry(policy, JobAfter(3), FailureClass::Passing, kSubmitted, kMiddle,
                          "the server's code 4.2.2")
                  .words,
              "tried again in 1 min 4 s (attempt 3 failed, passing trouble: the server's code 4.2.2); given "
              "up after "
              "2026-03-02T09:30:00.000Z");
    EXPECT_EQ(DecideRetry(policy, JobAfter(3), FailureClass::Transport, kSubmitted, kMiddle).words,
              "tried again in 1 min 4 s (attempt 3 failed, transport trouble); given up after "
              "2026-03-02T09:30:00.000Z");
}

TEST(RetryDecisionTest, WithoutLifetimeAJobIsTriedForEver) {
    RetryPolicy policy = PlainPolicy();
    policy.lifetime = Milliseconds(0);
    const RetryDecision decision = DecideRetry(policy, JobAfter(2), FailureClass::Transport,
                                               kSubmitted + Milliseconds(1000000000000), kMiddle);
    EXPECT_TRUE(decision.due);
    EXPECT_EQ(decision.words, "tried again in 2 s (attempt 2 failed, transport trouble); tried for ever");
}

TEST(RetryDecisionTest, AnAttemptBeginsBeforeTheEndOfTheLifetimeOrNotAtAll) {
    RetryPolicy policy = PlainPolicy();
    policy.lifetime = Milliseconds(1001);
    EXPECT_EQ(WaitAfter(policy, 1), Milliseconds(1000));
    policy.lifetime = Milliseconds(1000);
    const RetryDecision decision =
        DecideRetry(policy, JobAfter(1), FailureClass::Passing, kSubmitted, kMiddle);
    EXPECT_FALSE(decision.due);
    EXPECT_EQ(decision.words,
              "failed for good (attempt 1 failed, passing trouble); the next one would begin at "
              "2026-03-01T09:30:01.000Z, not before the end of its lifetime 2026-03-01T09:30:01.000Z");
}

TEST(RetryDecisionTest, ADeadlineReplacesTheLifetime) {
    RetryPolicy policy = PlainPolicy();
    policy.lifetime = Milliseconds(1);
    StoredJob job = JobAfter(1);
    job.deadline = kSubmitted + Milliseconds(1001);
    EXPECT_TRUE(DecideRetry(policy, job, FailureClass::Passing, kSubmitted, kMiddle).due);
    policy.lifetime = Milliseconds(0);
    job.deadline = kSubmitted + Milliseconds(1000);
    const RetryDecision decision = DecideRetry(policy, job, FailureClass::Passing, kSubmitted, kMiddle);
    EXPECT_FALSE(decision.due);
    EXPECT_EQ(decision.words,
              "failed for good (attempt 1 failed, passing trouble); the next one would begin at "
              "2026-03-01T09:30:01.000Z, not before the deadline 2026-03-01T09:30:01.000Z");
}

TEST(RetryDecisionTest, TheCarriersNumberOfAttemptsEndsTheJob) {
    RetryPolicy policy = PlainPolicy();
    policy.attempts = 3;
    EXPECT_NE(WaitAfter(policy, 2), Milliseconds(-1));
    EXPECT_EQ(WaitAfter(policy, 3), Milliseconds(-1));
    EXPECT_EQ(WaitAfter(policy, 4), Milliseconds(-1));
    EXPECT_EQ(DecideRetry(policy, JobAfter(3), FailureClass::Transport, kSubmitted, kMiddle).words,
              "failed for good (attempt 3 failed, transport trouble); the carrier allows 3 in all");
}

TEST(RetryDecisionTest, UnclearTroubleHasALimitOfItsOwn) {
    RetryPolicy policy = PlainPolicy();
    policy.unclearAttempts = 2;
    const auto decide = [&policy](int attempts, FailureClass failure) {
        return DecideRetry(policy, JobAfter(attempts), failure, kSubmitted, kMiddle);
    };
    EXPECT_TRUE(decide(1, FailureClass::Unclear).due);
    EXPECT_FALSE(decide(2, FailureClass::Unclear).due);
    EXPECT_TRUE(decide(2, FailureClass::Passing).due);
    EXPECT_TRUE(decide(2, FailureClass::Transport).due);
    EXPECT_EQ(decide(2, FailureClass::Unclear).words,
              "failed for good (attempt 2 failed, unclear trouble); the carrier allows 2 when the trouble is "
              "unclear");
    policy.unclearAttempts = 0;
    EXPECT_TRUE(decide(1000, FailureClass::Unclear).due);
}

/// Policies and jobs at random, the same ones in each run.
class RetryDecisionProperty : public testing::Test {
protected:
    std::int64_t Number(std::int64_t least, std::int64_t most) {
        return std::uniform_int_distribution<std::int64_t>(least, most)(m_random);
    }
    double Share() { return std::uniform_real_distribution<double>(0, 1)(m_random); }

    RetryPolicy AnyPolicy() {
        RetryPolicy policy;
        policy.first = Milliseconds(Number(1, 86400000));
        policy.longest = policy.first + Milliseconds(Number(0, 31536000000));
        policy.factor = 1 + 99 * Share() * Share();
        policy.jitter = Share();
        policy.lifetime = Milliseconds(Number(0, 3) == 0 ? 0 : Number(1, 31536000000));
        policy.attempts = static_cast<int>(Number(0, 20));
        policy.unclearAttempts = static_cast<int>(Number(0, 20));
        return policy;
    }
    StoredJob AnyJob() {
        StoredJob job = JobAfter(static_cast<int>(Number(0, 1) == 0 ? Number(1, 20) : Number(1, 2000000000)));
        if (Number(0, 1) == 0) {
            job.deadline = kSubmitted + Milliseconds(Number(0, 31536000000));
        }
        return job;
    }

private:
    std::mt19937_64 m_random{20260301};
};

TEST_F(RetryDecisionProperty, WhatIsDueLiesWithinTheJitterAndBeforeTheEnd) {
    int scheduled = 0;
    for (int i = 0; i < 20000; ++i) {
        const RetryPolicy policy = AnyPolicy();
        const StoredJob job = AnyJob();
        const StoreTime now = kSubmitted + Milliseconds(Number(0, 86400000));
        const auto failure = static_cast<FailureClass>(Number(0, 3));
        const RetryDecision decision = DecideRetry(policy, job, failure, now, Share());
        EXPECT_FALSE(decision.words.empty());
        if (!decision.due) {
            continue;
        }
        ++scheduled;
        const double exact =
            std::min(static_cast<double>(policy.longest.count()),
                     static_cast<double>(policy.first.count()) * std::pow(policy.factor, job.attempts - 1));
        const auto wait = static_cast<double>((*decision.due - now).count());
        EXPECT_GE(wait, std::max(1.0, exact * (1 - policy.jitter) - 1));
        EXPECT_LE(wait, std::max(1.0, exact * (1 + policy.jitter) + 1));
        EXPECT_NE(failure, FailureClass::Lasting);
        EXPECT_TRUE(policy.attempts == 0 || job.attempts < policy.attempts);
        EXPECT_TRUE(!job.deadline || *decision.due < *job.deadline);
        EXPECT_TRUE(job.deadline || policy.lifetime.count() == 0 ||
                    *decision.due < job.submitted + policy.lifetime);
    }
    EXPECT_GT(scheduled, 1000);
}

TEST_F(RetryDecisionProperty, WithoutJitterTheWaitNeverShrinks) {
    for (int i = 0; i < 500; ++i) {
        RetryPolicy policy = AnyPolicy();
        policy.jitter = 0;
        policy.lifetime = Milliseconds(0);
        policy.attempts = 0;
        Milliseconds before = policy.first;
        for (int attempts = 1; attempts < 40; ++attempts) {
            const Milliseconds wait = WaitAfter(policy, attempts, Share());
            EXPECT_GE(wait, before);
            EXPECT_LE(wait, policy.longest);
            before = wait;
        }
    }
}

TEST_F(RetryDecisionProperty, WhatIsNotScheduledHasAReasonForIt) {
    for (int i = 0; i < 20000; ++i) {
        RetryPolicy policy = AnyPolicy();
        policy.lifetime = Milliseconds(0);
        StoredJob job = AnyJob();
        job.deadline.reset();
        const auto failure = static_cast<FailureClass>(Number(0, 3));
        const bool isUsedUp = (policy.attempts != 0 && job.attempts >= policy.attempts) ||
                              (failure == FailureClass::Unclear && policy.unclearAttempts != 0 &&
                               job.attempts >= policy.unclearAttempts);
        const RetryDecision decision = DecideRetry(policy, job, failure, kSubmitted, Share());
        EXPECT_EQ(!decision.due, isUsedUp || failure == FailureClass::Lasting) << decision.words;
    }
}

}  // namespace
}  // namespace kvhost
