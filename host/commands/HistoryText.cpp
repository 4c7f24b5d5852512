#include "HistoryText.h"

#include <sstream>

#include "Duration.h"
#include "PeopleText.h"
#include "TextTable.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr std::size_t kLabelWidth = 11;
constexpr std::size_t kIndent = 2;

std::string Line(const std::string& label, const std::string& value) {
    return label + std::string(kLabelWidth - label.size(), ' ') + MakeVisible(value) + "\n";
}

std::string LineUnlessEmpty(const std::string& label, const std::string& value) {
    return value.empty() ? "" : Line(label, value);
}

std::string DueText(const StoredJob& job, StoreTime now) {
    return job.due > now ? Ago(job.due, now) + ", at " + LocalTime(job.due)
                         : "now, since " + MomentText(job.due, now);
}

std::string Standing(const StoredJob& job, StoreTime now) {
    std::string text =
        Line("State", std::string(JobStateName(job.state)) + ", since " + MomentText(job.changed, now));
    text += LineUnlessEmpty("Why", job.decision);
    text += LineUnlessEmpty("Reason", job.reason);
    if (job.state == JobState::Queued) {
        text += Line("Next try", DueText(job, now));
    }
    return text;
}

std::string Nature(const StoredJob& job, StoreTime now) {
    std::string text = Line("Carrier", job.carrier) + Line("Recipient", job.recipient);
    text += LineUnlessEmpty("Subject", job.subject);
    text += LineUnlessEmpty("Urgent", job.isUrgent ? "yes" : "");
    text += Line("Submitted", MomentText(job.submitted, now));
    text += job.deadline ? Line("Deadline", MomentText(*job.deadline, now)) : "";
    text +=
        job.crashes > 0 ? Line("Crashes", std::to_string(job.crashes) + " while it was with the driver") : "";
    return text;
}

std::string AttemptsText(const std::vector<Attempt>& attempts, StoreTime now) {
    if (attempts.empty()) {
        return "";
    }
    TextTable table({{"#", TextTable::Align::Right},
                     {"BEGUN"},
                     {"TOOK", TextTable::Align::Right},
                     {"OUTCOME"},
                     {"REASON"},
                     {"DECISION"}});
    for (const Attempt& attempt : attempts) {
        table.Add({std::to_string(attempt.number), LocalTime(attempt.begun),
                   DurationText(attempt.ended.value_or(now) - attempt.begun),
                   attempt.outcome ? AttemptOutcomeName(*attempt.outcome) : "under way",
                   OrDash(StripLineEnd(attempt.reason)), OrDash(attempt.decision)});
    }
    return "\nAttempts\n" + table.Text(kIndent);
}

std::string EventsText(const std::vector<JobEvent>& events) {
    if (events.empty()) {
        return "";
    }
    TextTable table({{"AT"}, {"WHAT"}});
    for (const JobEvent& event : events) {
        table.Add({LocalTime(event.at), event.text});
    }
    return "\nEvents\n" + table.Text(kIndent);
}

std::string AttachmentsText(const std::vector<StoredAttachment>& attachments) {
    if (attachments.empty()) {
        return "";
    }
    TextTable table({{"NAME"}, {"SIZE", TextTable::Align::Right}, {"SHA-256"}});
    for (const StoredAttachment& attachment : attachments) {
        table.Add({attachment.name, SizeText(attachment.size), attachment.digest});
    }
    return "\nAttachments\n" + table.Text(kIndent);
}

/// The lines of the message, moved in so that none of them can be taken for one of ours.
std::string MessageText(const std::string& message) {
    std::string text = "\nText\n";
    std::istringstream lines(message);
    for (std::string line; std::getline(lines, line);) {
        text += std::string(kIndent, ' ') + MakeVisible(StripLineEnd(line)) + "\n";
    }
    return text;
}

}  // namespace

std::string HistoryText(const JobHistory& history, StoreTime now, bool withText) {
    return Line("Job", history.job.id) + Standing(history.job, now) + Nature(history.job, now) +
           AttemptsText(history.attempts, now) + EventsText(history.events) +
           AttachmentsText(history.attachments) + (withText ? MessageText(history.text) : "");
}

}  // namespace kvhost
