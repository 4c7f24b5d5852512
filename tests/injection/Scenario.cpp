#include "Scenario.h"

#include <netdb.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "Descriptors.h"
#include "Eventually.h"
#include "LoadedDriver.h"
#include "ScriptedSmtpServer.h"
#include "TempDir.h"
#include "TestCertificates.h"
#include "TestMessageFile.h"

namespace kvinjection {

namespace {

using namespace kvtest;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Reports = KvMessengerReportsMngrInterface;

const std::string kPlugin = KV_BINARY_DIR "/libkvsmtpdriver.so";

/// In the product a second lasts 50 ms: the reply time-out of 60 s becomes 3 s, the pause of a stop 25 ms.
constexpr int kDivisor = 20;
/// A round in which every reply fails to come takes less.
constexpr seconds kRoundBound(20);
constexpr milliseconds kTickInterval(10);

// The message as the server has it.
constexpr const char* kHeaderAndText =
    "Mime-Version: 1.0\r\nSubject: Subject\r\nFrom: ann@example.org\r\nContent-Type: multipart/mixed;\r\n"
    "\tboundary=\"MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\"\r\n\r\n"
    "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\nContent-Type: text/plain\r\n\r\nText\r\n";
constexpr const char* kAttachmentHeader =
    "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
    "Content-Type: application/octet-stream; name=\"note.bin\"\r\nContent-Transfer-Encoding: Base64\r\n"
    "Content-Disposition: attachment; filename=\"note.bin\"\r\n\r\n";
constexpr const char* kEnd = "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n";
constexpr const char* kEncodedTriple = "eHh4";
constexpr std::size_t kAttachmentTriples = 1000;

/// A log that takes no part in faults; the lines are dropped.
class HostLog : public KvLogInterface {
public:
    void LogTrace(const std::string&, int, const char*) override {}
    void LogDebug(const std::string&, int, const char*) override {}
    void LogInfo(const std::string&, int, const char*) override {}
    void LogWarning(const std::string&, int, const char*) override {}
    void LogError(const std::string&, int, const char*) override {}
};

/// A file whose own operations take no part in faults.
class HostFile : public TestMessageFile {
public:
    explicit HostFile(const TestMessageFile& file) : TestMessageFile(file) {}
    void SetFailureReason(const std::string& reason) override {
        const kvfault::HostCall call;
        TestMessageFile::SetFailureReason(reason);
    }
    void SetStatusText(const std::string& text) override {
        const kvfault::HostCall call;
        TestMessageFile::SetStatusText(text);
    }
};

struct Job {
    std::unique_ptr<HostFile> file;
    bool accepted = false;  ///< SendAMessage said so
    bool later = false;     ///< handed over after the fault
};

class Run {
public:
    Run(const kvfault::Rule& rule, const Extras& extras)
        : m_rule(rule),
          m_extras(extras),
          m_server(std::make_unique<ScriptedSmtpServer>(SmtpServerOptions{
              .accounts = {{"ann", "secret"}}, .tls = TestCertificates::Shared().serverTls()})),
          m_attachment(extras.attachment.empty()
                           ? m_folder.write("note.bin", std::string(3 * kAttachmentTriples, 'x'))
                           : extras.attachment) {
        m_server->on("RCPT").recipient("refused@example.org").reply("550 5.1.1 no such user\r\n");
        InitializeResolver();
        kvfault::ShortenWaits(kDivisor);
        kvfault::Arm(rule);
    }

    Report Drive() {
        Start();
        if (m_extras.beforeFirstJob) {
            m_extras.beforeFirstJob();
        }
        FirstRound();
        SecondRound();
        if (kvfault::Injected() > 0) {
            kvfault::Disarm();
        }
        if (m_extras.beforeLaterJobs) {
            m_extras.beforeLaterJobs();
        }
        LaterRound();
        Stop();
        Judge();
        JudgeRemains();
        return m_report;
    }

private:
    void Problem(const std::string& text) { m_report.problems.push_back(text); }

    /// The C library's one-time set-up of its resolver does not survive a lack of memory: all later look-ups fail, or
    /// wait for ever for a lock of its own. A host has looked something up before.
    static void InitializeResolver() {
        hostent entry{};
        hostent* found = nullptr;
        int error = 0;
        char buffer[1024];
        gethostbyname_r("127.0.0.1", &entry, buffer, sizeof(buffer), &found, &error);
    }

    /// Runs a call of the driver; false when it threw.
    template <typename Operation>
    bool Calls(Operation operation) {
        try {
            const kvfault::DriverCall call;
            operation();
            return true;
        } catch (const std::exception&) {
            ++m_report.thrown;
        } catch (...) {
            Problem("the driver threw what is no std::exception");
        }
        return false;
    }

