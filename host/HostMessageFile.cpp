#include "HostMessageFile.h"

#include "MailText.h"

namespace kvhost {

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
    m_strCarrierName = carrier.name;
    m_ulCarrierID = carrier.id;
    m_strSmtpServer = carrier.server;
    m_strSmtpFrom = carrier.sender;
    m_strSmtpUser = carrier.user;
    m_strSmtpPassword = carrier.password;
    m_eSmtpSecurity = carrier.security;
    m_strSmtpCAFile = carrier.caFile;
    m_strSmtpCertFile = carrier.certFile;
    m_strSmtpKeyFile = carrier.keyFile;
}

}  // namespace kvhost
