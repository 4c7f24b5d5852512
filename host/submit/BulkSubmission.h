#pragma once

#include <string>
#include <vector>

#include "HostConfig.h"
#include "LineReader.h"
#include "SubmissionReport.h"
#include "SubmissionTaker.h"

namespace kvhost {

/// Takes submissions in from JSON Lines, up to 500 in one transaction. One thread at a time; refers to all that it is
/// made of.
class BulkSubmission {
public:
    enum class Mode {
        EachAlone,    ///< a refused line leaves the others
        AllOrNothing  ///< nothing is stored when a line is refused; ids in conflict are found too late for that
    };

    BulkSubmission(SubmissionTaker& taker, const HostConfig& config, SubmissionReport& report)
        : m_taker(taker), m_config(config), m_report(report) {}

    /// Reads all lines; a line's receipt is told once it is on disk. Lines that come slowly are not kept waiting for
    /// others. Throws BadInput when reading fails, StoreError and SQLite::Exception; what was told stays stored.
    void Run(LineReader& lines, Mode mode);

private:
    void Add(const std::string& text, const LineReader& lines);
    bool IsGroupFull() const;
    void StoreGroup();
    void StoreAllOrNothing();

    SubmissionTaker& m_taker;
    const HostConfig& m_config;
    SubmissionReport& m_report;
    std::vector<SubmissionDraft> m_vecDrafts;  ///< read and not stored yet
    std::vector<SubmissionPlace> m_vecPlaces;  ///< of the drafts
    std::size_t m_nBytes = 0;                  ///< of the drafts' lines
};

}  // namespace kvhost
