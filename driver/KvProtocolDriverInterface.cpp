#include "KvProtocolDriverInterface.h"

#include <ctime>
#include <new>

#include "KvCoreHelpers.h"
#include "KvFilesUnderWay.h"
#include "KvconCriticalSection.h"

namespace {

constexpr int kAppendAttempts = 50;
constexpr int kPauseForMemoryMs = 100;

/// False when there is no memory; the `last` attempt throws std::bad_alloc then.
bool TryAppend(KvMessageFileQueue& queue, KvMessageFile* msgFile, bool last) {
    const KvconCriticalSection section(&queue.m_lock, true, true, false);
    try {
        queue.m_dqMsgFiles.push_back(msgFile);
    } catch (const std::bad_alloc&) {
        if (last) {
            throw;
        }
        return false;
    }
    KvFilesUnderWay::NoteHandedBack(msgFile);
    return true;
}

}  // namespace

bool KvProtocolDriverInterface::Configure(std::map<std::string, std::string>&) {
    return true;
}

bool KvProtocolDriverInterface::Setup(KvMessengerInstConfBasic*) {
    return true;
}

bool KvProtocolDriverInterface::PeriodicEvent() {
    return true;
}

bool KvProtocolDriverInterface::ResetDevice() {
    return true;
}

bool KvProtocolDriverInterface::Send2WayRespQuery(KvMessageFile*,
                                                  KvMessengerReportsMngrInterface::ReportsStatus&) {
    return true;
}

bool KvProtocolDriverInterface::Cleanup() {
    return true;
}

bool KvProtocolDriverInterface::ProcessSignal() {
    return true;
}

bool KvProtocolDriverInterface::PushBackMsgFile(KvMessageFile* msgFile,
                                                KvMessengerReportsMngrInterface::ReportsStatus status,
                                                bool flag, const std::string& text) {
    if (m_pMsgFileQueue == nullptr || msgFile == nullptr) {
        return false;
    }
    if (status != KvMessengerReportsMngrInterface::REPORT_NONE) {
        msgFile->m_eStatus = status;
        msgFile->m_tStatusTime = time(nullptr);
    } else {
        msgFile->m_tStatusTime = 0;
    }
    msgFile->m_bDriverFlag = flag;
    msgFile->m_bForDeletion = false;
    msgFile->SetStatusText(text);
    return Append(msgFile);
}

bool KvProtocolDriverInterface::PushBackMsgFileForDeletion(KvMessageFile* msgFile) {
    if (m_pMsgFileQueue == nullptr || msgFile == nullptr) {
        return false;
    }
    msgFile->m_bForDeletion = true;
    return Append(msgFile);
}

/// A file that is not appended is lost to the host, so a queue without the memory to grow is tried again for a while;
/// its lock is free meanwhile, for the host that empties it. Throws std::bad_alloc when that does not help.
bool KvProtocolDriverInterface::Append(KvMessageFile* msgFile) {
    for (int attempt = 1; !TryAppend(*m_pMsgFileQueue, msgFile, attempt == kAppendAttempts); ++attempt) {
        Kvsleep(kPauseForMemoryMs);
    }
    return true;
}

bool KvProtocolDriverInterface::WriteMessageReport(KvMessageFile* msgFile,
                                                   KvMessengerReportsMngrInterface::ReportsStatus status,
                                                   const std::string& text) {
    if (m_pReportsMngr == nullptr) {
        return false;
    }
    if (status != KvMessengerReportsMngrInterface::REPORT_NONE && msgFile != nullptr) {
        msgFile->m_eStatus = status;
    }
    return m_pReportsMngr->WriteReport(msgFile, status, text);
}
