#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "HostConfig.h"
#include "Job.h"
#include "KvMessageFile.h"

namespace kvhost {

/// Has `file` go through the account of `carrier`.
void SetAccount(KvMessageFile& file, const Carrier& carrier);

/// One message of a job to one of its recipients, as the driver gets it. One thread at a time, by the rules
/// of KvMessageFile.
///
/// The files of one job have the identifiers "ID_1", "ID_2" and so on, whatever ID itself contains: a driver
/// groups files that agree up to the last underscore, so a job's files travel together and with no other
/// job's.
class HostMessageFile : public KvMessageFile {
public:
    /// The file for the recipient at `recipient`, whose outcome is kept at `outcome`.
    HostMessageFile(const Job& job, const Carrier& carrier, std::size_t recipient, std::size_t outcome);

    void SetFailureReason(const std::string& reason) override { m_strFailureReason = reason; }
    /// The last thing that a driver does with a file before it hands it back.
    void SetStatusText(const std::string& text) override;

    /// Notes, before the hand-over, the slice that the file goes with, and what is to be called when it is about to come
    /// back: on the driver's thread, thread-safe, throws nothing.
    void GoWith(std::int64_t slice, std::function<void()> onComing);
    std::int64_t Slice() const { return m_nSlice; }

    const std::string& FailureReason() const { return m_strFailureReason; }
    const std::string& StatusText() const { return m_strStatusText; }
    std::size_t OutcomeIndex() const { return m_nOutcome; }

private:
    const std::size_t m_nOutcome;
    std::int64_t m_nSlice = 0;
    std::function<void()> m_onComing;
    std::string m_strFailureReason;
    std::string m_strStatusText;
};

}  // namespace kvhost
