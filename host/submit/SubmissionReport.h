#pragma once

#include <cstddef>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "SubmissionTaker.h"

namespace kvhost {

/// The receipt as a JSON object: id (null when none could be read), status, and for what was not taken its faults.
nlohmann::json ToJson(const SubmissionReceipt& receipt);

/// One line of JSON. Bytes that are no UTF-8 are replaced.
std::string ToLine(const nlohmann::json& value);

/// Where a submission stands; without a file it has no place.
struct SubmissionPlace {
    std::string file;
    unsigned long line = 0;
};

/// Tells the receipts of a command, one line each, and counts them. One thread at a time.
class SubmissionReport {
public:
    SubmissionReport(std::ostream& output, bool isJson) : m_output(output), m_bJson(isJson) {}

    void Tell(const SubmissionReceipt& receipt, const SubmissionPlace& place = {});
    /// Lets the reader of the output see what was told so far.
    void Flush() { m_output.flush(); }
    /// "3 stored, 1 repeated, 0 in conflict, 2 refused".
    std::string Summary() const;
    /// Of the command: 0 when everything is stored or repeated, 1 otherwise.
    int ExitStatus() const;

private:
    std::size_t Count(SubmissionReceipt::Status status) const;

    std::ostream& m_output;
    const bool m_bJson;
    std::map<SubmissionReceipt::Status, std::size_t> m_mapCounts;
};

}  // namespace kvhost
