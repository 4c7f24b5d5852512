#include "KvEmailDriver.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "KvEndSignals.h"
#include "KvString.h"
#include "KvioException.h"

namespace {

constexpr int kReplyTimeoutMs = 60000;
constexpr unsigned int kReplyLimit = 1000;
constexpr int kDefaultSmtpPort = 25;
constexpr int kMustIssueStartTls = 530;

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

int SmtpServicePort() {
    char service[] = "smtp";
    char protocol[] = "tcp";
    const int port = KvioSocket::KvAsciiToPort(service, protocol);
    return port < 1 ? kDefaultSmtpPort : port;
}

}  // namespace

void KvEmailDriver::Job::Reset() {
    *this = Job();
}

KvEmailDriver::KvEmailDriver(KvLogInterface* log, const std::string& certFile, const std::string& keyFile,
                             const std::string& caFile)
    : m_objSocket(certFile, keyFile, caFile), m_pLog(log) {
    m_objSocket.SetEventLog(log);
}

KvEmailDriver::~KvEmailDriver() = default;

void KvEmailDriver::Connect(const std::string& server, const std::string& user, const std::string& password,
                            SmtpSecType sec) {
    m_job.strHost = server;
    m_job.strUser = user;
    m_job.strPassword = password;
    m_job.eSecType = sec;
    Greet(m_job);
    for (;;) {
        KvEndSignals::LetIn();  // with a server that always answers at once nothing here waits
        try {
            if (m_job.eSecType == SecTLSIfAvailable || m_job.eSecType == SecTLSRequired) {
                ProcessTLS();
            }
            Authorize();
            return;
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (const KvSmtpException& error) {
            if (!IsStartTlsDemand(error, m_job)) {
                m_objSocket.Close();
                throw;
            }
        } catch (...) {
            m_objSocket.Close();
            throw;
        }
    }
}

bool KvEmailDriver::IsStartTlsDemand(const KvSmtpException& error, const Job& job) {
    return error.m_nError == kMustIssueStartTls && Contains(error.m_strError, "STARTTLS") &&
           job.eSecType == SecTLSOnDemand;
}

void KvEmailDriver::Greet(Job& job) {
    SetHostPort(job);
    m_objSocket.Connect(job.strHost, job.nPort, KvioSocket::SOCKET_TCP);
    std::string greeting;
    SmtpRead(greeting);
    UpdateSupportedMethods(job, SendEHLOThenHELO());
}

void KvEmailDriver::SetHostPort(Job& job) {
    if (job.nPort >= 1) {
        return;
    }
    const std::size_t colon = job.strHost.find(':');
    long port = 0;
    if (colon != std::string::npos) {
        port = std::strtol(job.strHost.c_str() + colon + 1, nullptr, 10);
    }
    constexpr long kLargest = std::numeric_limits<int>::max();
    job.nPort = port > 0 ? static_cast<int>(std::min(port, kLargest)) : SmtpServicePort();
    job.strHost = job.strHost.substr(0, colon);
}

std::string KvEmailDriver::SendEHLOThenHELO() {
    std::string reply;
    try {
        SmtpWrite("EHLO [127.0.0.1]\r\n");
        SmtpRead(reply);
        return reply;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        // Any failure of EHLO gets one try of HELO; what ails the connection shows there.
    }
    SmtpWrite("HELO [127.0.0.1]\r\n");
    SmtpRead(reply);
    return reply;
}

void KvEmailDriver::UpdateSupportedMethods(Job& job, const std::string& ehloReply) {
    std::string reply = ehloReply;
    findandreplace(reply, "\r\n", "\n");
    std::vector<std::string> lines;
    KvstringSplitString(reply, '\n', lines, false);
    for (const std::string& line : lines) {
        if (Contains(line, "STARTTLS")) {
            job.bStartTLS = true;
        } else if (!job.strUser.empty() && !job.strPassword.empty() && Contains(line, "AUTH")) {
            job.bAuthLogin = job.bAuthLogin || Contains(line, "LOGIN");
            job.bAuthPlain = job.bAuthPlain || Contains(line, "PLAIN");
        }
    }
}

void KvEmailDriver::ProcessTLS() {
    if (IsTLSSupported(m_job)) {
        PostSTARTTLS(m_job);
        return;
    }
    if (m_job.eSecType == SecTLSOnDemand) {
        throw KvSmtpException(KvSmtpException::STARTTLS_FAILED,
                              "STARTTLS Failed after Must Start TLS Response");
    }
    if (m_job.eSecType == SecTLSRequired) {
        throw KvSmtpException(KvSmtpException::TLS_REQUIRED, "TLS Required but not supported");
    }
}

bool KvEmailDriver::IsTLSSupported(Job& job) {
    if (!job.bStartTLS) {
        return false;
    }
    SmtpWrite("STARTTLS\r\n");
    try {
        std::string reply;
        SmtpRead(reply);
        return !reply.empty() && reply[0] == '2';
    } catch (const KvSmtpException&) {
        return false;
    }
}

void KvEmailDriver::PostSTARTTLS(Job& job) {
    m_objSocket.StartSSL();
    UpdateSupportedMethods(job, SendEHLOThenHELO());
}

void KvEmailDriver::Close() {
    m_objSocket.Close();
    m_job.Reset();
}

bool KvEmailDriver::IsAlive() {
    try {
        SmtpWrite("RSET\r\n");
        std::string reply;
        SmtpRead(reply);
        return true;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return false;
    }
}

/// One step of the conversation. Left by a failure of the connection or for want of memory, it breaks off the
/// connection: what the server has got, and what it will still say, cannot be told then.
template <typename Step>
int KvEmailDriver::InStep(Step step) {
    try {
        return step();
    } catch (const KvioException&) {
        BreakOff();
        throw;
    } catch (const std::bad_alloc&) {
        BreakOff();
        throw;
    }
}

void KvEmailDriver::BreakOff() {
    m_objSocket.ShutDown();
}

int KvEmailDriver::SmtpRead(std::string& reply) {
    return InStep([&] { return ReadReply(reply); });
}

int KvEmailDriver::ReadReply(std::string& reply) {
    unsigned char buffer[1024];
    KvioSocket::SocketStatus status;
    const int count = m_objSocket.Read(buffer, kReplyLimit, kReplyTimeoutMs, status);
    buffer[count < 0 ? 0 : count] = '\0';
    reply = reinterpret_cast<const char*>(buffer);
    if (!reply.empty() && (reply[0] == '4' || reply[0] == '5')) {
        throw KvSmtpException(reply);
    }
    return count;
}

int KvEmailDriver::SmtpWrite(const char* format, ...) {
    char buffer[2048] = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    return InStep([&] {
        return m_objSocket.Write(reinterpret_cast<unsigned char*>(buffer),
                                 static_cast<unsigned int>(std::strlen(buffer)));
    });
}

int KvEmailDriver::SmtpWrite(const std::string& text) {
    return InStep([&] { return m_objSocket.Write(text); });
}

/// Logged as two writes, of the first `first` bytes and of the rest.
int KvEmailDriver::SendText(const std::string& text, std::size_t first) {
    return InStep([&] { return m_objSocket.WriteAsTwo(text, first); });
}

bool KvEmailDriver::ValidateJob(Job& job) {
    const auto build = [](int code, const char* text) { const KvSmtpException notRaised(code, text); };
    if (job.strHost.empty()) {
        build(KvSmtpException::MISSING_SERVER, "Missing SMTP Server Address");
    } else if (job.nPort < 1) {
        build(KvSmtpException::MISSING_TO, "802 Missing TO Address");
    } else if (job.strFrom.empty()) {
        build(KvSmtpException::MISSING_FROM, "Missing FROM Address");
    } else if (job.strBody.empty()) {
        build(KvSmtpException::MISSING_BODY, "Missing MESSAGE body");
    }
    return true;
}
