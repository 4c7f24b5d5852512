#pragma once

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Gate.h"
#include "KvEmailDriver.h"
#include "KvioException.h"
#include "RecordingLog.h"
#include "ScriptedSmtpServer.h"
#include "TestCertificates.h"

/// An SMTP engine whose members can be looked at, and what its operations come to.
namespace kvengine {

using kvtest::Reply;
using kvtest::ScriptedSmtpServer;
using kvtest::SmtpServerOptions;
namespace step = kvtest::step;
using Texts = std::vector<std::string>;

inline const std::string kEhlo = "EHLO [127.0.0.1]\r\n";
inline const std::string kHelo = "HELO [127.0.0.1]\r\n";
inline const std::string kDemand = "530 5.7.0 Must issue a STARTTLS command first\r\n";
inline const std::string kDemandText = "5.7.0 Must issue a STARTTLS command first\r\n";
/// User "ann", password "secret".
inline const std::string kPlainLine = "AGFubgBzZWNyZXQ=\r\n";
inline const std::string kAuthPlain = "AUTH PLAIN\r\n" + kPlainLine;
inline const std::string kAuthLogin = "AUTH LOGIN\r\nYW5u\r\nc2VjcmV0\r\n";

class Engine : public KvEmailDriver {
public:
    using KvEmailDriver::m_job;
    using KvEmailDriver::m_nLastError;
    using KvEmailDriver::m_objSocket;
    using KvEmailDriver::m_strLastError;

    explicit Engine(KvLogInterface* log = nullptr, const std::string& caFile = "",
                    const std::string& certFile = "", const std::string& keyFile = "")
        : KvEmailDriver(log, certFile, keyFile, caFile) {}

    /// Connects the socket alone.
    void attach(const ScriptedSmtpServer& server) {
        m_objSocket.Connect("127.0.0.1", server.port(), KvioSocket::SOCKET_TCP);
    }
    /// Connects the socket and reads the greeting.
    void greet(const ScriptedSmtpServer& server) {
        attach(server);
        std::string greeting;
        SmtpRead(greeting);
    }
    std::string read() {
        std::string reply = "old";
        SmtpRead(reply);
        return reply;
    }
};

/// An engine that trusts the test certificates.
class TlsEngine : public Engine {
public:
    explicit TlsEngine(KvLogInterface* log = nullptr)
        : Engine(log, kvtest::TestCertificates::Shared().caFile()) {}
};

inline SmtpServerOptions WithTls(std::vector<kvtest::Account> accounts = {}) {
    SmtpServerOptions options;
    options.tls = kvtest::TestCertificates::Shared().serverTls();
    options.accounts = std::move(accounts);
    return options;
}

inline SmtpServerOptions Offering(std::vector<std::string> extensions) {
    SmtpServerOptions options;
    options.extensions = std::move(extensions);
    options.accounts = {{"ann", "secret"}};
    return options;
}

/// How an operation ended.
struct Outcome {
    std::string kind;
    int code = 0;
    std::string text;

    bool operator==(const Outcome&) const = default;
    friend void PrintTo(const Outcome& each, std::ostream* out) {
        *out << each.kind << ' ' << each.code << ' ' << testing::PrintToString(each.text);
    }
};

inline Outcome Fine() {
    return {"fine", 0, ""};
}
inline Outcome Smtp(int code, const std::string& text) {
    return {"smtp", code, text};
}
inline Outcome Io(const std::string& message) {
    return {"io", 0, message};
}
inline Outcome OutOfRange() {
    return {"out of range", 0, ""};
}

template <typename Operation>
Outcome OutcomeOf(Operation&& operation) {
    try {
        operation();
    } catch (const KvSmtpException& error) {
        return Smtp(error.m_nError, error.m_strError);
    } catch (KvioException& error) {
        return Io(error.GetMsg());
    } catch (const std::out_of_range&) {
        return OutOfRange();
    }
    return Fine();
}

/// A log that opens a gate when a line is written: the test's hand in the middle of an operation.
class TriggerLog : public KvLogInterface {
public:
    kvtest::Gate gateOn(const std::string& text) {
        const std::lock_guard lock(m_mutex);
        return m_gates[text];
    }
    void LogTrace(const std::string& text, int, const char*) override { check(text); }
    void LogDebug(const std::string& text, int, const char*) override { check(text); }
    void LogInfo(const std::string& text, int, const char*) override { check(text); }
    void LogWarning(const std::string& text, int, const char*) override { check(text); }
    void LogError(const std::string& text, int, const char*) override { check(text); }

private:
    void check(const std::string& text) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_gates.find(text);
        if (found != m_gates.end()) {
            found->second.open();
        }
    }

    std::mutex m_mutex;
    std::map<std::string, kvtest::Gate> m_gates;
};

}  // namespace kvengine