    /// As a host does it: a driver whose setup threw is released, and a new one is got.
    void Start() {
        while (!TryStart()) {
            m_driver = nullptr;
        }
    }

    bool TryStart() {
        m_driver = std::make_unique<LoadedDriver>(kPlugin);
        m_driver->get()->m_pLog = &m_log;
        m_driver->get()->m_pMsgFileQueue = &m_queue;
        return Calls([this] {
            std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "2"}};
            m_driver->get()->Configure(settings);
            m_driver->get()->Setup(&m_instance);
        });
    }

    MessageBuilder Plain(const std::string& id, const std::string& name) {
        return MessageBuilder().id(id).server(m_server->address()).recipient(name + "@example.org");
    }

    MessageBuilder Secure(const std::string& id, const std::string& name) {
        return Plain(id, name)
            .carrier(2, "secure")
            .security(SMTP_SECURITY_REQUIRED)
            .account("ann", "secret")
            .caFile(TestCertificates::Shared().caFile());
    }

    void FirstRound() {
        HandOver(Plain("10_1", "plain").attachment(m_attachment));
        HandOver(Plain("20_1", "one"));
        HandOver(Plain("20_2", "two"));
        HandOver(Plain("30_1", "refused"));
        HandOver(Secure("40_1", "secure"));
        if (m_extras.beforeFirstTick) {
            m_extras.beforeFirstTick();
        }
        TickUntilBack();
    }

    void SecondRound() {
        HandOver(Plain("50_1", "again"));
        HandOver(Secure("60_1", "secureagain"));
        TickUntilBack();
    }

    void LaterRound() {
        const bool over = kvfault::Injected() > 0 || m_rule.call == kvfault::Call::Count;
        HandOver(Plain("70_1", "later"), over);
        HandOver(Secure("80_1", "securelater"), over);
        TickUntilBack();
    }

    void HandOver(const MessageBuilder& builder, bool later = false) {
        Job& job = m_jobs.emplace_back();
        job.file = std::make_unique<HostFile>(*builder.build());
        job.later = later;
        auto status = Reports::REPORT_NONE;
        Calls([&] { job.accepted = m_driver->get()->SendAMessage(job.file.get(), status); });
        if (job.accepted != (status == Reports::REPORT_ACCEPTED)) {
            Problem("the result of SendAMessage and its status differ");
        }
    }

    int Accepted() const {
        return static_cast<int>(std::ranges::count_if(m_jobs, [](const Job& job) { return job.accepted; }));
    }

    /// The host's timer.
    void TickUntilBack() {
        const auto deadline = std::chrono::steady_clock::now() + kRoundBound;
        do {
            Calls([this] { m_driver->get()->PeriodicEvent(); });
        } while (!m_queue.waitFor(Accepted(), kTickInterval) && std::chrono::steady_clock::now() < deadline);
    }

    void Stop() {
        Calls([this] { m_driver->get()->Cleanup(); });
        if (!Eventually([] { return kvfault::LiveThreads() == 0; })) {
            Problem("threads left: " + std::to_string(kvfault::LiveThreads()));
        }
        m_driver = nullptr;
    }

    /// Who has got a whole message. A cut one counts as none.
    std::set<std::string> RecipientsServed() const {
        std::set<std::string> served;
        for (const TransactionRecord& transaction : m_server->transactions()) {
            const auto recipients = transaction.recipientAddresses();
            if (transaction.accepted() && IsWhole(transaction.data, recipients)) {
                served.insert(recipients.begin(), recipients.end());
            }
        }
        return served;
    }

    bool IsWhole(const std::string& data, const std::vector<std::string>& recipients) const {
        if (recipients.front() != "plain@example.org") {
            return data == std::string(kHeaderAndText) + kEnd;
        }
        const std::string before = std::string(kHeaderAndText) + kAttachmentHeader;
        return (m_extras.attachmentMayBeEmpty && data == before + "\r\n" + kEnd) ||
               (data.starts_with(before) && data.ends_with(kEnd) &&
                CountOf(data, kEncodedTriple) == kAttachmentTriples);
    }

    void NoteAttachment() {
        for (const TransactionRecord& transaction : m_server->transactions()) {
            m_report.attachmentWasEmpty =
                m_report.attachmentWasEmpty ||
                (transaction.accepted() &&
                 transaction.data.ends_with(std::string(kAttachmentHeader) + "\r\n" + kEnd));
        }
    }

