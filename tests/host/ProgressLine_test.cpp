#include "ProgressLine.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kvhost {
namespace {

Tally SomeTally() {
    Tally tally;
    tally.Of(OutcomeStatus::UnderWay) = 2;
    tally.Of(OutcomeStatus::Delivered) = 3;
    tally.Of(OutcomeStatus::Failed) = 1;
    return tally;
}

TEST(ProgressLineTest, TheTextCountsWhatIsSettled) {
    EXPECT_EQ(ProgressText(SomeTally()), "4 of 6 done: 2 under way, 3 delivered, 1 failed");
}

TEST(ProgressLineTest, EveryLineReplacesTheOneBefore) {
    std::ostringstream stream;
    {
        ProgressLine progress(stream, true);
        progress.Show(Tally());
        progress.Show(SomeTally());
    }
    EXPECT_EQ(stream.str(),
              "\r\033[K0 of 0 done: no jobs\r\033[K4 of 6 done: 2 under way, 3 delivered, 1 failed\r\033[K");
}

TEST(ProgressLineTest, ALineThatIsNotEnabledWritesNothing) {
    std::ostringstream stream;
    {
        ProgressLine progress(stream, false);
        progress.Show(SomeTally());
    }
    EXPECT_EQ(stream.str(), "");
}

TEST(ProgressLineTest, ALineIsWipedOnce) {
    std::ostringstream stream;
    {
        ProgressLine progress(stream, true);
        progress.Show(Tally());
        progress.Wipe();
    }
    EXPECT_EQ(stream.str(), "\r\033[K0 of 0 done: no jobs\r\033[K");
}

}  // namespace
}  // namespace kvhost
