// Shows a status page whose figures move, for a look at it in a browser: a store with made-up jobs, and attempts that end
// now and then. Usage: kvstatusdemo FOLDER. Tells its port on standard output, and ends when its standard input does.

#include <spdlog/sinks/null_sink.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <string>
#include <thread>

#include "JobIntake.h"
#include "JobLedger.h"
#include "JobOperations.h"
#include "JobViews.h"
#include "Monitoring.h"
#include "Problem.h"

namespace {

using kvhost::JobState;
using kvhost::StoreNow;
using kvhost::StoreTime;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr const char* kHostileSubject =
    "</td><script>document.title='broken'</script> \"quoted\" & 'so' &amp; \u20ac";

struct Mail {
    const char* id;
    const char* carrier;
    const char* recipient;
    const char* subject;
};

const Mail kWaiting[] = {
    {"boiler-7-2231", "pager-north", "duty@example.org", "Boiler 7: pressure 9.4 bar above limit"},
    {"gate-2-881", "pager-north", "security@example.org", "Gate 2 held open for 10 minutes"},
    {"pump-11-4410", "mail-hq", "maintenance@example.org", "Pump 11: bearing temperature 81 \u00b0C"},
    {"odd-1", "mail-hq", "ops@example.org", kHostileSubject},
    {"report-2026-11", "mail-hq", "board@example.org", "Monthly report of the plant, November"},
    {"fire-b3-17", "pager-north", "fire@example.org", "Smoke detector B3, second floor"},
};

/// The daemon's doings, made up.
class Show {
public:
    explicit Show(const std::string& folder)
        : m_store(folder, kvhost::StoreDatabase::Access::Create),
          m_ledger(m_store),
          m_config(ConfigOf(folder)) {
        m_ledger.BeginRun(StoreNow(), [](const std::string&) { return kvhost::DoubtPolicy::Hold; });
        FillHour();
        FillStore();
        Publish();
        m_monitoring.Serve(m_config.http, {});
    }

    int Port() const { return m_monitoring.Port(); }

    /// One more job is delivered, and now and then one fails.
    void Step() {
        const std::string id = "alarm-" + std::to_string(++m_nStep);
        Submit({id.c_str(), "pager-south", "duty@example.org", "Alarm"}, StoreNow());
        End(id, m_nStep % 20 == 0 ? "550 5.2.1 The mailbox of the recipient is disabled" : "");
        Publish();
    }

private:
    static kvhost::HostConfig ConfigOf(const std::string& folder) {
        kvhost::HostConfig config;
        config.store = folder;
        config.http.isOn = true;
        config.http.port = 0;
        return config;
    }

    void FillStore() {
        StoreTime submitted = StoreNow() - minutes(11);
        for (const Mail& mail : kWaiting) {
            Submit(mail, submitted);
            submitted += seconds(40);
        }
        kvhost::JobOperations(m_store).Hold("report-2026-11", StoreNow());
        Submit({"lift-4-90", "pager-south", "nobody@example.org", "Lift 4: emergency call"}, submitted);
        End("lift-4-90", "550 5.1.1 <nobody@example.org>: Recipient address rejected: User unknown");
        for (int i = 0; i < 12; ++i) {
            const std::string id = "reading-" + std::to_string(i);
            Submit({id.c_str(), i % 3 == 0 ? "mail-hq" : "pager-south", "log@example.org", "Reading"},
                   submitted);
            End(id, "");
        }
    }

    void FillHour() {
        for (int minute = 59; minute > 0; --minute) {
            for (int i = 0; i < 6 + minute * 7 % 11 + (minute > 20 && minute < 26 ? 9 : 0); ++i) {
                kvhost::AttemptReport report;
                report.ended = StoreNow() - minutes(minute);
                report.outcome = kvhost::AttemptOutcome::Delivered;
                report.next = JobState::Delivered;
                if (i < (minute < 12 ? 4 : minute % 17 == 0 ? 1 : 0)) {
                    Fail(report, i);
                }
                m_monitoring.Observer().AttemptEnded(report);
            }
        }
    }

