#include "ReportWriter.h"

#include "KvMessageFile.h"

namespace kvhost {

bool ReportWriter::WriteReport(KvMessageFile* msgFile, ReportsStatus status, const std::string& text) {
    const std::string file = msgFile != nullptr ? msgFile->m_strMsgFileID : "(none)";
    m_log.Tell("report on " + file + ": status " + std::to_string(status) +
               (text.empty() ? "" : ", " + text));
    return true;
}

}  // namespace kvhost
