#include "OperationReport.h"

#include <utility>

#include "VisibleText.h"

namespace kvhost {

OperationReport::OperationReport(CommandOutput& output, std::string done, bool isJson)
    : m_output(output), m_strDone(std::move(done)), m_bJson(isJson) {}

void OperationReport::Add(const std::vector<OperationResult>& results) {
    for (const OperationResult& result : results) {
        Add(result);
    }
}

void OperationReport::Add(const OperationResult& result) {
    ++(result.isDone ? m_nDone : m_nNotDone);
    if (m_bJson) {
        m_results.push_back({{"job", result.id}, {"done", result.isDone}, {"why", result.why}});
        return;
    }
    const std::string told = result.isDone ? m_strDone : "not " + m_strDone + ": " + result.why;
    m_output.Write(MakeVisible(result.id + ": " + told) + "\n");
}

void OperationReport::Finish() {
    if (m_bJson) {
        m_output.Write(
            DumpJson({{"results", m_results}, {"summary", {{"done", m_nDone}, {"not_done", m_nNotDone}}}}));
    } else if (m_nDone + m_nNotDone != 1) {
        m_output.Write(std::to_string(m_nDone) + " " + m_strDone + ", " + std::to_string(m_nNotDone) +
                       " not\n");
    }
}

}  // namespace kvhost
