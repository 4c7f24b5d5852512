#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CommandOutput.h"
#include "JobOperations.h"
#include "StoreJson.h"

namespace kvhost {

/// Tells what became of an operation: one line for each job and a last one with the figures, or one JSON document. One
/// thread at a time.
class OperationReport {
public:
    /// `done`: what a job is afterwards, such as "retried".
    OperationReport(CommandOutput& output, std::string done, bool isJson);

    void Add(const std::vector<OperationResult>& results);
    /// Tells the figures, or the document.
    void Finish();
    bool IsAllDone() const { return m_nNotDone == 0; }

private:
    void Add(const OperationResult& result);

    CommandOutput& m_output;
    const std::string m_strDone;
    const bool m_bJson;
    std::int64_t m_nDone = 0;
    std::int64_t m_nNotDone = 0;
    nlohmann::ordered_json m_results = nlohmann::ordered_json::array();
};

}  // namespace kvhost
