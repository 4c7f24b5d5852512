#include "StoreJson.h"

#include "TimeText.h"

namespace kvhost {

using nlohmann::ordered_json;

namespace {

ordered_json AttemptJson(const Attempt& attempt) {
    return {
        {"number", attempt.number},
        {"begun", TimeText(attempt.begun)},
        {"ended", JsonOf(attempt.ended)},
        {"outcome", attempt.outcome ? ordered_json(AttemptOutcomeName(*attempt.outcome)) : ordered_json()},
        {"reason", attempt.reason},
        {"decision", attempt.decision}};
}

ordered_json AttachmentJson(const StoredAttachment& attachment) {
    return {{"name", attachment.name}, {"size", attachment.size}, {"sha256", attachment.digest}};
}

}  // namespace

ordered_json JsonOf(const std::optional<StoreTime>& time) {
    return time ? ordered_json(TimeText(*time)) : ordered_json();
}

ordered_json JsonOf(const StoredJob& job) {
    const bool isQueued = job.state == JobState::Queued;
    return {{"job", job.id},
            {"key", job.key},
            {"state", JobStateName(job.state)},
            {"carrier", job.carrier},
            {"recipient", job.recipient},
            {"subject", job.subject},
            {"urgent", job.isUrgent},
            {"submitted", TimeText(job.submitted)},
            {"changed", TimeText(job.changed)},
            {"due", JsonOf(isQueued ? std::optional(job.due) : std::nullopt)},
            {"deadline", JsonOf(job.deadline)},
            {"attempts", job.attempts},
            {"crashes", job.crashes},
            {"reason", job.reason},
            {"decision", job.decision}};
}

ordered_json JsonOf(const JobHistory& history, bool withText) {
    ordered_json document = JsonOf(history.job);
    document["attachments"] = ordered_json::array();
    for (const StoredAttachment& attachment : history.attachments) {
        document["attachments"].push_back(AttachmentJson(attachment));
    }
    ordered_json attempts = ordered_json::array();
    for (const Attempt& attempt : history.attempts) {
        attempts.push_back(AttemptJson(attempt));
    }
    ordered_json events = ordered_json::array();
    for (const JobEvent& event : history.events) {
        events.push_back({{"at", TimeText(event.at)}, {"text", event.text}});
    }
    document["history"] = {{"attempts", attempts}, {"events", events}};
    if (withText) {
        document["text"] = history.text;
    }
    return document;
}

ordered_json JsonOf(const StateCounts& counts) {
    ordered_json document = ordered_json::object();
    for (int number = 0; number < kJobStateCount; ++number) {
        const auto state = static_cast<JobState>(number);
        const auto found = counts.find(state);
        document[JobStateName(state)] = found == counts.end() ? 0 : found->second;
    }
    return document;
}

std::string DumpJson(const ordered_json& document) {
    return document.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace kvhost
