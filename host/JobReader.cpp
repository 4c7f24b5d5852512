#include "JobReader.h"

#include <utility>

#include "InputChecks.h"
#include "MailText.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr const char* kFieldNames = "id, carrier, recipient, recipients, subject, text or attachments";

void RefuseUnfitFile(JsonFields& fields, const std::string& path) {
    if (const auto wrong = WhyNotAReadableFile(path)) {
        fields.Refuse("attachments", *wrong);
        return;
    }
    const std::string name = std::filesystem::path(path).filename().string();
    if (const auto wrong = WhyNotAnAttachmentName(name)) {
        fields.Refuse("attachments", *wrong + "; rename \"" + MakeVisible(path) + "\"");
    }
}

}  // namespace

Job JobReader::Read(const std::string& text, const std::string& file, unsigned long line) {
    if (m_vecFiles.empty() || m_vecFiles.back() != file) {
        m_vecFiles.push_back(file);
    }
    Job job;
    job.file = file;
    job.line = line;
    const ParsedObject parsed = ParseJsonObject(text);
    if (parsed.wrong) {
        job.problems.push_back({file, line, "", *parsed.wrong});
        return job;
    }
    JsonFields fields(parsed.object);
    ReadFields(fields, job);
    for (const JsonFields::Fault& fault : fields.Faults()) {
        job.problems.push_back({file, line, fault.field, fault.text});
    }
    return job;
}

void JobReader::ReadFields(JsonFields& fields, Job& job) {
    ReadId(fields, job);
    ReadCarrier(fields, job);
    ReadRecipients(fields, job);
    ReadMessage(fields, job);
    ReadAttachments(fields, job);
    fields.RefuseOthers(kFieldNames);
}

void JobReader::ReadId(JsonFields& fields, Job& job) {
    const auto id = fields.NeededText("id");
    if (!id) {
        return;
    }
    if (const auto wrong = WhyNotAName(*id)) {
        fields.Refuse("id", *wrong);
        return;
    }
    job.id = *id;
    const auto [first, isNew] = m_mapIds.emplace(*id, Place{m_vecFiles.size() - 1, job.line});
    if (!isNew) {
        fields.Refuse("id", "expected an id of its own, \"" + *id + "\" is used at " +
                                m_vecFiles[first->second.file] + ":" + std::to_string(first->second.line));
    }
}

void JobReader::ReadCarrier(JsonFields& fields, Job& job) {
    const auto name = fields.NeededText("carrier");
    if (!name) {
        return;
    }
    job.carrier = *name;
    const auto refused = m_config.refusedCarriers.find(*name);
    if (refused != m_config.refusedCarriers.end()) {
        fields.Refuse("carrier", "the carrier is refused: " + refused->second);
    } else if (m_config.carriers.count(*name) == 0) {
        fields.Refuse("carrier",
                      "expected a carrier of the configuration, found \"" + MakeVisible(*name) + "\"");
    }
}

void JobReader::ReadRecipients(JsonFields& fields, Job& job) {
    const bool single = fields.Has("recipient");
    if (single == fields.Has("recipients")) {
        fields.Refuse("recipient", single ? "expected either recipient or recipients, found both"
                                          : "expected recipient or recipients, both fields are missing");
    }
    job.recipients = fields.Texts("recipients").value_or(std::vector<std::string>{});
    if (const auto recipient = fields.Text("recipient")) {
        job.recipients.push_back(*recipient);
    } else if (fields.Has("recipients") && job.recipients.empty() && fields.Faults().empty()) {
        fields.Refuse("recipients", "expected at least one recipient");
    }
    for (const std::string& recipient : job.recipients) {
        if (const auto wrong = WhyNotAnAddress(recipient)) {
            fields.Refuse(single ? "recipient" : "recipients", *wrong);
        }
    }
}

void JobReader::ReadMessage(JsonFields& fields, Job& job) {
    job.subject = fields.Text("subject").value_or("");
    if (const auto wrong = WhyNotOneLine(job.subject)) {
        fields.Refuse("subject", *wrong);
    }
    job.text = fields.NeededText("text").value_or("");
    if (const auto wrong = WhyNotAMessageText(job.text)) {
        fields.Refuse("text", *wrong);
    } else if (const auto why = WhyOnlyAttached(job.text)) {
        fields.Refuse("text",
                      "expected a text that mail can carry, " + *why + "; attach it as a file instead");
    }
}

void JobReader::ReadAttachments(JsonFields& fields, Job& job) {
    for (const std::string& path : fields.Texts("attachments").value_or(std::vector<std::string>{})) {
        job.attachments.push_back(ResolveBeside(job.file, path));
        RefuseUnfitFile(fields, job.attachments.back());
    }
}

}  // namespace kvhost
