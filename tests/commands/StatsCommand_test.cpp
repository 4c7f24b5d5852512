#include <gmock/gmock.h>

#include <filesystem>

#include "AttachmentStore.h"
#include "CommandFixture.h"
#include "StoreLock.h"

namespace kvhosttest {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;

using StatsCommandTest = CommandTest;

TEST_F(StatsCommandTest, JobsAreCountedByCarrierAndState) {
    Submit(Mail("a"));
    SubmitFailed("b", "no");
    Submit(Mail("c", "west"));
    EXPECT_EQ(Run("stats"), 0);
    EXPECT_THAT(Output(), ContainsRegex("^Store   " + m_dir.path() +
                                        ": [0-9.]+ kB of jobs, 0 B of attachments\n"
                                        "Host    not running\n"
                                        "Oldest  [0-9]+ d .* old, submitted at 2023-11-14 22:13:20\n"));
    EXPECT_THAT(Output(),
                EndsWith("\n\n"
                         "CARRIER  QUEUED  HANDED OVER  DELIVERED  FAILED  IN DOUBT  HELD  CANCELLED\n"
                         "east          1            0          0       1         0     0          0\n"
                         "west          1            0          0       0         0     0          0\n"
                         "(all)         2            0          0       1         0     0          0\n"));
}

TEST_F(StatsCommandTest, ARunningHostIsSeen) {
    const kvhost::StoreLock lock(m_dir.path());
    EXPECT_EQ(Run("stats"), 0);
    EXPECT_THAT(Output(), HasSubstr("\nHost    running\n"));
    EXPECT_THAT(Output(), HasSubstr("\nOldest  nothing is queued\n"));
}

TEST_F(StatsCommandTest, JsonHasEveryState) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("stats", {"--json"}), 0);
    nlohmann::json document = Json();
    EXPECT_EQ(document["store"], m_dir.path());
    EXPECT_EQ(document["host_running"], false);
    EXPECT_EQ(document["oldest_queued"], "2023-11-14T22:13:20.000Z");
    EXPECT_GT(document["oldest_queued_age_ms"], 86400000);
    EXPECT_GT(document["database_bytes"], 0);
    const auto counts = nlohmann::json::parse(R"({"queued": 1, "handed over": 0, "delivered": 0, "failed": 0,
        "in doubt": 0, "held": 0, "cancelled": 0})");
    EXPECT_EQ(document["states"], counts);
    EXPECT_EQ(document["carriers"], (nlohmann::json{{"east", counts}}));
}

TEST_F(StatsCommandTest, AContentUnderTwoNamesIsMeasuredOnce) {
    kvhost::AttachmentStore attachments(m_dir.path(), 1000);
    attachments.PathOf(attachments.AddContent("one.txt", "hello"));
    attachments.PathOf(attachments.AddContent("content", "hello"));
    EXPECT_EQ(Run("stats", {"--json"}), 0);
    EXPECT_EQ(Json()["attachment_bytes"], 5);
}

}  // namespace
}  // namespace kvhosttest
