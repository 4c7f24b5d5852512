#pragma once

#include <map>
#include <string>

#include "KvLogInterface.h"
#include "KvMessageFile.h"
#include "KvMessageFileQueue.h"
#include "KvMessengerInstConfBasic.h"
#include "KvMessengerReportsMngrInterface.h"

/// What a host knows of a protocol driver: the root of the driver hierarchy.
///
/// Calling order: GetDriverInstance; assignment of the three members; Configure; Setup; then SendAMessage,
/// Send2WayRespQuery and PeriodicEvent in any interleaving; finally Cleanup and ReleaseDriverInstance.
///
/// The operations are declared in the order of their slots and the members in the order in which they lie:
/// hosts are compiled against both. The defaults do nothing and report success.
class KvProtocolDriverInterface {
public:
    KvProtocolDriverInterface() = default;
    virtual ~KvProtocolDriverInterface() = default;

    KvProtocolDriverInterface(const KvProtocolDriverInterface&) = delete;
    KvProtocolDriverInterface& operator=(const KvProtocolDriverInterface&) = delete;

    virtual const char* GetName() = 0;
    virtual const char* GetVersion() = 0;
    virtual const char* GetProtocolName() = 0;
    virtual const char* GetCarrierName() = 0;

    /// Takes the host's key/value configuration of the driver. Call it before Setup.
    virtual bool Configure(std::map<std::string, std::string>& settings);
    /// Makes the driver ready for messages. `instConf` stays the host's.
    virtual bool Setup(KvMessengerInstConfBasic* instConf);
    /// The host's timer tick: the driver dispatches what it has collected.
    virtual bool PeriodicEvent();
    virtual bool ResetDevice();
    /// Hands over a query for the response to an earlier two-way message; otherwise as SendAMessage.
    virtual bool Send2WayRespQuery(KvMessageFile* msgFile,
                                   KvMessengerReportsMngrInterface::ReportsStatus& status);
    /// Hands over one message file. True when it was accepted: the host must not touch it until it comes back
    /// through the return queue. False leaves it with the host. `status` tells which.
    virtual bool SendAMessage(KvMessageFile* msgFile,
                              KvMessengerReportsMngrInterface::ReportsStatus& status) = 0;
    /// Ends what is under way and releases what Setup made.
    virtual bool Cleanup();
    virtual bool ProcessSignal();

    /// Hands a finished file back to the host; from then on the driver must not touch it. Thread-safe.
    ///
    /// A non-zero `status` is stored and stamped with the current time; status 0 leaves the stored status and
    /// sets the status time to 0. False, and nothing done, without a return queue or without a file.
    bool PushBackMsgFile(KvMessageFile* msgFile, KvMessengerReportsMngrInterface::ReportsStatus status,
                         bool flag, const std::string& text);

    /// Hands back a file that the host is to delete; status, time and text are left alone. Thread-safe.
    /// False, and nothing done, without a return queue or without a file.
    bool PushBackMsgFileForDeletion(KvMessageFile* msgFile);

    /// Writes a report entry without handing the file back: the result of the host's WriteReport, or false
    /// without a reports manager. A non-zero `status` is stored in the file. A null file is passed on as it is.
    /// Thread-safe as far as the host's reports manager is.
    bool WriteMessageReport(KvMessageFile* msgFile, KvMessengerReportsMngrInterface::ReportsStatus status,
                            const std::string& text);

    /// Log sink, assigned by the host; null silences the driver. Not owned.
    KvLogInterface* m_pLog = nullptr;
    /// Report writer, assigned by the host. Not owned.
    KvMessengerReportsMngrInterface* m_pReportsMngr = nullptr;
    /// Return queue, assigned by the host before the first message. Not owned.
    KvMessageFileQueue* m_pMsgFileQueue = nullptr;

private:
    bool Append(KvMessageFile* msgFile);
};
