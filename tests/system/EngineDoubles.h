#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "KvEmailDriver.h"
#include "KvioException.h"
#include "ScriptedSmtpServer.h"
#include "TestCertificates.h"

// What the tests of the SMTP engine share.

namespace kvtest {

/// An engine that shows its session record and its last error. One thread at a time.
class OpenEngine : public KvEmailDriver {
public:
    explicit OpenEngine(KvLogInterface* log = nullptr, const std::string& caFile = "",
                        const std::string& certFile = "", const std::string& keyFile = "")
        : KvEmailDriver(log, certFile, keyFile, caFile) {}

    Job& job() { return m_job; }
    int lastError() const { return m_nLastError; }
    const std::string& lastErrorText() const { return m_strLastError; }
    KvioSSLClientSocket& socket() { return m_objSocket; }

    /// A session without credentials and without TLS.
    void connectTo(const ScriptedSmtpServer& server) { Connect(server.address(), "", "", SecNone); }
};

/// The SMTP error that `action` raises; one with code 0 when it raises none.
inline KvSmtpException SmtpErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const KvSmtpException& error) {
        return error;
    }
    return {0, "no SMTP error was raised"};
}

/// The message of the I/O error that `action` raises.
inline std::string IoErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (KvioException& error) {
        return error.GetMsg();
    }
    return "no I/O error was raised";
}

/// Options of a server that offers AUTH with `mechanisms` to user "ann" with password "secret".
inline SmtpServerOptions OfferingAuth(const std::string& mechanisms) {
    SmtpServerOptions options;
    options.extensions = {{"AUTH " + mechanisms}};
    options.accounts = {{"ann", "secret"}};
    return options;
}

/// Options of a server that offers STARTTLS in clear and AUTH PLAIN LOGIN inside TLS.
inline SmtpServerOptions OfferingStartTls() {
    SmtpServerOptions options;
    options.extensions = {{"STARTTLS"}};
    options.extensionsInsideTls = {{"AUTH PLAIN LOGIN"}};
    options.accounts = {{"ann", "secret"}};
    options.tls = TestCertificates::Shared().serverTls();
    return options;
}

inline const std::string& CaFile() {
    return TestCertificates::Shared().caFile();
}

}  // namespace kvtest
