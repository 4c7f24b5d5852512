#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Doorbell.h"
#include "Eventually.h"
#include "JobIntake.h"
#include "JobOperations.h"
#include "JobViews.h"
#include "StoreCheck.h"
#include "TempDir.h"
#include "host/ChildProcess.h"
#include "sink/Server.h"

namespace kvruntest {

/// Kills a running daemon again and again, at moments that a seed decides, while jobs are submitted all the time, and
/// holds the store and the mail server's mails against each other. One thread at a time.
///
/// Three carriers lead to the same server and differ in what they do about jobs in doubt: "retry", "hold" and "fail".
/// Every eighth recipient is refused for good by the server.
class CrashRun {
public:
    explicit CrashRun(unsigned seed) : m_random(seed), m_server(SinkOptions(m_folder)) {
        m_server.start();
        kvhost::StoreDatabase store(StoreFolder(), kvhost::StoreDatabase::Access::Create);
    }

    /// Kills so many times, then lets a last host finish. What is wrong is in Faults().
    void Run(int kills) {
        std::atomic<bool> isEnding{false};
        std::thread submitter([&] { SubmitUntil(isEnding); });
        for (int kill = 0; kill < kills && m_vecFaults.empty(); ++kill) {
            KillOnce();
            CheckStore("after kill " + std::to_string(kill + 1));
            CountMails();
        }
        isEnding = true;
        submitter.join();
        Finish();
        CountMails();
        CompareAll();
    }

    const std::vector<std::string>& Faults() const { return m_vecFaults; }
    /// What happened, in one line.
    std::string Summary() const {
        return std::to_string(m_nKills) + " kills, " + std::to_string(m_setAcknowledged.size()) +
               " jobs acknowledged: " + std::to_string(m_nDelivered) + " delivered, " +
               std::to_string(m_nRefused) + " refused by the server, " + std::to_string(m_nInDoubt) +
               " were in doubt at least once, " + std::to_string(m_nHeld) + " held or left in doubt, " +
               std::to_string(m_nRepeated) + " mails arrived once more";
    }

private:
    static constexpr int kLongestLifeMs = 300;
    static constexpr int kRefusedEvery = 8;
    static constexpr const char* kRefused = "refused@example.org";

    static kvsink::Options SinkOptions(const kvtest::TempDir& folder) {
        kvsink::Options options;
        options.maildir = folder.file("mails");
        options.refused = {kRefused};
        options.replyDelay = std::chrono::milliseconds(1);  // so that many kills meet a transaction half way
        return options;
    }

    std::string StoreFolder() const { return m_folder.file("store"); }

    std::unique_ptr<kvhosttest::ChildProcess> StartHost() {
        std::string text = "store = \"store\"\n[driver]\nthreadpool_size = 4\n[run]\nslice = 5\n";
        for (const char* policy : {"retry", "hold", "fail"}) {
            text += std::string("[carrier.") + policy +
                    "]\nserver = \"127.0.0.1\"\nport = " + std::to_string(m_server.port()) +
                    "\nsecurity = \"clear\"\nsender = \"host@example.org\"\non_doubt = \"" + policy + "\"\n";
        }
        const std::string config = m_folder.write("kvhost.toml", text);
        return std::make_unique<kvhosttest::ChildProcess>(
            std::vector<std::string>{KV_BINARY_DIR "/kvhost", "run", "--config", config, "--driver",
                                     KV_BINARY_DIR "/libkvsmtpdriver.so"},
            kvhosttest::ChildProcess::Input{});
    }

    void KillOnce() {
        const auto host = StartHost();
        // The moment of the kill is the thing under test: any moment of the host's life, its start included.
        const auto life = std::chrono::microseconds(m_random() % (kLongestLifeMs * 1000));
        std::this_thread::sleep_for(life);
        host->Signal(SIGKILL);
        host->Wait();
        ++m_nKills;
    }

