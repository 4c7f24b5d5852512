#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "RotatingFile.h"
#include "RunObserver.h"

namespace kvhost {

/// The line of the delivery log for one attempt, without its line end: a JSON object (RFC 8259) in UTF-8. `waited`:
/// before the hand-over; nothing when that is not known.
std::string DeliveryLine(const AttemptReport& report, const std::optional<Milliseconds>& waited);

/// One JSON line for each attempt that has ended, in a file that is begun anew when it is full. A line that cannot be
/// written is lost and counted; delivery goes on. LostLines from any thread, all else one thread at a time.
class DeliveryLog : public RunObserver {
public:
    /// `warn`: told once when lines begin to get lost, and once when they no longer do. Throws BadInput when the file
    /// cannot be opened.
    DeliveryLog(const RotatedFile& file, std::function<void(const std::string&)> warn);

    void JobHandedOver(const StoredJob& job, Milliseconds waited) override;
    void AttemptEnded(const AttemptReport& report) override;

    /// Since the process began.
    std::uint64_t LostLines() const { return m_nLost.load(); }

private:
    std::optional<Milliseconds> TakeWaited(std::int64_t job);
    void NoteLoss(const std::string& cause);
    void NoteSuccess();

    const std::string m_strPath;
    RotatingFile m_file;
    const std::function<void(const std::string&)> m_warn;
    std::map<std::int64_t, Milliseconds> m_mapWaited;  ///< of the jobs that are with the driver
    bool m_isLosing = false;
    std::atomic<std::uint64_t> m_nLost{0};
};

}  // namespace kvhost
