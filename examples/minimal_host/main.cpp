// A complete host for one job: it loads a driver, lends it its services, hands over one message, ticks until the
// message is back, and says what became of it. Exit status: 0 delivered, 1 not delivered, 2 no use of the driver.
#include <dlfcn.h>
#include <signal.h>

#include <cstdio>
#include <exception>
#include <map>
#include <stdexcept>
#include <string>

#include "KvDriverEntryPoints.h"
#include "KvProtocolDriverInterface.h"
#include "KvconCriticalSection.h"

using Reports = KvMessengerReportsMngrInterface;

/// Thread-safe, as the driver's workers log too: each line is one call of stdio.
class WarningsToStandardError : public KvLogInterface {
public:
    void LogTrace(const std::string&, int, const char*) override {}
    void LogDebug(const std::string&, int, const char*) override {}
    void LogInfo(const std::string&, int, const char*) override {}
    void LogWarning(const std::string& text, int line, const char* file) override { Write(text, line, file); }
    void LogError(const std::string& text, int line, const char* file) override { Write(text, line, file); }

private:
    static void Write(const std::string& text, int line, const char* file) {
        std::fprintf(stderr, "%s:%d: %s\n", file, line, text.c_str());
    }
};

class NoReports : public KvMessengerReportsMngrInterface {
public:
    bool WriteReport(KvMessageFile*, ReportsStatus, const std::string&) override { return true; }
};

class Message : public KvMessageFile {
public:
    Message(const std::string& server, const std::string& recipient) {
        m_strMsgFileID = "1_1";
        m_strJobID = "1";
        m_strSubject = "Pump 3";
        m_strMessage = "Pressure is low.";
        m_strRecipient = recipient;
        m_ulCarrierID = 1;
        m_strCarrierName = "mail";
        m_strSmtpServer = server;
        m_strSmtpFrom = "host@example.org";
        m_eSmtpSecurity = SMTP_SECURITY_CLEAR;
    }
    void SetFailureReason(const std::string& reason) override { m_strReason = reason; }
    void SetStatusText(const std::string&) override {}
    /// In the server's own words, as a rule: a reply keeps its line end.
    std::string Reason() const { return m_strReason.substr(0, m_strReason.find_first_of("\r\n")); }

private:
    std::string m_strReason;
};

/// What the driver works with. It outlives the driver's last call.
struct Services {
    WarningsToStandardError log;
    NoReports reports;
    KvMessageFileQueue returned;
    KvMessengerInstConfBasic instance;
};

template <typename Function>
Function* Resolve(void* library, const char* name) {
    void* const address = dlsym(library, name);
    if (address == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return reinterpret_cast<Function*>(address);
}

void Start(KvProtocolDriverInterface& driver, Services& services) {
    driver.m_pLog = &services.log;
    driver.m_pReportsMngr = &services.reports;
    driver.m_pMsgFileQueue = &services.returned;
    std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "1"}};
    if (!driver.Configure(settings) || !driver.Setup(&services.instance)) {
        throw std::runtime_error("the driver refuses to start");
    }
}

bool TakeBack(KvMessageFileQueue& returned) {
    KvconCriticalSection section(&returned.m_lock, true, true, false);
    if (returned.m_dqMsgFiles.empty()) {
        return false;
    }
    returned.m_dqMsgFiles.pop_front();
    return true;
}

/// Hands the message over and ticks until it is back or a stop signal comes. Cleanup hands back what is under way.
void Deliver(KvProtocolDriverInterface& driver, KvMessageFileQueue& returned, Message& message,
             const sigset_t& stopSignals) {
    const timespec tick{0, 50 * 1000 * 1000};
    auto status = Reports::REPORT_NONE;
    bool isBack = !driver.SendAMessage(&message, status);
    while (!isBack) {
        driver.PeriodicEvent();
        isBack = TakeBack(returned) || sigtimedwait(&stopSignals, nullptr, &tick) > 0;
    }
    driver.Cleanup();
}

int Run(const char* libraryName, const std::string& server, const std::string& recipient) {
    // Blocked before the driver starts its threads: the driver's handlers would end the thread that gets one.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGQUIT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    void* const library = dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    const auto get = Resolve<decltype(GetDriverInstance)>(library, "GetDriverInstance");
    const auto release = Resolve<decltype(ReleaseDriverInstance)>(library, "ReleaseDriverInstance");
    Services services;
    Message message(server, recipient);
    KvProtocolDriverInterface& driver = *get();
    Start(driver, services);
    Deliver(driver, services.returned, message, stopSignals);
    release(&driver);
    dlclose(library);

    const bool isDelivered = message.m_eStatus == Reports::REPORT_COMPLETED;
    const std::string outcome = isDelivered ? "delivered" : "failed: " + message.Reason();
    std::printf("%s\n", outcome.c_str());
    return isDelivered ? 0 : 1;
}

int main(int argc, char** argv) {
    try {
        if (argc == 4) {
            return Run(argv[1], argv[2], argv[3]);
        }
        std::fputs("usage: minimal_host DRIVER SERVER[:PORT] RECIPIENT\n", stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "minimal_host: %s\n", error.what());
    }
    return 2;
}
