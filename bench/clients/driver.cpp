// The plug-in as a host has it: loaded at run time, given jobs, ticked. The flavour "log" gives it a log at debug that
// throws every line away; without it there is no log.
#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "KvProtocolDriverInterface.h"
#include "KvconCriticalSection.h"
#include "Task.h"

namespace {

using kvbench::Task;
using Reports = KvMessengerReportsMngrInterface;

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "driver: %s\n", what.c_str());
    std::_Exit(1);
}

/// What is handed over together and becomes the work of one connection. The last file of it that comes back reports it.
struct Slice {
    std::size_t size = 0;
    std::atomic<std::size_t> away{0};
};

/// The slices that are back, as the host waits for them.
class BackSlices {
public:
    void Add(std::size_t files) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_dqSizes.push_back(files);
        m_changed.notify_one();
    }
    /// Waits for one; how many files it held.
    std::size_t Take() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_dqSizes.empty(); });
        const std::size_t files = m_dqSizes.front();
        m_dqSizes.pop_front();
        return files;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::size_t> m_dqSizes;
};
BackSlices backSlices;

/// The host's view of one message to one recipient. The driver says a status text to every file that it hands back.
class File : public KvMessageFile {
public:
    void SetFailureReason(const std::string& reason) override { Fail("a message failed: " + reason); }
    void SetStatusText(const std::string&) override {
        if (m_pSlice->away.fetch_sub(1) == 1) {
            backSlices.Add(m_pSlice->size);
        }
    }

    Slice* m_pSlice = nullptr;
};

class DiscardingLog : public KvLogInterface {
public:
    void LogTrace(const std::string&, int, const char*) override { Count(); }
    void LogDebug(const std::string&, int, const char*) override { Count(); }
    void LogInfo(const std::string&, int, const char*) override { Count(); }
    void LogWarning(const std::string&, int, const char*) override { Count(); }
    void LogError(const std::string&, int, const char*) override { Count(); }

private:
    void Count() { m_nLines.fetch_add(1, std::memory_order_relaxed); }
    std::atomic<long> m_nLines{0};
};

class DiscardingReports : public Reports {
public:
    bool WriteReport(KvMessageFile*, ReportsStatus, const std::string&) override { return true; }
};

/// The driver with all that a host lends it.
class Driver {
public:
    Driver(const Task& task) : m_library(dlopen(task.plugin.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (m_library == nullptr) {
            Fail(dlerror());
        }
        m_driver = Exported<KvProtocolDriverInterface* (*)()>("GetDriverInstance")();
        m_driver->m_pLog = task.flavour == "log" ? &m_log : nullptr;
        m_driver->m_pReportsMngr = &m_reports;
        m_driver->m_pMsgFileQueue = &m_queue;
        const std::string connections = std::to_string(task.connections);
        std::map<std::string, std::string> settings{
            {"smart_driver.threadpool_size", connections},
            {"smart_driver.same_carrier_connection_count", connections},
            {"smart_driver.max_pins_per_transaction", std::to_string(std::max(10, task.recipients))}};
        m_driver->Configure(settings);
        m_driver->Setup(&m_instance);
    }
    ~Driver() {
        m_driver->Cleanup();
        Exported<void (*)(KvProtocolDriverInterface*)>("ReleaseDriverInstance")(m_driver);
        dlclose(m_library);
    }
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    KvProtocolDriverInterface* operator->() { return m_driver; }

private:
    template <typename Function>
    Function Exported(const char* name) {
        return reinterpret_cast<Function>(dlsym(m_library, name));
    }

    void* m_library;
    KvProtocolDriverInterface* m_driver = nullptr;
    DiscardingLog m_log;
    DiscardingReports m_reports;
    KvMessageFileQueue m_queue;
    KvMessengerInstConfBasic m_instance;
};

/// The files of all transactions, those of one after another: they agree in everything but their recipients.
std::vector<std::unique_ptr<File>> MakeFiles(const Task& task) {
    std::vector<std::unique_ptr<File>> files;
    const std::string text = kvbench::Text(task.text);
    for (int message = 0; message < task.messages; ++message) {
        for (int recipient = 0; recipient < task.recipients; ++recipient) {
            auto file = std::make_unique<File>();
            file->m_strMsgFileID = std::to_string(message) + "_" + std::to_string(recipient);
            file->m_strJobID = file->m_strMsgFileID;
            file->m_strSubject = kvbench::kSubject;
            file->m_strMessage = text;
            file->m_strRecipient = kvbench::Recipient(recipient);
            file->m_strCarrierName = "bench";
            file->m_ulCarrierID = 1;
            file->m_strSmtpServer = "127.0.0.1:" + std::to_string(task.port);
            file->m_strSmtpFrom = kvbench::kSender;
            file->m_strSmtpCAFile = task.ca;
            file->m_eSmtpSecurity = task.ca.empty() ? SMTP_SECURITY_CLEAR : SMTP_SECURITY_REQUIRED;
            if (!task.attachment.empty()) {
                file->m_vecAttachments = {task.attachment};
            }
            files.push_back(std::move(file));
        }
    }
    return files;
}

using Files = std::vector<std::unique_ptr<File>>;

/// Gives the driver its work in slices, as a host does whose connections are to be equally busy to the end: one for each
/// connection, another as soon as one is back, and ever smaller ones. A tick after each: it takes a free connection.
class HandOver {
public:
    HandOver(Driver& driver, const Task& task, const Files& files)
        : m_driver(driver),
          m_files(files),
          m_nRecipients(static_cast<std::size_t>(task.recipients)),
          m_nConnections(static_cast<std::size_t>(task.connections)) {}

