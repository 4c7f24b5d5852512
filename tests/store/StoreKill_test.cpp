#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <set>

#include "StoreFixture.h"
#include "StoreLock.h"

namespace kvhost {
namespace {

constexpr int kKills = 50;
constexpr int kJobsBeforeTheKill = 40;

/// Writes what was acknowledged, one record at a time; a record is shorter than a pipe writes at once.
void Tell(int pipe, char what, int number) {
    const std::string record = what + std::to_string(number) + "\n";
    if (::write(pipe, record.data(), record.size()) != static_cast<ssize_t>(record.size())) {
        ::_exit(1);
    }
}

std::string JobName(int number) {
    return "job-" + std::to_string(number);
}

/// Submits, hands over and ends jobs until it is killed, and tells after each call what is done by it: "s" submitted,
/// "d" delivered.
[[noreturn]] void Work(const std::string& folder, int firstNumber, int pipe) {
    const StoreLock lock(folder);
    StoreDatabase store(folder, StoreDatabase::Access::Create);
    JobLedger ledger(store);
    JobIntake intake(store);
    ledger.BeginRun(StoreNow(), [](const std::string&) { return DoubtPolicy::Retry; });
    for (int number = firstNumber;; ++number) {
        Submission mail;
        mail.id = JobName(number);
        mail.carrier = "east";
        mail.recipients = {"ops@example.org"};
        intake.Submit({mail}, StoreNow());
        Tell(pipe, 's', number);
        const std::vector<StoredJob> jobs =
            ledger.BeginAttempts(ledger.Due("east", StoreNow(), 3), StoreNow());
        for (const StoredJob& job : jobs) {
            const AttemptEnd end = {job.key, AttemptOutcome::Delivered, "", JobState::Delivered, std::nullopt,
                                    ""};
            ledger.EndAttempts({end}, StoreNow());
            Tell(pipe, 'd', std::stoi(job.id.substr(4)));
        }
    }
}

class StoreKillTest : public testing::Test {
protected:
    /// Runs the work in a child and kills it after so many records; notes what it told.
    void RunAndKill(int records) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(ends[0]);
            Work(m_dir.path(), m_nNext, ends[1]);
        }
        ::close(ends[1]);
        FILE* told = ::fdopen(ends[0], "r");
        int number = 0;
        char what = 0;
        for (int record = 0; std::fscanf(told, "%c%d\n", &what, &number) == 2; ++record) {
            Note(what, number);
            if (record == records) {
                ::kill(child, SIGKILL);
            }
        }
        std::fclose(told);
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
    }

    void Note(char what, int number) {
        (what == 's' ? m_setSubmitted : m_setDelivered).insert(number);
        m_nNext = std::max(m_nNext, number + 2);  // one submission may have been made without being told
    }

    void ExpectEverythingToldIsThere() {
        StoreDatabase store(m_dir.path(), StoreDatabase::Access::Existing);
        const StoreCheckResult check = CheckStore(store);
        EXPECT_TRUE(check.IsSound()) << (check.faults.empty() ? "" : check.faults.front());
        JobViews views(store);
        for (const int number : m_setSubmitted) {
            ASSERT_EQ(views.Show(JobName(number)).size(), 1U) << "lost: " << number;
        }
        for (const int number : m_setDelivered) {
            ASSERT_EQ(views.Show(JobName(number)).at(0).job.state, JobState::Delivered) << number;
        }
    }

    kvtest::TempDir m_dir;
    std::set<int> m_setSubmitted;
    std::set<int> m_setDelivered;
    int m_nNext = 0;
};

TEST_F(StoreKillTest, NothingThatWasToldIsLostHoweverOftenTheProcessIsKilled) {
    std::minstd_rand random(
        20);  // NOLINT(cert-msc51-cpp): the same moments on every run, as far as that goes
    for (int kill = 0; kill < kKills; ++kill) {
        RunAndKill(static_cast<int>(random() % kJobsBeforeTheKill));
    }
    ExpectEverythingToldIsThere();
    EXPECT_GE(m_setSubmitted.size(), static_cast<std::size_t>(kKills));
    EXPECT_FALSE(m_setDelivered.empty());
}

}  // namespace
}  // namespace kvhost
