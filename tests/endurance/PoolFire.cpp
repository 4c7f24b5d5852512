#include "endurance/PoolFire.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "Descriptors.h"
#include "ScriptedSmtpServer.h"
#include "endurance/EnduranceDriver.h"
#include "endurance/Interceptions.h"
#include "endurance/ProcessFigures.h"

namespace kvtest {

namespace {

constexpr int kStopsPerSeries = 40;
/// Two more than there are workers, so that work waits in the queue.
constexpr int kCarriers = 10;
constexpr int kMailsPerCarrier = 4;
constexpr unsigned kLongestRunUs = 6000;
constexpr int kSendBuffer = 16384;
constexpr std::size_t kMoreThanBuffersHold = 300'000;

/// A server that misbehaves at random while it is under fire. The script runs on the threads of its connections.
class FickleServer {
public:
    explicit FickleServer(unsigned seed) : m_random(seed), m_server(ServerWithEverything()) {
        m_server.on(step::Any).answer([this](const CommandContext& context) { return Answer(context); });
    }

    ScriptedSmtpServer& server() { return m_server; }
    /// Whether it misbehaves at all, and whether also while a connection is made.
    void misbehave(bool anywhere, bool whileConnecting) {
        m_anywhere = anywhere;
        m_whileConnecting = whileConnecting;
    }
    /// Whether a mail to this address was acknowledged.
    bool hasTaken(const std::string& recipient) {
        const std::lock_guard hold(m_mutex);
        return m_taken.count(recipient) != 0;
    }

private:
    static bool IsOfConnecting(const std::string& step) {
        return step == step::Greeting || step == "EHLO" || step == "HELO" || step == "STARTTLS" ||
               step == "AUTH" || step == step::AuthPlain;
    }

    Reply Answer(const CommandContext& context) {
        const bool wellBehaved = !m_anywhere || (!m_whileConnecting && IsOfConnecting(context.step));
        const Reply reply = wellBehaved ? context.defaultReply : Misbehave(context);
        if (context.step == step::EndOfData && reply.bytes.starts_with('2')) {
            const std::lock_guard hold(m_mutex);
            m_taken.insert(context.recipients.begin(), context.recipients.end());
        }
        return reply;
    }

    Reply Misbehave(const CommandContext& context) {
        const unsigned dice = Dice();
        Reply reply = context.defaultReply;
        if (dice < 8) {
            return Reply().thenStall();
        }
        if (dice < 12) {
            return reply.followedBy(Then::Stall);  // after 354 and 220 the client writes and finds no reader
        }
        if (dice < 15) {
            return Reply("421 4.3.2 going down\r\n").thenClose();
        }
        if (dice < 18) {
            return Reply().followedBy(dice == 15 ? Then::Reset : Then::CloseAbruptly);
        }
        if (dice < 40 && context.step == "RSET") {
            return Reply().thenClose();  // the worker makes another connection
        }
        return dice < 60 ? reply.delayed(std::chrono::milliseconds(1 + dice % 3)) : reply;
    }

    unsigned Dice() {
        const std::lock_guard hold(m_mutex);
        return static_cast<unsigned>(m_random() % 100);
    }

    std::mutex m_mutex;
    std::mt19937 m_random;          ///< guarded by m_mutex
    std::set<std::string> m_taken;  ///< guarded by m_mutex
    std::atomic<bool> m_anywhere{false};
    std::atomic<bool> m_whileConnecting{false};
    ScriptedSmtpServer m_server;  // last, so that its threads end first
};

using Files = std::vector<std::unique_ptr<TestMessageFile>>;

/// Stops of one driver under one server.
class Series {
public:
    Series(unsigned seed, FireReport& report) : m_random(seed), m_report(report), m_server(seed) {}

    void Run() {
        m_host = std::make_unique<HostDoubles>();
        m_driver =
            std::make_unique<WatchedDriver>(*m_host, nullptr,
                                            Settings{{"smart_driver.threadpool_size", "8"},
                                                     {"smart_driver.diff_carrier_connection_count", "100"}});
        for (int stop = 0; stop < kStopsPerSeries && m_report.wrong.empty(); ++stop) {
            StopUnderFire();
            Restart();
        }
        CheckThatItStillDelivers();
        m_driver->Cleanup();
        CountLastSteps();
    }

private:
    void StopUnderFire() {
        const Files files = FileMails();
        m_server.misbehave(true, false);  // the host's own thread, which connects first, is not to be held up
        m_driver->PeriodicEvent();
        m_server.misbehave(true, true);
        std::this_thread::sleep_for(std::chrono::microseconds(m_random() % kLongestRunUs));
        Stop();
        Check(files);
    }

