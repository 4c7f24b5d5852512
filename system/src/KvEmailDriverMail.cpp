// Mail submission of KvEmailDriver: the transaction on an open session, and the single shot.
#include <cxxabi.h>

#include <ctime>
#include <new>
#include <string_view>

#include "KvEmailDriver.h"
#include "KvLog.h"
#include "KvMimeMessage.h"
#include "KvString.h"

namespace {

constexpr const char* kLogSource = "../system/src/KvEmailDriver";
constexpr std::size_t kReplyLimit = 1000;
constexpr long kSecondsPerHour = 3600;
constexpr std::string_view kLastLine = ".\r\n";

constexpr const char* kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int ZoneHours(time_t now, const tm& local) {
    tm localCopy = local;
    tm utcCopy{};
    gmtime_r(&now, &utcCopy);
    const time_t localSeconds = mktime(&localCopy);
    int hours = static_cast<int>((localSeconds - mktime(&utcCopy)) / kSecondsPerHour);
    if (local.tm_isdst > 0) {
        hours += daylight;
    }
    return hours;
}

/// The envelope sender of a single shot: the text as it is, or cut at its angle brackets.
std::string EnvelopeSender(const std::string& from) {
    const std::size_t opening = from.find('<');
    if (opening == std::string::npos) {
        return from;
    }
    const std::size_t closing = from.rfind('>');
    if (closing == std::string::npos) {
        throw KvSmtpException(KvSmtpException::MALFORMED_FROM, "Malformed FROM email address: " + from);
    }
    return from.substr(opening, closing);
}

}  // namespace

void KvEmailDriver::SendMail(const std::string& from, const std::vector<std::string>& to,
                             const std::string& subject, const std::string& body,
                             const std::vector<std::string>& attachments) {
    for (;;) {
        try {
            RunTransaction(from, to, subject, body, attachments);
            return;
        } catch (const KvSmtpException& error) {
            if (!IsStartTlsDemand(error, m_job)) {
                throw;
            }
        }
        KV_LOG(m_pLog, LogDebug, kLogSource, "Attempting TLS Hand Shake...");
        ProcessTLS();
        KV_LOG(m_pLog, LogDebug, kLogSource, "Authorizing if required...");
        Authorize();
        KV_LOG(m_pLog, LogDebug, kLogSource, "Re-Attempting message sending...");
    }
}

void KvEmailDriver::RunTransaction(const std::string& from, const std::vector<std::string>& to,
                                   const std::string& subject, const std::string& body,
                                   const std::vector<std::string>& attachments) {
    std::string reply;
    reply.reserve(kReplyLimit);  // a reply that came is not lost for want of memory
    SmtpWrite("MAIL FROM: <%s>\r\n", from.c_str());
    SmtpRead(reply);
    for (const std::string& recipient : to) {
        SmtpWrite("RCPT TO: <%s>\r\n", recipient.c_str());
        SmtpRead(reply);
    }
    SmtpWrite("DATA\r\n");
    SmtpRead(reply);
    const std::string text = BuildMessage(from, subject, body, attachments);
    SendText(text, text.size() - kLastLine.size());
    SmtpRead(reply);
}

/// The message and the line that ends it. The server waits for them: what is said next on a connection without them
/// would become the message.
std::string KvEmailDriver::BuildMessage(const std::string& from, const std::string& subject,
                                        const std::string& body,
                                        const std::vector<std::string>& attachments) {
    try {
        std::string text = KvMimeMessageText(from, subject, body, attachments);
        text += kLastLine;
        return text;
    } catch (const std::bad_alloc&) {
        BreakOff();
        throw;
    }
}

bool KvEmailDriver::SendAMessage(Job& job) {
    KV_LOG(m_pLog, LogTrace, kLogSource, "Entering KvEmailDriver::SendAMessage()");
    try {
        SendSingleShot(job);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        m_objSocket.Close();
        throw;
    }
    m_objSocket.Close();
    KV_LOG(m_pLog, LogTrace, kLogSource, "Leaving KvEmailDriver::SendAMessage() with %s.", "TRUE");
    return true;
}

void KvEmailDriver::SendSingleShot(Job& job) {
    bool greeted = false;
    bool startTlsDemanded = false;
    for (;;) {
        try {
            if (!greeted) {
                // NOLINTNEXTLINE(clang-analyzer-deadcode.DeadStores): read again after a demand.
                greeted = true;
                Greet(job);
            }
            SecureSingleShot(job, startTlsDemanded);
            Authenticate(job);
            SubmitSingleShot(job);
            break;
        } catch (const KvSmtpException& error) {
            if (!IsStartTlsDemand(error, job)) {
                throw;
            }
            startTlsDemanded = true;
        }
    }
    SmtpWrite("QUIT");
}

void KvEmailDriver::SecureSingleShot(Job& job, bool demanded) {
    const bool wanted = job.eSecType == SecTLSIfAvailable || job.eSecType == SecTLSRequired;
    if (!wanted && !demanded) {
        return;
    }
    if (IsTLSSupported(job)) {
        PostSTARTTLS(job);
    } else if (demanded) {
        throw KvSmtpException(KvSmtpException::STARTTLS_FAILED,
                              "STARTTLS Failed after Must Start TLS Response");
    } else if (job.eSecType == SecTLSRequired) {
        throw KvSmtpException(KvSmtpException::TLS_REQUIRED, "TLS Required but not supported");
    }
}

void KvEmailDriver::SubmitSingleShot(Job& job) {
    std::string reply;
    const std::string sender = EnvelopeSender(job.strFrom);
    SmtpWrite("MAIL FROM: <%s>\r\n", sender.c_str());
    SmtpRead(reply);
    SmtpWrite("RCPT TO: <%s>\r\n", job.strTo.c_str());
    SmtpRead(reply);
    SmtpWrite("DATA\r\n");
    SmtpRead(reply);
    SendHeaders(job);
    SendBody(job);
    SmtpWrite(".\r\n");
    SmtpRead(reply);
}

void KvEmailDriver::SendHeaders(Job& job) {
    SmtpWrite("Date: %s\r\n", GetDateString().c_str());
    SmtpWrite("From: %s\r\n", job.strFrom.c_str());
    SmtpWrite("To: %s\r\n", job.strTo.c_str());
    if (!job.strSubject.empty()) {
        SmtpWrite("Subject: %s\r\n", job.strSubject.c_str());
    }
    SmtpWrite("\r\n");
}

void KvEmailDriver::SendBody(Job& job) {
    std::string body = job.strBody;
    findandreplace(body, "\r\n", "\n");
    std::vector<std::string> lines;
    KvstringSplitString(body, '\n', lines, false);
    for (const std::string& line : lines) {
        const char* const stuffing = !line.empty() && line[0] == '.' ? "." : "";
        m_objSocket << stuffing + line + "\r\n";
    }
}

std::string KvEmailDriver::GetDateString() {
    const time_t now = time(nullptr);
    tm local{};
    tzset();
    localtime_r(&now, &local);
    const int hours = ZoneHours(now, local);
    const char sign = hours > 0 ? '+' : '-';
    return printfToString("%s, %02d %s %d %02d:%02d:%02d %c%02d00", kDayNames[local.tm_wday], local.tm_mday,
                          kMonthNames[local.tm_mon], local.tm_year + 1900, local.tm_hour, local.tm_min,
                          local.tm_sec, sign, hours > 0 ? hours : -hours);
}
