#include "Verdict.h"

#include "VisibleText.h"

namespace kvhost {

Verdict VerdictOn(const KvMessageFile& file, const std::string& failureReason) {
    using Reports = KvMessengerReportsMngrInterface;
    if (file.m_bForDeletion) {
        return {false, "the driver handed it back to be deleted"};
    }
    switch (file.m_eStatus) {
        case Reports::REPORT_COMPLETED:
            return {true, ""};
        case Reports::REPORT_FAILED:
            return {false, MakeVisible(StripLineEnd(failureReason))};
        default:
            return {false, "the driver handed it back with the status " +
                               std::to_string(static_cast<int>(file.m_eStatus))};
    }
}

}  // namespace kvhost
