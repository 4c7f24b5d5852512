#include <gmock/gmock.h>

#include "CommandFixture.h"
#include "TerminalProcess.h"
#include "TopFrame.h"

namespace kvhosttest {
namespace {

using kvhost::JobState;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kEnterScreen = "\x1b[?1049h";
constexpr const char* kLeaveScreen = "\x1b[?1049l";

class TopCommandTest : public CommandTest {
protected:
    std::vector<std::string> Top() const {
        return {KV_BINARY_DIR "/kvhost", "top", "--interval", "100ms", "--store", m_dir.path()};
    }
};

TEST_F(TopCommandTest, OnePictureWhereStandardOutputIsNoTerminal) {
    Submit(Mail("a"));
    Submit(Mail("b"));
    kvhost::JobOperations(m_store).Hold("b", Now());
    EXPECT_EQ(Run("top"), 0);
    EXPECT_THAT(Output(), ContainsRegex("^kvhost top   [0-9-]* [0-9:]*   " + m_dir.path() +
                                        "   host NOT running\n"
                                        "\n"
                                        "Oldest queued     [^\n]* old, submitted at 2023-11-14 22:13:20\n"
                                        "Each second       at the next look\n"
                                        "Needs a decision  0 in doubt, 1 held: [^\n]*\n"
                                        "\n"
                                        "CARRIER  QUEUED  HANDED OVER  IN DOUBT  HELD  DELIVERED  FAILED  "
                                        "DELIVERED/S  FAILED/S\n"
                                        "east          1            0         0     1          0       0  "
                                        "          -         -\n$"));
}

TEST_F(TopCommandTest, JsonHasTheFiguresOfStats) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("top", {"--json", "--once"}), 0);
    EXPECT_EQ(Json()["states"]["queued"], 1);
}

TEST_F(TopCommandTest, TheViewFollowsTheStoreAndTheKeyQEndsIt) {
    Submit(Mail("a"));
    TerminalProcess top(Top());
    ASSERT_TRUE(top.WaitFor("\r\neast          1 "));
    EXPECT_THAT(top.Output(), StartsWith(kEnterScreen));
    EXPECT_FALSE(top.IsOrdinary());
    Submit(Mail("b"));
    EXPECT_TRUE(top.WaitFor("\r\neast          2 "));
    top.Type("xq");
    EXPECT_EQ(top.Wait(), 0);
    EXPECT_THAT(top.Output(), EndsWith(kLeaveScreen));
    EXPECT_TRUE(top.IsOrdinary());
}

TEST_F(TopCommandTest, CtrlCAndSignalsEndTheViewAndRestoreTheTerminal) {
    for (const int number : {0, SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        TerminalProcess top(Top());
        ASSERT_TRUE(top.WaitFor("q ends"));
        if (number == 0) {
            top.Type("\x03");
        } else {
            top.Signal(number);
        }
        EXPECT_EQ(top.Wait(), 0) << number;
        EXPECT_THAT(top.Output(), EndsWith(kLeaveScreen)) << number;
        EXPECT_TRUE(top.IsOrdinary()) << number;
    }
}

TEST_F(TopCommandTest, AStoreThatBreaksWhileItIsWatchedRestoresTheTerminal) {
    TerminalProcess top(Top());
    ASSERT_TRUE(top.WaitFor("q ends"));
    m_store.Connection().exec("DROP TABLE tally");
    EXPECT_EQ(top.Wait(), 3);
    EXPECT_THAT(top.Output(), ContainsRegex("\x1b\\[\\?1049lkvhost: the job store: [^\n]*tally"));
    EXPECT_TRUE(top.IsOrdinary());
}

TEST_F(TopCommandTest, OnceDrawsNoScreenOnATerminalEither) {
    std::vector<std::string> command = Top();
    command.push_back("--once");
    TerminalProcess top(command);
    EXPECT_EQ(top.Wait(), 0);
    EXPECT_THAT(top.Output(), Not(HasSubstr("\x1b")));
    EXPECT_THAT(top.Output(), HasSubstr("no jobs"));
}

TEST_F(TopCommandTest, AnIntervalThatIsTooShortIsRefused) {
    EXPECT_EQ(Run("top", {"--interval", "1ms"}), 2);
    EXPECT_THAT(Error(), HasSubstr("expected a duration from 100ms to 1h"));
}

TEST(TopFrameTest, RatesAreThoseBetweenTwoLooks) {
    kvhost::StoreFigures before;
    before.carriers["east"] = {{JobState::Delivered, 10}, {JobState::Failed, 5}};
    kvhost::StoreFigures after;
    after.carriers["east"] = {{JobState::Delivered, 20}, {JobState::Failed, 2}};
    after.carriers["west"] = {{JobState::Failed, 1}};
    const auto rates = kvhost::RatesBetween(before, after, std::chrono::milliseconds(500));
    EXPECT_DOUBLE_EQ(rates.at("east").delivered, 20);
    EXPECT_DOUBLE_EQ(rates.at("east").failed, 0) << "purged jobs make no negative rate";
    EXPECT_DOUBLE_EQ(rates.at("west").failed, 2);
    EXPECT_THAT(kvhost::TopFrame(after, rates),
                HasSubstr("\nEach second       20.0 delivered, 2.0 failed\n"));
    EXPECT_THAT(kvhost::TopFrame(after, rates), HasSubstr("\nNeeds a decision  nothing\n"));
    EXPECT_TRUE(kvhost::RatesBetween(before, after, std::chrono::seconds(0)).empty());
}

}  // namespace
}  // namespace kvhosttest
