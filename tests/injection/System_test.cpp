// The whole driver while calls of the system, of OpenSSL and of the allocator fail.
#include <gtest/gtest.h>

#include <cerrno>
#include <iostream>

#include "Sweep.h"

namespace {

using namespace kvinjection;
using kvfault::Call;
using kvfault::Kind;
using kvfault::Rule;

/// A call that fails once, at every place of the scenario.
struct SweepCase {
    const char* name;
    Call call;
    int error;
    unsigned long most;  ///< so many places in the suite
    Kind kind = Kind::Fail;
    unsigned long times = 1;
};

void PrintTo(const SweepCase& sweep, std::ostream* out) {
    *out << sweep.name;
}

class SystemFaultTest : public testing::TestWithParam<SweepCase> {};

TEST_P(SystemFaultTest, LosesNoJobAndRecovers) {
    const SweepCase& sweep = GetParam();
    const unsigned long calls = CallsInScenario(sweep.call);
    ASSERT_GT(calls, 0U) << "the scenario does not make this call";
    std::vector<Rule> rules;
    for (const unsigned long number : Sample(calls, sweep.most)) {
        rules.push_back({sweep.call, number, sweep.times, sweep.error, sweep.kind});
    }
    const std::vector<Report> reports = RunEach(rules);
    EXPECT_EQ(Problems(rules, reports), "");
    std::cout << Summary(sweep.name, calls, reports) << "\n";
}

INSTANTIATE_TEST_SUITE_P(
    EachCallOnce, SystemFaultTest,
    testing::Values(SweepCase{"socket", Call::Socket, EMFILE, 8}, SweepCase{"connect", Call::Connect, ECONNREFUSED, 8},
                    SweepCase{"send", Call::Send, ECONNRESET, 8}, SweepCase{"recv", Call::Recv, ECONNRESET, 8},
                    SweepCase{"new", Call::OperatorNew, ENOMEM, 100}, SweepCase{"malloc", Call::Malloc, ENOMEM, 100}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(InjectorTest, WithoutARuleEveryJobIsCompletedButTheRefusedOne) {
    const Report report = RunOnce({});
    EXPECT_TRUE(report.problems.empty()) << Problems({{}}, {report});
    EXPECT_EQ(report.injected, 0U);
    EXPECT_EQ(report.completed, 8);
    EXPECT_EQ(report.failed, 1);
    EXPECT_EQ(report.thrown, 0);
    for (const auto& [name, count] : report.calls) {
        std::cout << name << " " << count << "\n";
    }
}

}  // namespace
