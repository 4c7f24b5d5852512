#pragma once

#include "KvSmartProtocolDriverDelegateIface.h"

class KvEmailDriver;

/// Sends the message files of one carrier session through an SMTP engine, one transaction per file or group, and
/// pushes every file back: status 3 when it was sent, 2 with the server's reply text as the reason when not.
/// One thread at a time. No operation throws. The connection is neither closed nor reset after a failure; the
/// cache decides.
class KvSMTPMsgDispatcher : public KvSmartProtocolDriverDelegateIface {
public:
    KvSMTPMsgDispatcher() = default;
    ~KvSMTPMsgDispatcher() override = default;

    /// All files as one message to several recipients, duplicates kept. Sender, subject, text and attachments are
    /// the first file's. One refused recipient fails the whole group. False, and nothing sent, for an empty group.
    bool SendMessageGroup(std::list<KvMessageFile*> group) override;
    bool SendMessage(KvMessageFile* file) override;

    /// Compatibility: SMTP has no two-way delivery; these two answer false and leave the file untouched: it is not
    /// pushed back.
    /// Relied on by: hosts that keep two-way jobs to themselves.
    /// Held by: KvSMTPMsgDispatcherTest.ATwoWayMessageIsLeftUntouched.
    bool Send2WayMessage(KvMessageFile* file) override;
    bool Query2WayResponse(KvMessageFile* file) override;

protected:
    bool Send(const std::list<KvMessageFile*>& files);
    bool TrySendMail(const std::list<KvMessageFile*>& files, std::string& reason);
    void ReportCompleted(KvMessageFile* file);
    void ReportFailed(KvMessageFile* file, const std::string& reason);
};
