#include "KvSMTPMsgDispatcher.h"

#include <cxxabi.h>

#include "KvAny.h"
#include "KvEmailDriver.h"
#include "KvLog.h"
#include "KvioException.h"

namespace {

constexpr const char* kSource = "KvSMTPMsgDispatcher.cpp";

std::vector<std::string> RecipientsOf(const std::list<KvMessageFile*>& files) {
    std::vector<std::string> recipients;
    recipients.reserve(files.size());
    for (const KvMessageFile* const file : files) {
        recipients.push_back(file->m_strRecipient);
    }
    return recipients;
}

}  // namespace

// Compatibility: the four "Leaving" lines bear the driver's class name.
// Relied on by: log readers.
// Held by: KvSMTPMsgDispatcherTest.TheLeavingLinesBearTheDriversName.

bool KvSMTPMsgDispatcher::SendMessage(KvMessageFile* file) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPMsgDispatcher::SendMessage");
    const bool result = Send({file});
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::SendMessage with return value = '%s'",
           KvAny(result).asString().c_str());
    return result;
}

bool KvSMTPMsgDispatcher::SendMessageGroup(std::list<KvMessageFile*> group) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPMsgDispatcher::SendMessageGroup");
    const bool result = !group.empty() && Send(group);
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::SendMessageGroup with return value = '%s'",
           KvAny(result).asString().c_str());
    return result;
}

bool KvSMTPMsgDispatcher::Send2WayMessage(KvMessageFile*) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPMsgDispatcher::Send2WayMessage");
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::Send2WayMessage with return value = '%s'",
           KvAny(false).asString().c_str());
    return false;
}

bool KvSMTPMsgDispatcher::Query2WayResponse(KvMessageFile*) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPMsgDispatcher::Query2WayResponse");
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::Query2WayResponse with return value = '%s'",
           KvAny(false).asString().c_str());
    return false;
}

bool KvSMTPMsgDispatcher::Send(const std::list<KvMessageFile*>& files) {
    std::string reason;
    const bool sent = TrySendMail(files, reason);
    for (KvMessageFile* const file : files) {
        if (sent) {
            ReportCompleted(file);
        } else {
            ReportFailed(file, reason);
        }
    }
    return sent;
}

bool KvSMTPMsgDispatcher::TrySendMail(const std::list<KvMessageFile*>& files, std::string& reason) {
    const KvMessageFile& first = *files.front();
    auto& engine = *static_cast<KvEmailDriver*>(m_pConn->m_pConnection);
    try {
        engine.SendMail(first.m_strSmtpFrom, RecipientsOf(files), first.m_strSubject, first.m_strMessage,
                        first.m_vecAttachments);
        return true;
    } catch (const KvSmtpException& error) {
        KV_LOG(m_pLog, LogError, kSource, "Error: %s", error.m_strError.c_str());
        reason = error.m_strError;
    } catch (KvioException& error) {
        KV_LOG(m_pLog, LogError, kSource, "Error: %s", error.ToString().c_str());
        reason = error.GetMsg();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        KV_LOG(m_pLog, LogError, kSource, "Unknown error occurred");
    }
    return false;
}

void KvSMTPMsgDispatcher::ReportCompleted(KvMessageFile* file) {
    KV_LOG(m_pLog, LogInfo, kSource, "Creating REPORT entry COMPLETED for job: %s.",
           file->m_strJobID.c_str());
    m_pDriver->PushBackMsgFile(file, KvMessengerReportsMngrInterface::REPORT_COMPLETED, false, "");
}

void KvSMTPMsgDispatcher::ReportFailed(KvMessageFile* file, const std::string& reason) {
    KV_LOG(m_pLog, LogInfo, kSource, "Creating REPORT entry FAILED for job: %s with FAILURE REASON: '%s'.",
           file->m_strJobID.c_str(), reason.c_str());
    file->SetFailureReason(reason);
    m_pDriver->PushBackMsgFile(file, KvMessengerReportsMngrInterface::REPORT_FAILED, false, "");
}
