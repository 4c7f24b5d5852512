#include "CarrierTrials.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

TEST(CarrierTrialsTest, ACarrierThatNothingIsKnownOfIsTriedWithAFew) {
    EXPECT_EQ(CarrierTrials().Size("a"), CarrierTrials::kAtFirst);
}

TEST(CarrierTrialsTest, OneDeliveryEndsTheTrialOfItsCarrierAlone) {
    CarrierTrials trials;
    trials.Begin(1);
    trials.NoteBack(1, "a", false);
    EXPECT_EQ(trials.Size("a"), CarrierTrials::kAtFirst);
    trials.NoteBack(1, "a", true);
    EXPECT_EQ(trials.Size("a"), std::nullopt);
    EXPECT_EQ(trials.Size("b"), CarrierTrials::kAtFirst);
    trials.NoteBack(1, "a", false);
    trials.End(1, "a");
    EXPECT_EQ(trials.Size("a"), std::nullopt);
}

TEST(CarrierTrialsTest, ATrialWithoutADeliveryBringsEverythingAtOnce) {
    CarrierTrials trials;
    trials.Begin(1);
    trials.NoteBack(1, "a", false);
    trials.End(1, "a");
    EXPECT_EQ(trials.Size("a"), CarrierTrials::kEverything);
    trials.Begin(2);
    trials.NoteBack(2, "a", true);
    EXPECT_EQ(trials.Size("a"), std::nullopt);
    trials.End(2, "a");
    EXPECT_EQ(trials.Size("a"), std::nullopt);
}

TEST(CarrierTrialsTest, ACarrierThatHasDeliveredIsTriedAgainBeforeItGetsEverything) {
    CarrierTrials trials;
    trials.Begin(1);
    trials.NoteBack(1, "a", true);
    trials.End(1, "a");
    trials.Begin(2);
    trials.NoteBack(2, "a", false);
    trials.End(2, "a");
    EXPECT_EQ(trials.Size("a"), CarrierTrials::kAtFirst);
    trials.Begin(3);
    trials.End(3, "a");
    EXPECT_EQ(trials.Size("a"), CarrierTrials::kEverything);
}

}  // namespace
}  // namespace kvhost
