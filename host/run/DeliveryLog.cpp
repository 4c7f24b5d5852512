#include "DeliveryLog.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "TimeText.h"

namespace kvhost {

using nlohmann::ordered_json;

std::string DeliveryLine(const AttemptReport& report, const std::optional<Milliseconds>& waited) {
    ordered_json line;
    line["time"] = TimeText(report.ended);
    line["job"] = report.job.id;
    line["carrier"] = report.job.carrier;
    line["recipient"] = report.job.recipient;
    line["attempt"] = report.number;
    line["outcome"] = AttemptOutcomeName(report.outcome);
    line["reason"] = report.reason;
    line["state"] = JobStateName(report.next);
    line["due"] = report.due ? ordered_json(TimeText(*report.due)) : ordered_json();
    line["decision"] = report.decision;
    line["queue_ms"] = waited ? ordered_json(std::int64_t{waited->count()}) : ordered_json();
    line["delivery_ms"] = std::int64_t{(report.ended - report.begun).count()};
    return line.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

DeliveryLog::DeliveryLog(const RotatedFile& file, std::function<void(const std::string&)> warn)
    : m_strPath(file.path), m_file(file), m_warn(std::move(warn)) {}

void DeliveryLog::JobHandedOver(const StoredJob& job, Milliseconds waited) {
    m_mapWaited[job.key] = waited;
}

void DeliveryLog::AttemptEnded(const AttemptReport& report) {
    const std::string cause = m_file.Append(DeliveryLine(report, TakeWaited(report.job.key)));
    if (cause.empty()) {
        NoteSuccess();
    } else {
        NoteLoss(cause);
    }
}

std::optional<Milliseconds> DeliveryLog::TakeWaited(std::int64_t job) {
    const auto found = m_mapWaited.find(job);
    if (found == m_mapWaited.end()) {
        return std::nullopt;
    }
    const Milliseconds waited = found->second;
    m_mapWaited.erase(found);
    return waited;
}

void DeliveryLog::NoteLoss(const std::string& cause) {
    ++m_nLost;
    if (!m_isLosing) {
        m_isLosing = true;
        m_warn("The delivery log " + m_strPath + " cannot be written: " + cause +
               ". Lines of it are lost until that is mended; delivery goes on.");
    }
}

void DeliveryLog::NoteSuccess() {
    if (m_isLosing) {
        m_isLosing = false;
        m_warn("The delivery log " + m_strPath + " is written again; " + std::to_string(m_nLost.load()) +
               " lines of it are lost since the start.");
    }
}

}  // namespace kvhost
