#pragma once

#include <string>

#include "KvMessengerReportsMngrInterface.h"
#include "LogSink.h"

namespace kvhost {

/// Writes the driver's report entries to the log. Thread-safe, as the log is.
class ReportWriter : public KvMessengerReportsMngrInterface {
public:
    explicit ReportWriter(LogSink& log) : m_log(log) {}

    /// Always true.
    bool WriteReport(KvMessageFile* msgFile, ReportsStatus status, const std::string& text) override;

private:
    LogSink& m_log;
};

}  // namespace kvhost