    Files FileMails() {
        Files files;
        for (int carrier = 0; carrier < kCarriers; ++carrier) {
            for (int mail = 0; mail < kMailsPerCarrier; ++mail) {
                files.push_back(Mail(carrier, mail).build());
                Require(m_driver->HandOver(*files.back()), "a mail was not taken");
            }
        }
        m_report.filed += files.size();
        return files;
    }

    /// The first two mails of each carrier are a group.
    MessageBuilder Mail(int carrier, int mail) {
        MessageBuilder message =
            MailOver(m_random() % 2 == 0 ? Wire::Clear : Wire::Tls, m_server.server().address());
        message.id("G" + std::to_string(std::max(mail, 1)) + "_" + std::to_string(mail))
            .recipient("r" + std::to_string(++m_lastRecipient) + "@example.org")
            .carrier(static_cast<unsigned long>(carrier) + 1, "carrier");
        if (carrier == 0) {
            message.text(std::string(kMoreThanBuffersHold, 'x'));
        }
        return message;
    }

    void Stop() {
        const unsigned long kills = ThreadsEndedBySignal();
        const unsigned long signals = EndSignalsSent();
        const unsigned long checks = m_driver->LockChecks();
        m_driver->Cleanup();
        Require(!m_driver->LockIsLeft(), "a lock was left locked");
        m_report.lockChecks += m_driver->LockChecks() - checks;
        ++m_report.stops;
        m_report.kills += ThreadsEndedBySignal() - kills;
        m_report.signals += EndSignalsSent() - signals;
    }

    void Check(const Files& files) {
        m_report.handedBack += static_cast<unsigned long>(m_host->queue.count());
        Require(m_host->queue.count() == static_cast<int>(files.size()), "not every file is back");
        Require(m_host->queue.eachReturnedOnce(), "a file is back more than once");
        for (const auto& file : files) {
            const bool completed = file->m_eStatus == Reports::REPORT_COMPLETED;
            m_report.completed += completed ? 1UL : 0UL;
            m_report.internalErrors += file->failureReason() == kInternalError ? 1UL : 0UL;
            Require(completed || file->m_eStatus == Reports::REPORT_FAILED,
                    "a file is back without a status");
            Require(!completed || m_server.hasTaken(file->m_strRecipient),
                    "completed, but the server never said so");
            Require(completed || !file->failureReason().empty(), "failed without a reason");
        }
    }

    void Restart() {
        m_host = std::make_unique<HostDoubles>();
        m_driver->Start(*m_host);
    }

    void CheckThatItStillDelivers() {
        m_server.misbehave(false, false);
        Files files;
        for (const Wire wire : {Wire::Clear, Wire::Tls}) {
            files.push_back(MailOver(wire, m_server.server().address()).build());
            Require(m_driver->HandOver(*files.back()), "a mail was not taken");
        }
        m_driver->PeriodicEvent();
        Require(m_host->queue.waitFor(2), "a mail is not delivered after a new start");
        for (const auto& file : files) {
            Require(file->m_eStatus == Reports::REPORT_COMPLETED, "a mail fails after a new start");
        }
    }

    void CountLastSteps() {
        ScriptedSmtpServer& server = m_server.server();
        server.stop();
        for (int number = 1; number <= server.acceptedConnections(); ++number) {
            const ConnectionRecord record = server.connection(number);
            const std::string where = record.tls ? " inside TLS" : "";
            ++m_report
                  .lastSteps[(record.commands.empty() ? "GREETING" : record.commands.back().step) + where];
        }
    }

    void Require(bool holds, const char* otherwise) {
        if (!holds) {
            m_report.wrong.push_back(otherwise + (" after stop " + std::to_string(m_report.stops)));
        }
    }

    std::mt19937 m_random;
    FireReport& m_report;
    FickleServer m_server;
    std::unique_ptr<HostDoubles> m_host;
    std::unique_ptr<WatchedDriver> m_driver;
    unsigned long m_lastRecipient = 0;
};

}  // namespace

void PoolFire::run(unsigned long kills, const std::function<void(const FireReport&)>& afterSeries) {
    const ShortPauses pauses;
    const SocketLimits limits(10000, kSendBuffer);
    TestCertificates::Shared();
    const int descriptors = OpenDescriptorCount();
    const int threads = ThreadCount();
    while (m_report.kills < kills && m_report.wrong.empty()) {
        Series(m_seed++, m_report).Run();
        if (OpenDescriptorCount() != descriptors) {
            m_report.wrong.push_back("descriptors are left open");
        }
        if (!Eventually([threads] { return ThreadCount() == threads; })) {
            m_report.wrong.push_back("threads are left");
        }
        if (afterSeries) {
            afterSeries(m_report);
        }
    }
}

}  // namespace kvtest
