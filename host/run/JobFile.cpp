#include "JobFile.h"

#include <system_error>
#include <utility>

#include "HostMessageFile.h"

namespace kvhost {

JobFile::JobFile(StoredJob job, const Carrier& carrier, std::int64_t slice, std::function<void()> onComing)
    : m_job(std::move(job)), m_nSlice(slice), m_onComing(std::move(onComing)) {
    m_strMsgFileID = std::to_string(m_job.key) + "_" + std::to_string(m_job.attempts);
    m_strJobID = m_job.id;
    m_strRecipient = m_job.recipient;
    m_bGroupInhibit = true;
    SetAccount(*this, carrier);
}

JobFile::~JobFile() {
    if (!m_pathFolder.empty()) {
        std::error_code error;
        std::filesystem::remove_all(m_pathFolder, error);
    }
}

void JobFile::SetContent(std::string subject, std::string text, std::vector<std::string> attachments) {
    m_strSubject = std::move(subject);
    m_strMessage = std::move(text);
    m_vecAttachments = std::move(attachments);
}

void JobFile::SetStatusText(const std::string&) {
    m_onComing();
}

}  // namespace kvhost
