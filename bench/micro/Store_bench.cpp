// How many jobs a second the store takes in durably, and how many attempts it begins and ends. Every figure is given
// besides as jobs for each plain sync of 4 KiB on the same disk, measured in the same run: disks differ by a factor of
// a hundred, this ratio does not.
//
// The store lies in a new folder below the working directory, which is to be on the disk that is of interest.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "JobIntake.h"
#include "JobLedger.h"

namespace {

using namespace kvhost;
using Clock = std::chrono::steady_clock;

constexpr int kJobsToAttempt = 10000;

StoreTime Now() {
    return FromNumber(1'700'000'000'000);
}

/// A folder of its own below the working directory.
class Folder {
public:
    Folder() {
        std::string name = std::filesystem::current_path() / "store_bench.XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no folder can be made here");
        }
        m_path = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// Appends 4 KiB and syncs them.
class PlainFile {
public:
    explicit PlainFile(const std::filesystem::path& folder)
        : m_fd(::open((folder / "plain").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)) {}
    ~PlainFile() { ::close(m_fd); }
    PlainFile(const PlainFile&) = delete;
    PlainFile& operator=(const PlainFile&) = delete;

    void Append() const {
        static constexpr std::array<char, 4096> kBlock{};
        if (::write(m_fd, kBlock.data(), kBlock.size()) != static_cast<ssize_t>(kBlock.size()) ||
            ::fsync(m_fd) != 0) {
            throw std::runtime_error("a plain file cannot be synced");
        }
    }

private:
    const int m_fd;
};

/// Seconds that a plain sync takes: the median of 201.
double MeasurePlainSync() {
    const Folder folder;
    const PlainFile file(folder.Path());
    std::vector<double> seconds;
    for (int i = 0; i < 201; ++i) {
        const auto begin = Clock::now();
        file.Append();
        seconds.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
    }
    std::nth_element(seconds.begin(), seconds.begin() + 100, seconds.end());
    return seconds[100];
}

double PlainSync() {
    static const double seconds = MeasurePlainSync();
    return seconds;
}

/// Tells the jobs a second, and the jobs for each plain sync.
void Tell(benchmark::State& state, std::int64_t jobs) {
    state.SetItemsProcessed(jobs);
    state.counters["plain_sync_us"] = PlainSync() * 1e6;
    state.counters["jobs_per_plain_sync"] =
        benchmark::Counter(static_cast<double>(jobs) * PlainSync(), benchmark::Counter::kIsRate);
}

std::vector<Submission> Submissions(int count, std::int64_t& number) {
    std::vector<Submission> submissions(static_cast<std::size_t>(count));
    for (Submission& submission : submissions) {
        submission.id = "bench-" + std::to_string(++number);
        submission.carrier = "relay-" + std::to_string(number % 30);
        submission.recipients = {"ops@example.org"};
        submission.subject = "Boiler";
        submission.text = std::string(200, 'x');
    }
    return submissions;
}

void PlainSyncOf4KiB(benchmark::State& state) {
    const Folder folder;
    const PlainFile file(folder.Path());
    for (auto _ : state) {
        file.Append();
    }
    state.SetItemsProcessed(state.iterations());
}

void Submit(benchmark::State& state) {
    const int batch = static_cast<int>(state.range(0));
    PlainSync();
    const Folder folder;
    StoreDatabase store(folder.Path(), StoreDatabase::Access::Create);
    JobIntake intake(store);
    std::int64_t number = 0;
    for (auto _ : state) {
        intake.Submit(Submissions(batch, number), Now());
    }
    Tell(state, number);
}

void EndAll(JobLedger& ledger, const std::vector<StoredJob>& jobs) {
    std::vector<AttemptEnd> ends;
    ends.reserve(jobs.size());
    for (const StoredJob& job : jobs) {
        ends.push_back(
            {job.key, AttemptOutcome::Failed, "4.3.0 Try again", JobState::Queued, Now(), "again"});
    }
    ledger.EndAttempts(ends, Now());
}

/// What a job costs the running host: looked up, its attempt begun, its attempt ended.
void Attempt(benchmark::State& state) {
    const int batch = static_cast<int>(state.range(0));
    PlainSync();
    const Folder folder;
    StoreDatabase store(folder.Path(), StoreDatabase::Access::Create);
    std::int64_t number = 0;
    JobIntake(store).Submit(Submissions(kJobsToAttempt, number), Now());
    JobLedger ledger(store);
    ledger.BeginRun(Now(), [](const std::string&) { return DoubtPolicy::Retry; });
    std::int64_t attempts = 0;
    for (auto _ : state) {
        const std::string carrier = "relay-" + std::to_string(attempts / batch % 30);
        const std::vector<StoredJob> jobs = ledger.BeginAttempts(ledger.Due(carrier, Now(), batch), Now());
        EndAll(ledger, jobs);
        attempts += static_cast<std::int64_t>(jobs.size());
    }
    Tell(state, attempts);
}

BENCHMARK(PlainSyncOf4KiB)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(Submit)
    ->ArgName("in_one_transaction")
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(Attempt)
    ->ArgName("in_one_transaction")
    ->Arg(1)
    ->Arg(10)
    ->Arg(20)
    ->Arg(100)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
