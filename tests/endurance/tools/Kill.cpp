// Ends the workers of a driver at random moments, over many stops, and says what became of the jobs.
//
//   kvendurance_kill [COUNT [SEED]]
//
// COUNT workers are ended (100000). Ends with 0 when everything held.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "Descriptors.h"
#include "endurance/PoolFire.h"
#include "endurance/ProcessFigures.h"

namespace {

using kvtest::FireReport;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes kLongestSeries{10};

/// Where the report goes: the driver writes lines of its own to the standard output.
FILE* OpenReport() {
    FILE* const report = fdopen(dup(STDOUT_FILENO), "w");
    if (report == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::perror("kvendurance_kill: standard output");
        std::exit(1);
    }
    return report;
}

class Progress {
public:
    explicit Progress(FILE* out, unsigned long wanted) : m_out(out), m_wanted(wanted) {}

    void Tell(const FireReport& report) {
        m_lastSeries = Clock::now();
        if (report.kills >= m_next) {
            m_next = report.kills + m_wanted / 10;
            Line(report);
        }
    }
    bool Hangs() const { return Clock::now() - m_lastSeries.load() > kLongestSeries; }
    void Line(const FireReport& report) const {
        const std::chrono::duration<double> seconds = Clock::now() - m_begun;
        std::fprintf(m_out, "%8lu kills  %6lu stops  %7.1f s  %7ld KiB  %3d descriptors  %2d threads\n",
                     report.kills, report.stops, seconds.count(), kvtest::ResidentKiB(),
                     kvtest::OpenDescriptorCount(), kvtest::ThreadCount());
        std::fflush(m_out);
    }

private:
    FILE* const m_out;
    const unsigned long m_wanted;
    unsigned long m_next = 0;
    const Clock::time_point m_begun = Clock::now();
    std::atomic<Clock::time_point> m_lastSeries = m_begun;
};

/// Ends the program when it hangs: a lock that is left locked is waited for without end.
void Watch(const Progress& progress) {
    std::thread([&progress] {
        while (!progress.Hangs()) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
        std::fprintf(stderr, "WRONG: a stop does not end\n");
        _exit(2);
    }).detach();
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned long count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100000;
    const auto seed = static_cast<unsigned>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 1);
    FILE* const out = OpenReport();
    Progress progress(out, count);
    Watch(progress);
    kvtest::PoolFire fire(seed);
    fire.run(count, [&progress](const FireReport& report) { progress.Tell(report); });
    const FireReport& report = fire.report();
    progress.Line(report);
    std::fprintf(out, "%lu signals, %lu filed, %lu handed back, %lu completed, %lu ended with their worker\n",
                 report.signals, report.filed, report.handedBack, report.completed, report.internalErrors);
    std::fprintf(out, "%lu looks at the locks after the workers were ended\n", report.lockChecks);
    std::fprintf(out, "last steps of the connections:\n");
    for (const auto& [step, times] : report.lastSteps) {
        std::fprintf(out, "  %8lu %s\n", times, step.c_str());
    }
    for (const std::string& wrong : report.wrong) {
        std::fprintf(out, "WRONG: %s\n", wrong.c_str());
    }
    std::fclose(out);
    return report.wrong.empty() && report.filed == report.handedBack ? 0 : 1;
}
