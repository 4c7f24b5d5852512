#include "SubmissionReport.h"

#include "ExitStatus.h"
#include "Problem.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

using Status = SubmissionReceipt::Status;
using nlohmann::json;

std::string TextLine(const SubmissionReceipt& receipt, const SubmissionPlace& place) {
    std::string faults;
    for (const SubmissionDraft::Fault& fault : receipt.faults) {
        faults += faults.empty() ? ": " : "; ";
        faults += place.file.empty() ? Describe(fault)
                                     : Describe(Problem{place.file, place.line, fault.field, fault.text});
    }
    return MakeVisible((receipt.id.empty() ? "-" : receipt.id) + " " + SubmissionStatusName(receipt.status) +
                       faults);
}

}  // namespace

json ToJson(const SubmissionReceipt& receipt) {
    json object = {{"id", receipt.id.empty() ? json() : json(receipt.id)},
                   {"status", SubmissionStatusName(receipt.status)}};
    if (!receipt.faults.empty()) {
        object["faults"] = json::array();
        for (const SubmissionDraft::Fault& fault : receipt.faults) {
            object["faults"].push_back({{"field", fault.field}, {"text", fault.text}});
        }
    }
    return object;
}

std::string ToLine(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

void SubmissionReport::Tell(const SubmissionReceipt& receipt, const SubmissionPlace& place) {
    ++m_mapCounts[receipt.status];
    if (!m_bJson) {
        m_output << TextLine(receipt, place) << "\n";
        return;
    }
    json object = ToJson(receipt);
    if (!place.file.empty()) {
        object["file"] = place.file;
        object["line"] = place.line;
    }
    m_output << ToLine(object) << "\n";
}

std::string SubmissionReport::Summary() const {
    return std::to_string(Count(Status::Stored)) + " stored, " + std::to_string(Count(Status::Repeated)) +
           " repeated, " + std::to_string(Count(Status::Conflict)) + " in conflict, " +
           std::to_string(Count(Status::Refused)) + " refused";
}

int SubmissionReport::ExitStatus() const {
    return Count(Status::Conflict) + Count(Status::Refused) == 0 ? kExitSuccess : kExitSomeFailed;
}

std::size_t SubmissionReport::Count(Status status) const {
    const auto found = m_mapCounts.find(status);
    return found == m_mapCounts.end() ? 0 : found->second;
}

}  // namespace kvhost
