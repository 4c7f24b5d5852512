#include <gmock/gmock.h>

#include "CommandFixture.h"

namespace kvhosttest {
namespace {

using testing::ContainsRegex;

using FsckCommandTest = CommandTest;

TEST_F(FsckCommandTest, ASoundStoreIsToldWithItsFigures) {
    SubmitFailed("a", "no");
    Submit(Mail("b"));
    EXPECT_EQ(Run("fsck"), 0);
    EXPECT_EQ(Output(), "sound: 2 jobs, 1 attempt, 0 attachments\n");
    EXPECT_EQ(Run("fsck", {"--json"}), 0);
    EXPECT_EQ(Json(), nlohmann::json::parse(R"({"sound": true, "jobs": 2, "attempts": 1, "attachments": 0,
                                                "faults": []})"));
}

TEST_F(FsckCommandTest, EveryFaultIsToldWithStatusOne) {
    Submit(Mail("a"));
    m_store.Connection().exec("UPDATE job SET state = 1");
    EXPECT_EQ(Run("fsck"), 1);
    EXPECT_THAT(Output(), ContainsRegex("^job a [^\n]*\n(.|\n)*NOT SOUND, [0-9]* faults?: 1 job, 0 attempts, "
                                        "0 attachments\n$"));
    EXPECT_EQ(Run("fsck", {"--json"}), 1);
    EXPECT_EQ(Json()["sound"], false);
    EXPECT_FALSE(Json()["faults"].empty());
}

TEST_F(FsckCommandTest, WithoutAStoreTheStatusIsThree) {
    const kvtest::TempDir empty;
    EXPECT_EQ(RunProgram({KV_BINARY_DIR "/kvhost", "fsck", "--store", empty.path()}), 3);
}

}  // namespace
}  // namespace kvhosttest
