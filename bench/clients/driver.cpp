// The plug-in as a host has it: loaded at run time, given jobs, ticked. The flavour "log" gives it a log at debug that
// throws every line away; without it there is no log.
#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>

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

/// How many files the driver still has.
std::atomic<int> filesAway{0};
std::promise<void> allBack;

/// The host's view of one message to one recipient. The driver says a status text to every file that it hands back.
class File : public KvMessageFile {
public:
    void SetFailureReason(const std::string& reason) override { Fail("a message failed: " + reason); }
    void SetStatusText(const std::string&) override {
        if (filesAway.fetch_sub(1) == 1) {
            allBack.set_value();
        }
    }
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

/// As many parts as there are connections, with a tick after each: every tick takes a connection of its own.
void HandOver(Driver& driver, const Task& task, const std::vector<std::unique_ptr<File>>& files) {
    const int part = std::max(1, (task.messages + task.connections - 1) / task.connections) * task.recipients;
    int filed = 0;
    for (const auto& file : files) {
        Reports::ReportsStatus status{};
        if (!driver->SendAMessage(file.get(), status)) {
            Fail("a job was not accepted");
        }
        if (++filed % part == 0) {
            driver->PeriodicEvent();
        }
    }
    driver->PeriodicEvent();
}

}  // namespace

int main(int argc, char** argv) {
    const Task task = kvbench::ReadTask(argc, argv);
    const auto files = MakeFiles(task);
    filesAway = static_cast<int>(files.size());
    Driver driver(task);
    const kvbench::Meter meter;
    HandOver(driver, task, files);
    allBack.get_future().wait();
    meter.Print();
    if (!std::all_of(files.begin(), files.end(),
                     [](const auto& file) { return file->m_eStatus == Reports::REPORT_COMPLETED; })) {
        Fail("not every message was delivered");
    }
}
