#include "HostMessageFile.h"

#include <utility>

#include "MailText.h"

namespace kvhost {

void SetAccount(KvMessageFile& file, const Carrier& carrier) {
    file.m_strCarrierName = carrier.name;
    file.m_ulCarrierID = carrier.id;
    file.m_strSmtpServer = carrier.server;
    file.m_strSmtpFrom = carrier.sender;
    file.m_strSmtpUser = carrier.user;
    file.m_strSmtpPassword = carrier.password;
    file.m_eSmtpSecurity = carrier.security;
    file.m_strSmtpCAFile = carrier.caFile;
    file.m_strSmtpCertFile = carrier.certFile;
    file.m_strSmtpKeyFile = carrier.keyFile;
}

HostMessageFile::HostMessageFile(const Job& job, const Carrier& carrier, std::size_t recipient,
                                 std::size_t outcome)
    : m_nOutcome(outcome) {
    m_strMsgFileID = job.id + "_" + std::to_string(recipient + 1);
    m_strJobID = job.id;
    const PreparedMail mail = PrepareMail(job.subject, job.text);
    m_strSubject = mail.subject;
    m_strMessage = mail.text;
    m_strRecipient = job.recipients[recipient];
    m_vecAttachments = job.attachments;
    SetAccount(*this, carrier);
}

void HostMessageFile::SetStatusText(const std::string& text) {
    m_strStatusText = text;
    if (m_onComing) {
        m_onComing();
    }
}

void HostMessageFile::GoWith(std::int64_t slice, std::function<void()> onComing) {
    m_nSlice = slice;
    m_onComing = std::move(onComing);
}

}  // namespace kvhost