    void Run() {
        while (m_nSlicesAway < m_nConnections && Next()) {
        }
        while (m_nSlicesAway > 0) {
            m_nBack += backSlices.Take();
            --m_nSlicesAway;
            if (m_nFiled < m_files.size()) {
                std::this_thread::sleep_for(kUntilTheConnectionIsFree);
                Next();
            }
        }
    }

private:
    using Clock = std::chrono::steady_clock;
    /// A worker gives its connection back just after the last file.
    static constexpr std::chrono::milliseconds kUntilTheConnectionIsFree{1};
    /// The least that a slice holds: what takes so long, but no more than so many.
    static constexpr std::chrono::duration<double> kLeastTime{0.1};
    static constexpr std::size_t kLeastMessages = 20;

    /// By the pace so far of all connections together; a slow server gets single messages at the end.
    std::size_t Least() const {
        const std::size_t done = m_nBack / m_nRecipients;
        const std::chrono::duration<double> each = (Clock::now() - m_timeBegun) * m_nConnections;
        const auto fitting = static_cast<std::size_t>(kLeastTime / each * static_cast<double>(done));
        return done == 0 ? 1 : std::clamp<std::size_t>(fitting, 1, kLeastMessages);
    }

    /// Half of what one connection had to do if all that is left were shared out now, but not too little; all of it when
    /// there is one only.
    std::size_t FilesOfNext() const {
        const std::size_t left = (m_files.size() - m_nFiled) / m_nRecipients;
        const std::size_t fair = (left + m_nConnections - 1) / m_nConnections;
        const std::size_t count = m_nConnections == 1 ? left : std::max(fair / 2, std::min(fair, Least()));
        return count * m_nRecipients;
    }

    bool Next() {
        const std::size_t count = FilesOfNext();
        if (count == 0) {
            return false;
        }
        Slice& slice = m_slices.emplace_back();
        slice.size = count;
        slice.away = count;
        for (const std::size_t end = m_nFiled + count; m_nFiled < end; ++m_nFiled) {
            File& file = *m_files[m_nFiled];
            file.m_pSlice = &slice;
            Reports::ReportsStatus status{};
            if (!m_driver->SendAMessage(&file, status)) {
                Fail("a job was not accepted");
            }
        }
        ++m_nSlicesAway;
        m_driver->PeriodicEvent();
        return true;
    }

    Driver& m_driver;
    const Files& m_files;
    const std::size_t m_nRecipients;
    const std::size_t m_nConnections;
    std::deque<Slice> m_slices;
    std::size_t m_nFiled = 0;
    std::size_t m_nSlicesAway = 0;
    std::size_t m_nBack = 0;  ///< files of slices that are wholly back
    const Clock::time_point m_timeBegun = Clock::now();
};

}  // namespace

int main(int argc, char** argv) {
    const Task task = kvbench::ReadTask(argc, argv);
    const auto files = MakeFiles(task);
    Driver driver(task);
    const kvbench::Meter meter;
    HandOver(driver, task, files).Run();
    meter.Print();
    if (!std::all_of(files.begin(), files.end(),
                     [](const auto& file) { return file->m_eStatus == Reports::REPORT_COMPLETED; })) {
        Fail("not every message was delivered");
    }
}
