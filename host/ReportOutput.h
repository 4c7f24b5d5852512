#pragma once

#include <string>

namespace kvhost {

/// The standard output, kept for the report alone: from construction on, whatever else the process prints to
/// it (a driver may) goes to standard error. One thread at a time; one object in a process.
class ReportOutput {
public:
    ReportOutput();
    /// Gives standard output back.
    ~ReportOutput();

    ReportOutput(const ReportOutput&) = delete;
    ReportOutput& operator=(const ReportOutput&) = delete;

    /// Writes all of `text`. False when that fails, for example on a full disk.
    bool Write(const std::string& text);

private:
    int m_nDescriptor;  ///< the true standard output; -1 when it was closed
};

}  // namespace kvhost
