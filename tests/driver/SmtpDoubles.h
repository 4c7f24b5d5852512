#pragma once

#include <string>

#include "KvEmailDriver.h"
#include "KvSMTPMsgDispatcher.h"
#include "KvSmtpDriver.h"
#include "ScriptedSmtpServer.h"
#include "TestCertificates.h"
#include "driver/FrameworkDoubles.h"

// What the tests of the SMTP driver and its dispatcher share.

namespace kvtest {

constexpr const char* kSmtpSource = "KvSmtpDriver.cpp";
constexpr const char* kDispatcherSource = "KvSMTPMsgDispatcher.cpp";

inline KvEmailDriver& EngineOf(const KvConn& conn) {
    return *static_cast<KvEmailDriver*>(conn.m_pConnection);
}

/// A mail from ann@example.org to bob@example.org through `server`.
inline MessageBuilder MailThrough(const ScriptedSmtpServer& server) {
    return MessageBuilder().server(server.address());
}

/// Options of a server that offers AUTH with `mechanisms` to user "ann" with password "secret".
inline SmtpServerOptions WithAuth(const std::string& mechanisms) {
    SmtpServerOptions options;
    options.extensions = {{"AUTH " + mechanisms}};
    options.accounts = {{"ann", "secret"}};
    return options;
}

/// Options of a server that offers STARTTLS and AUTH with `mechanisms` in clear, and AUTH inside TLS.
inline SmtpServerOptions WithStartTlsAndAuth(const std::string& mechanisms) {
    SmtpServerOptions options = WithAuth(mechanisms);
    options.extensions = {{"STARTTLS", "AUTH " + mechanisms}};
    options.extensionsInsideTls = {{"AUTH " + mechanisms}};
    options.tls = TestCertificates::Shared().serverTls();
    return options;
}

}  // namespace kvtest
