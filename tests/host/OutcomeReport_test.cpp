#include "OutcomeReport.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace kvhost {
namespace {

RunReport TwoOutcomes() {
    RunReport report;
    report.outcomes = {{"fire", "alarms", "ops@example.org", OutcomeStatus::Delivered, ""},
                       {"", "", "", OutcomeStatus::Refused, "jobs.jsonl:2: malformed JSON"}};
    ++report.tally.Of(OutcomeStatus::Delivered);
    ++report.tally.Of(OutcomeStatus::Refused);
    report.driver = "SMTP 1.0";
    report.exitStatus = 2;
    return report;
}

TEST(OutcomeReportTest, TheTableIsAlignedAndSummedUp) {
    EXPECT_EQ(FormatTable(TwoOutcomes()),
              "JOB   CARRIER  RECIPIENT        STATUS     REASON\n"
              "fire  alarms   ops@example.org  delivered\n"
              "-     -        -                refused    jobs.jsonl:2: malformed JSON\n"
              "\n"
              "1 delivered, 1 refused\n");
}

TEST(OutcomeReportTest, TheTableIsAlignedByCodePoints) {
    RunReport report;
    report.outcomes = {{"\u00fc\u00fc\u00fc\u00fc", "c", "a@b", OutcomeStatus::Failed, "no"},
                       {"abcd", "c", "a@b", OutcomeStatus::Failed, "no"}};
    EXPECT_EQ(FormatTable(report),
              "JOB   CARRIER  RECIPIENT  STATUS  REASON\n"
              "\u00fc\u00fc\u00fc\u00fc  c        a@b        failed  no\n"
              "abcd  c        a@b        failed  no\n"
              "\n"
              "no jobs\n");
}

TEST(OutcomeReportTest, NoJobsAreOneLine) {
    EXPECT_EQ(FormatTable(RunReport()), "no jobs\n");
}

TEST(OutcomeReportTest, TheJsonDocumentHasEverything) {
    RunReport report = TwoOutcomes();
    report.carrierProblems = {{"kvhost.toml", 4, "carrier.a.port", "expected an integer"}};
    report.error = "the driver threw";
    const auto document = nlohmann::json::parse(FormatJson(report));
    EXPECT_EQ(document, nlohmann::json::parse(R"({
        "driver": "SMTP 1.0",
        "outcomes": [
            {"job": "fire", "carrier": "alarms", "recipient": "ops@example.org", "status": "delivered", "reason": ""},
            {"job": "", "carrier": "", "recipient": "", "status": "refused", "reason": "jobs.jsonl:2: malformed JSON"}
        ],
        "refused_carriers": ["kvhost.toml:4: carrier.a.port: expected an integer"],
        "summary": {"delivered": 1, "failed": 0, "refused": 1, "rejected": 0, "not returned": 0, "not sent": 0},
        "error": "the driver threw",
        "exit_status": 2
    })"));
}

}  // namespace
}  // namespace kvhost
