#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KvDriverEntryPoints.h"
#include "KvProtocolDriverInterface.h"

// A driver that sends nothing and does with each job what the job's text says:
//
//   fail REASON    comes back failed with the reason and CR LF behind it
//   reject         is not accepted
//   throw          SendAMessage throws
//   never          never comes back
//   cleanup        comes back failed during Cleanup
//   thread         comes back completed from another thread
//   deletion       comes back to be deleted
//   tick throws    PeriodicEvent throws when it gets to it; the job never comes back
//   tick hangs     PeriodicEvent does not return once it gets to it; likewise
//   status N       comes back with the status N
//   twice          comes back twice
//   secrets        logs the account in every shape that a driver logs it in; comes back completed
//   anything else  comes back completed
//
// The environment drives the rest: KVFAKE_RECORD names a file that the calls are written to; KVFAKE_GET,
// KVFAKE_CONFIGURE, KVFAKE_SETUP, KVFAKE_TICK and KVFAKE_CLEANUP say how those calls misbehave ("when busy": only
// with jobs to work on);
// KVFAKE_WORKER=open has Setup start a worker that lets SIGTERM and SIGQUIT through, as a pool's worker does
// while it waits.

namespace {

using Reports = KvMessengerReportsMngrInterface;

std::string Setting(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

void Record(const std::string& call) {
    const std::string file = Setting("KVFAKE_RECORD");
    if (!file.empty()) {
        std::ofstream(file, std::ios::app) << call << "\n";
    }
}

extern "C" void OnWorkerSignal(int) {
    static const char kText[] = "the worker got the signal\n";
    if (::write(STDERR_FILENO, kText, sizeof(kText) - 1) < 0) {
        ::_exit(99);
    }
}

/// A thread that does nothing but wait with SIGTERM and SIGQUIT open, until it is told to end.
class OpenWorker {
public:
    /// The end signal is blocked before the thread is there: it may come before the thread has run.
    OpenWorker() {
        sigset_t before;
        const sigset_t end = EndSignal();
        ::pthread_sigmask(SIG_BLOCK, &end, &before);
        m_thread = std::thread([] { Wait(); });
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    ~OpenWorker() {
        ::pthread_kill(m_thread.native_handle(), SIGUSR1);
        m_thread.join();
    }

private:
    static sigset_t EndSignal() {
        sigset_t end;
        ::sigemptyset(&end);
        ::sigaddset(&end, SIGUSR1);
        return end;
    }

    static void Wait() {
        sigset_t open;
        ::sigemptyset(&open);
        ::sigaddset(&open, SIGTERM);
        ::sigaddset(&open, SIGQUIT);
        ::pthread_sigmask(SIG_UNBLOCK, &open, nullptr);
        const sigset_t end = EndSignal();
        int number = 0;
        while (::sigwait(&end, &number) != 0) {
        }
    }

    std::thread m_thread;
};

void InstallWorkerHandlers() {
    struct sigaction action {};
    action.sa_handler = OnWorkerSignal;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGQUIT, &action, nullptr);
}

class FakeDriver : public KvProtocolDriverInterface {
public:
    const char* GetName() override { return "FAKE"; }
    const char* GetVersion() override { return "9.9"; }
    const char* GetProtocolName() override { return "No Protocol"; }
    const char* GetCarrierName() override { return ""; }

    bool Configure(std::map<std::string, std::string>& settings) override {
        Record("Configure");
        for (const auto& [key, value] : settings) {
            Record("  " + key + "=" + value);
        }
        return Setting("KVFAKE_CONFIGURE") != "refuse";
    }

    bool Setup(KvMessengerInstConfBasic* instConf) override {
        Record(instConf != nullptr ? "Setup" : "Setup without a configuration");
        if (Setting("KVFAKE_WORKER") == "open") {
            InstallWorkerHandlers();
            m_pWorker = new OpenWorker;
        }
        return Setting("KVFAKE_SETUP") != "refuse";
    }

    bool SendAMessage(KvMessageFile* file, Reports::ReportsStatus& status) override {
        Record("SendAMessage " + file->m_strMsgFileID);
        if (file->m_strMessage == "throw") {
            throw std::runtime_error("out of paper");
        }
        const bool isAccepted = file->m_strMessage != "reject";
        status = isAccepted ? Reports::REPORT_ACCEPTED : Reports::REPORT_FAILED;
        if (isAccepted) {
            m_vecWaiting.push_back(file);
        }
        return isAccepted;
    }

    bool PeriodicEvent() override {
        MisbehaveOnTick(!m_vecWaiting.empty());
        if (!m_vecWaiting.empty()) {
            Record("PeriodicEvent with " + std::to_string(m_vecWaiting.size()));
        }
        for (KvMessageFile* file : m_vecWaiting) {
            Process(file);
        }
        m_vecWaiting.clear();
        return Setting("KVFAKE_TICK") != "false";
    }

    bool Cleanup() override {
        Record("Cleanup");
        if (Setting("KVFAKE_CLEANUP") == "print") {
            std::printf("Kill thread [17]");
        }
        for (KvMessageFile* file : m_vecForCleanup) {
            Fail(file, "Messenger internal error.");
        }
        EndThreads();
        while (Setting("KVFAKE_CLEANUP") == "hang") {
            ::pause();
        }
        if (Setting("KVFAKE_CLEANUP") == "throw") {
            throw std::runtime_error("mop is broken");
        }
        return Setting("KVFAKE_CLEANUP") != "false";
    }

    ~FakeDriver() override {
        Record("ReleaseDriverInstance");
        EndThreads();
    }

private:
    static void MisbehaveOnTick(bool isBusy) {
        const std::string how = Setting("KVFAKE_TICK");
        if (how == "throw" || (isBusy && how == "throw when busy")) {
            throw std::runtime_error("clock is broken");
        }
        while (how == "hang" || (isBusy && how == "hang when busy")) {
            ::pause();
        }
    }

    void Process(KvMessageFile* file) {
        const std::string& text = file->m_strMessage;
        if (text.rfind("fail ", 0) == 0) {
            Fail(file, text.substr(5) + "\r\n");
        } else if (text == "cleanup") {
            m_vecForCleanup.push_back(file);
        } else if (text == "deletion") {
            PushBackMsgFileForDeletion(file);
        } else if (text.rfind("status ", 0) == 0) {
            PushBackMsgFile(file, static_cast<Reports::ReportsStatus>(std::stoi(text.substr(7))), false, "");
        } else if (text == "tick hangs") {
            for (;;) {
                ::pause();
            }
        } else if (text == "tick throws") {
            throw std::runtime_error("cogwheel is broken");
        } else if (text == "thread") {
            m_vecThreads.emplace_back([this, file] { Complete(file); });
        } else if (text != "never") {
            CompleteAtOnce(file);
        }
    }

    void CompleteAtOnce(KvMessageFile* file) {
        // The host may look at the file from the first push on: what is needed of it is taken before.
        const bool isTwice = file->m_strMessage == "twice";
        if (file->m_strMessage == "secrets") {
            LogSecrets(*file);
        }
        Complete(file);
        if (isTwice) {
            Complete(file);
        }
    }

    void Complete(KvMessageFile* file) {
        WriteMessageReport(file, Reports::REPORT_COMPLETED, "");
        PushBackMsgFile(file, Reports::REPORT_COMPLETED, false, "");
    }

    void Fail(KvMessageFile* file, const std::string& reason) {
        m_pLog->LogError("Failing message job id: " + file->m_strJobID + ". Reason: " + reason, 42,
                         "FakeDriver.cpp");
        file->SetFailureReason(reason);
        PushBackMsgFile(file, Reports::REPORT_FAILED, false, "");
    }

    void LogSecrets(const KvMessageFile& file) {
        Trace("{7}-{host}-{3}-{" + file.m_strSmtpUser + "}-{" + file.m_strSmtpPassword + "}");
        Trace("<= AUTH PLAIN<CR><LF>");
        Trace("=> 334 <CR><LF>");
        Trace("<= c29tZXRoaW5nIHNlY3JldA==<CR><LF>");
        Trace("=> 235 welcome<CR><LF>");
        Trace("<= MAIL FROM: <" + file.m_strSmtpFrom + "><CR><LF>");
    }

    void Trace(const std::string& text) { m_pLog->LogTrace(text, 226, "../src/KvioSocket"); }

    void EndThreads() {
        for (std::thread& thread : m_vecThreads) {
            thread.join();
        }
        m_vecThreads.clear();
        delete m_pWorker;
        m_pWorker = nullptr;
    }

    std::vector<KvMessageFile*> m_vecWaiting;
    std::vector<KvMessageFile*> m_vecForCleanup;
    std::vector<std::thread> m_vecThreads;
    OpenWorker* m_pWorker = nullptr;
};

KvProtocolDriverInterface* g_pDriver = nullptr;

}  // namespace

KvProtocolDriverInterface* GetDriverInstance() {
    Record("GetDriverInstance");
    if (g_pDriver == nullptr && Setting("KVFAKE_GET") != "null") {
        g_pDriver = new FakeDriver;
    }
    return g_pDriver;
}

void ReleaseDriverInstance(KvProtocolDriverInterface* driver) {
    if (driver == g_pDriver) {
        delete g_pDriver;
        g_pDriver = nullptr;
    }
}