    static void Fail(kvhost::AttemptReport& report, int number) {
        report.job.id = number == 0 ? "gate-2-881" : "boiler-7-2231";
        report.job.carrier = "pager-north";
        report.job.recipient = number == 0 ? "security@example.org" : "duty@example.org";
        report.number = 12 - static_cast<int>((StoreNow() - report.ended) / minutes(1));
        report.outcome = kvhost::AttemptOutcome::Failed;
        report.next = number == 3 ? JobState::Failed : JobState::Queued;
        report.reason = "Failed to connect to 192.0.2.17:25: Connection refused.";
        report.decision =
            number == 3 ? "given up: deadline passed" : "no connection; tried again with the carrier";
    }

    void Submit(const Mail& mail, StoreTime when) {
        kvhost::Submission submission;
        submission.id = mail.id;
        submission.carrier = mail.carrier;
        submission.recipients = {mail.recipient};
        submission.subject = mail.subject;
        kvhost::JobIntake(m_store).Submit({submission}, when);
    }

    /// Delivers the job, or has it fail for `reason`.
    void End(const std::string& id, const std::string& reason) {
        kvhost::AttemptReport report;
        report.job = kvhost::JobViews(m_store).Show(id).front().job;
        report.begun = StoreNow();
        const bool isDelivered = reason.empty();
        report.outcome = isDelivered ? kvhost::AttemptOutcome::Delivered : kvhost::AttemptOutcome::Failed;
        report.next = isDelivered ? JobState::Delivered : JobState::Failed;
        report.reason = reason;
        report.decision = isDelivered ? "" : "given up: the server refused the recipient for good";
        report.number = 1;
        m_ledger.BeginAttempts({report.job.key}, report.begun);
        report.ended = StoreNow();
        m_ledger.EndAttempts({{report.job.key, report.outcome, reason, report.next, {}, report.decision}},
                             report.ended);
        m_monitoring.Observer().AttemptEnded(report);
    }

    void Publish() {
        kvhost::RunSnapshot run;
        run.phase = kvhost::RunSnapshot::Phase::Running;
        run.driver = "SMTP 1.0, Simple Message Transfer Protocol (SMTP)";
        run.started = m_started;
        run.lastRound = StoreNow();
        run.lastTick = StoreNow();
        run.carriers["mail-hq"];
        run.carriers["pager-south"];
        run.carriers["pager-north"] = {0, true, m_started + minutes(200),
                                       "Failed to connect to 192.0.2.17:25: Connection refused."};
        m_status.Set(run);
    }

    const StoreTime m_started = StoreNow() - minutes(190);
    kvhost::StoreDatabase m_store;
    kvhost::JobLedger m_ledger;
    const kvhost::HostConfig m_config;
    kvhost::RunStatus m_status;
    kvhost::ConnectionCounter m_connections;
    const std::shared_ptr<kvhost::Secrets> m_pSecrets =
        std::make_shared<kvhost::Secrets>(kvhost::SecretMask(std::vector<kvhost::SecretMask::Account>{}));
    kvhost::LogSink m_log{
        std::make_shared<spdlog::logger>("demo", std::make_shared<spdlog::sinks::null_sink_mt>()),
        m_pSecrets,
        {}};
    kvhost::Monitoring m_monitoring{m_config, {m_status, m_connections, m_pSecrets, m_log}};
    int m_nStep = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: kvstatusdemo FOLDER" << std::endl;
        return 2;
    }
    Show show(argv[1]);
    std::cout << show.Port() << std::endl;
    std::atomic<bool> isOver{false};
    std::thread steps([&] {
        while (!isOver) {
            show.Step();
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
        }
    });
    for (std::string line; std::getline(std::cin, line);) {
    }
    isOver = true;
    steps.join();
    return 0;
}
