#include <gtest/gtest.h>

#include <string>

#include "driver/LogContractHostThread.h"
#include "driver/LogContractScenario.h"
#include "driver/LogContractWorker.h"

// Hosts read the log by machine: which lines there are, with which severity, in which order and from which
// source file, is as fixed as the operations are. One scenario, every line of it.

namespace {

using kvtest::AreTheLinesOf;
using kvtest::LinesOfListing;
using kvtest::LinesOfSeverity;
using kvtest::LogContractScenario;
using kvtest::NameOf;
using kvtest::Severity;
using kvtest::Strings;

class LogContractTest : public testing::Test {
protected:
    LogContractTest() { m_scenario.run(); }

    LogContractScenario m_scenario;
};

TEST_F(LogContractTest, TheHostThreadWritesTheseLinesInThisOrder) {
    EXPECT_TRUE(AreTheLinesOf(LinesOfListing(kvtest::HostThreadListing), m_scenario.hostThreadLines()));
}

TEST_F(LogContractTest, TheWorkerWritesTheseLinesInThisOrder) {
    EXPECT_TRUE(AreTheLinesOf(LinesOfListing(kvtest::WorkerListing), m_scenario.workerLines()));
}

/// The same lines severity by severity: what a host sees that keeps only some of them.
class LogContractSeverityTest : public LogContractTest, public testing::WithParamInterface<Severity> {};

TEST_P(LogContractSeverityTest, TheLinesOfOneSeverityAreTheseOnBothThreads) {
    const auto chosen = [](const Strings& lines) { return LinesOfSeverity(lines, GetParam()); };
    EXPECT_TRUE(AreTheLinesOf(chosen(LinesOfListing(kvtest::HostThreadListing)),
                              chosen(m_scenario.hostThreadLines())));
    EXPECT_TRUE(
        AreTheLinesOf(chosen(LinesOfListing(kvtest::WorkerListing)), chosen(m_scenario.workerLines())));
}

INSTANTIATE_TEST_SUITE_P(Severities, LogContractSeverityTest,
                         testing::Values(Severity::Trace, Severity::Debug, Severity::Info, Severity::Warning,
                                         Severity::Error),
                         [](const auto& of) { return NameOf(of.param); });

}  // namespace
