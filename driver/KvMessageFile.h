#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "KvMessengerReportsMngrInterface.h"

/// Transport security setting of an SMTP account, as the host stores it.
enum SmtpSecurityType : int {
    SMTP_SECURITY_ON_DEMAND = 0,     ///< STARTTLS only when the server demands it
    SMTP_SECURITY_CLEAR = 1,         ///< never STARTTLS
    SMTP_SECURITY_IF_AVAILABLE = 2,  ///< STARTTLS when the server offers it
    SMTP_SECURITY_REQUIRED = 3       ///< STARTTLS, or the connection fails
};

/// One message job: one message to one recipient through one mail account (the carrier).
///
/// Owned by the host, which implements it. The driver holds the pointer from an accepted SendAMessage until
/// it pushes the file back; it never creates, copies or deletes one. One thread at a time: the host's thread
/// while the file waits in a carrier session, then one worker, then the host again.
///
/// The members lie in the order of the host's object and the operations in the order of their slots.
class KvMessageFile {
public:
    virtual ~KvMessageFile() = default;

    /// Stores why delivery failed; called before the file is pushed back as failed.
    virtual void SetFailureReason(const std::string& reason) = 0;
    /// Stores a free status text; called with every push back.
    virtual void SetStatusText(const std::string& text) = 0;

    /// Identifier of this file. Files that agree up to the last underscore are grouped.
    std::string m_strMsgFileID;
    std::string m_strSubject;
    std::string m_strMessage;
    /// Job identifier, printed in report and failure log lines.
    std::string m_strJobID;
    /// The recipient's address, used as it is.
    std::string m_strRecipient;
    std::string m_strCarrierName;
    /// PEM file of the trusted certificates; STARTTLS fails without one.
    std::string m_strSmtpCAFile;
    /// PEM file of the client certificate; empty for none.
    std::string m_strSmtpCertFile;
    /// PEM file of the client certificate's private key.
    std::string m_strSmtpKeyFile;
    /// Non-zero: the job is never grouped with others.
    short m_nGroupInhibit1 = 0;
    /// Non-zero: the job is never grouped with others.
    short m_nGroupInhibit2 = 0;
    /// Paths of the files to attach.
    std::vector<std::string> m_vecAttachments;
    unsigned long m_ulCarrierID = 0;
    /// True: the job is never grouped with others.
    bool m_bGroupInhibit = false;
    /// Two-way delivery is enabled; a job is dispatched as two-way only when m_bIs2Way is set too.
    bool m_b2WayEnabled = false;
    /// The job asks for the response to an earlier two-way message.
    bool m_bIs2WayQuery = false;
    /// The job is a two-way message.
    bool m_bIs2Way = false;
    KvMessengerReportsMngrInterface::ReportsStatus m_eStatus = KvMessengerReportsMngrInterface::REPORT_NONE;
    /// When the status was last set by a push back; 0 when that push carried no status.
    time_t m_tStatusTime = 0;
    bool m_bDriverFlag = false;
    /// True: the host is to delete the file instead of processing it further.
    bool m_bForDeletion = false;
    /// SMTP server: a host name, optionally followed by a colon and a port number.
    std::string m_strSmtpServer;
    std::string m_strSmtpFrom;
    std::string m_strSmtpUser;
    std::string m_strSmtpPassword;
    SmtpSecurityType m_eSmtpSecurity = SMTP_SECURITY_ON_DEMAND;
};
