#pragma once

#include <string>

class KvMessageFile;

/// The host's report writer. Thread-safe: the driver takes no lock around it.
class KvMessengerReportsMngrInterface {
public:
    /// Delivery status of a message file. The driver produces no other values; a host may define more.
    enum ReportsStatus : int {
        REPORT_NONE = 0,       ///< no status: a stored one is left untouched
        REPORT_FAILED = 2,     ///< not delivered, or not accepted
        REPORT_COMPLETED = 3,  ///< delivered
        REPORT_ACCEPTED = 7    ///< queued for asynchronous delivery
    };

    /// Writes a report entry for the job. True when it was written. First slot of the interface.
    virtual bool WriteReport(KvMessageFile* msgFile, ReportsStatus status, const std::string& text) = 0;

protected:
    /// Not virtual, so that WriteReport is the first slot; the driver never deletes a reports manager.
    ~KvMessengerReportsMngrInterface() = default;
};
