#include "KvProtocolDriverInterface.h"

#include <ctime>

#include "KvFilesUnderWay.h"
#include "KvconCriticalSection.h"

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

bool KvProtocolDriverInterface::Append(KvMessageFile* msgFile) {
    KvconCriticalSection section(&m_pMsgFileQueue->m_lock, true, true, false);
    m_pMsgFileQueue->m_dqMsgFiles.push_back(msgFile);
    KvFilesUnderWay::NoteHandedBack(msgFile);
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