    /// The names of jobs tell the server's mails apart: the recipient is "NAME@example.org", for refused ones the subject
    /// alone differs.
    void SubmitUntil(const std::atomic<bool>& isEnding) {
        kvhost::StoreDatabase store(StoreFolder(), kvhost::StoreDatabase::Access::Existing);
        kvhost::JobIntake intake(store);
        const std::vector<std::string> carriers = {"retry", "hold", "fail"};
        for (std::size_t number = 0; !isEnding; ++number) {
            kvhost::Submission mail;
            mail.id = "job-" + std::to_string(number);
            mail.carrier = carriers[number % carriers.size()];
            mail.recipients = {number % kRefusedEvery == 0 ? kRefused : mail.id + "@example.org"};
            mail.subject = mail.id;
            mail.text = "One line.\n";
            mail.isUrgent = number % 5 == 0;
            intake.Submit({mail}, kvhost::StoreNow());
            m_setAcknowledged.insert(mail.id);
            kvhost::Doorbell::Ring(StoreFolder());
            // A steady trickle, so that every life of the host meets new jobs and the run does not drown in them.
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    void Finish() {
        const auto host = StartHost();
        kvhost::StoreDatabase store(StoreFolder(), kvhost::StoreDatabase::Access::Existing);
        kvhost::JobViews views(store);
        const bool isDone = kvtest::Eventually(
            [&] {
                kvhost::StateCounts counts = views.Count();
                return counts[kvhost::JobState::Queued] + counts[kvhost::JobState::HandedOver] == 0;
            },
            std::chrono::seconds(60));
        if (!isDone) {
            Fault("not everything ended");
        }
        host->Signal(SIGTERM);
        if (host->Wait() != 0) {
            Fault("the last host did not end well: " + host->Error());
        }
        CheckStore("at the end");
    }

    void CheckStore(const std::string& when) {
        kvhost::StoreDatabase store(StoreFolder(), kvhost::StoreDatabase::Access::Existing);
        for (const std::string& fault : kvhost::CheckStore(store).faults) {
            Fault("the store " + when + ": " + fault);
        }
    }

    /// Counts the mails of the server by recipient and deletes them.
    void CountMails() {
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.file("mails"))) {
            if (entry.path().extension() != ".eml") {
                continue;
            }
            static const std::string kField = "X-Envelope-To: <";
            std::ifstream stream(entry.path());
            for (std::string line; std::getline(stream, line) && line.size() > 1;) {
                if (line.rfind(kField, 0) == 0) {
                    ++m_mapArrived[line.substr(kField.size(), line.find('@') - kField.size())];
                    break;
                }
            }
            std::filesystem::remove(entry.path());
        }
        m_mapArrived.erase("");
    }

    void CompareAll() {
        kvhost::StoreDatabase store(StoreFolder(), kvhost::StoreDatabase::Access::Existing);
        kvhost::JobViews views(store);
        for (const std::string& id : m_setAcknowledged) {
            const std::vector<kvhost::JobHistory> found = views.Show(id);
            if (found.size() != 1) {
                Fault(id + " was acknowledged and is there " + std::to_string(found.size()) + " times");
                continue;
            }
            Compare(found.front());
        }
    }

    void Compare(const kvhost::JobHistory& history) {
        const kvhost::StoredJob& job = history.job;
        int doubts = 0;
        int deliveries = 0;
        for (const kvhost::Attempt& attempt : history.attempts) {
            doubts += attempt.outcome == kvhost::AttemptOutcome::InDoubt ? 1 : 0;
            deliveries += attempt.outcome == kvhost::AttemptOutcome::Delivered ? 1 : 0;
        }
        const std::string name = job.recipient.substr(0, job.recipient.find('@'));
        const auto arrived = m_mapArrived.find(name);
        const int mails = arrived == m_mapArrived.end() ? 0 : arrived->second;
        const auto doubted = [&](const std::string& what) {
            Fault(job.id + " is " + kvhost::JobStateName(job.state) + " with " + std::to_string(doubts) +
                  " doubts and " + std::to_string(deliveries) + " deliveries, arrived " +
                  std::to_string(mails) + " times: " + what);
        };
        m_nInDoubt += doubts > 0 ? 1 : 0;
        m_nRepeated += std::max(mails - 1, 0);
        if (deliveries > 1) {
            doubted("two outcomes");
        }
        if (mails > deliveries + doubts) {
            doubted("arrived without an attempt that tells of it");
        }
        if (deliveries > 0 && mails == 0) {
            doubted("told to be delivered, and did not arrive");
        }
        CountState(job, deliveries, doubts, doubted);
    }

    template <typename Told>
    void CountState(const kvhost::StoredJob& job, int deliveries, int doubts, const Told& told) {
        using kvhost::JobState;
        const bool isRefused = job.recipient == kRefused;
        if (job.state == JobState::Delivered) {
            ++m_nDelivered;
            if (deliveries != 1) {
                told("delivered without a delivery");
            }
        } else if (job.state == JobState::Failed) {
            m_nRefused += isRefused ? 1 : 0;
            if (!isRefused && !(job.carrier == "fail" && doubts > 0)) {
                told("failed although nothing was wrong: " + job.reason);
            }
        } else if (job.state == JobState::InDoubt || job.state == JobState::Held) {
            ++m_nHeld;
            const bool isQuarantined = job.state == JobState::Held && job.crashes >= 3;
            if (doubts == 0 || !(job.carrier == "hold" || isQuarantined)) {
                told("kept back without a reason");
            }
        } else {
            told("not ended");
        }
    }

    void Fault(const std::string& text) {
        if (m_vecFaults.size() < 20) {
            m_vecFaults.push_back(text);
        }
    }

    const kvtest::TempDir m_folder;
    std::minstd_rand m_random;
    kvsink::Server m_server;
    std::set<std::string> m_setAcknowledged;  ///< the submitter's until it is joined
    std::map<std::string, int> m_mapArrived;
    std::vector<std::string> m_vecFaults;
    int m_nKills = 0;
    int m_nDelivered = 0;
    int m_nRefused = 0;
    int m_nInDoubt = 0;
    int m_nHeld = 0;
    int m_nRepeated = 0;
};

}  // namespace kvruntest