    static std::size_t CountOf(const std::string& text, const std::string& part) {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos;
             at = text.find(part, at + part.size())) {
            ++count;
        }
        return count;
    }

    void Judge() {
        m_report.injected = kvfault::Injected();
        for (int call = 0; call < static_cast<int>(kvfault::Call::Count); ++call) {
            const auto each = static_cast<kvfault::Call>(call);
            m_report.calls[kvfault::NameOf(each)] = kvfault::Calls(each);
        }
        NoteAttachment();
        const std::set<std::string> served = RecipientsServed();
        for (const Job& job : m_jobs) {
            JudgeJob(job, served.contains(job.file->m_strRecipient));
        }
    }

    void JudgeJob(const Job& job, bool served) {
        const HostFile& file = *job.file;
        const std::string& name = file.m_strRecipient;
        const int times = m_queue.timesReturned(&file);
        if (times != (job.accepted ? 1 : 0)) {
            Problem(name + " came back " + std::to_string(times) +
                    " times, accepted: " + std::to_string(job.accepted));
        }
        if (times == 0) {
            return;
        }
        if (file.m_eStatus == Reports::REPORT_COMPLETED) {
            ++m_report.completed;
            if (!served) {
                Problem(name + " is completed without the server");
            }
        } else if (file.m_eStatus == Reports::REPORT_FAILED) {
            ++m_report.failed;
            m_report.doubtful += served ? 1 : 0;
            NoteReason(file);
        } else {
            Problem(name + " came back with the status " + std::to_string(file.m_eStatus));
        }
        if (job.later && file.m_eStatus != Reports::REPORT_COMPLETED) {
            Problem(name + ", a later job, failed: " + file.failureReason());
        }
    }

    void NoteReason(const HostFile& file) {
        if (file.m_strRecipient != "refused@example.org" ||
            file.failureReason() != "5.1.1 no such user\r\n") {
            std::string reason = file.failureReason();
            std::ranges::replace(reason, '\r', ' ');
            std::ranges::replace(reason, '\n', ' ');
            m_report.reasons.push_back(file.m_strRecipient + ": " + reason);
        }
    }

    void JudgeRemains() {
        if (!m_server->waitForOpenConnections(0)) {
            Problem("connections left: " + std::to_string(m_server->openConnections()));
        }
        m_server.reset();
        if (OpenDescriptorCount() != m_descriptors) {
            Problem("descriptors: " + std::to_string(m_descriptors) + " before, " +
                    std::to_string(OpenDescriptorCount()) + " after");
        }
    }

    const int m_descriptors = OpenDescriptorCount();
    const kvfault::Rule m_rule;
    Extras m_extras;
    TempDir m_folder;
    std::unique_ptr<ScriptedSmtpServer> m_server;
    std::string m_attachment;
    HostLog m_log;
    ReturnQueue m_queue;
    KvMessengerInstConfBasic m_instance;
    std::vector<Job> m_jobs;
    Report m_report;
    std::unique_ptr<LoadedDriver> m_driver;
};

}  // namespace

Report RunScenario(const kvfault::Rule& rule, const Extras& extras) {
    return Run(rule, extras).Drive();
}

std::string ToText(const Report& report) {
    std::ostringstream text;
    text << "injected\t" << report.injected << "\ncompleted\t" << report.completed << "\nfailed\t"
         << report.failed << "\ndoubtful\t" << report.doubtful << "\nthrown\t" << report.thrown << "\nempty\t"
         << report.attachmentWasEmpty << "\n";
    for (const auto& [name, count] : report.calls) {
        text << "call " << name << "\t" << count << "\n";
    }
    for (const std::string& reason : report.reasons) {
        text << "reason\t" << reason << "\n";
    }
    for (const std::string& problem : report.problems) {
        text << "problem\t" << problem << "\n";
    }
    text << "end\t\n";
    return text.str();
}

Report FromText(const std::string& text) {
    Report report;
    std::map<std::string, std::string> fields;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t tab = line.find('\t');
        const std::string name = line.substr(0, tab);
        const std::string value = line.substr(tab + 1);
        if (name.starts_with("call ")) {
            report.calls[name.substr(5)] = std::stoul(value);
        } else if (name == "reason") {
            report.reasons.push_back(value);
        } else if (name == "problem") {
            report.problems.push_back(value);
        } else {
            fields[name] = value;
        }
    }
    report.injected = std::stoul(fields.at("injected"));
    report.completed = std::stoi(fields.at("completed"));
    report.failed = std::stoi(fields.at("failed"));
    report.doubtful = std::stoi(fields.at("doubtful"));
    report.thrown = std::stoi(fields.at("thrown"));
    report.attachmentWasEmpty = fields.at("empty") == "1";
    return report;
}

}  // namespace kvinjection
