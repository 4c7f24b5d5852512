#include "SubmissionParser.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "Duration.h"
#include "JsonObject.h"
#include "TimeText.h"
#include "TransferDecoding.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

using nlohmann::json;

constexpr const char* kFieldNames =
    "id, carrier, recipient, recipients, subject, text, attachments, urgent, not_before or deadline";

/// Reads the fields of one object into a draft.
class DraftReader {
public:
    DraftReader(const json& object, SubmissionOrigin origin, StoreTime now)
        : m_fields(object), m_origin(origin), m_now(now) {}

    SubmissionDraft Read() {
        Submission& submission = m_draft.submission;
        submission.id = m_fields.Has("id") ? m_fields.Text("id").value_or("") : NewSubmissionId();
        submission.carrier = m_fields.NeededText("carrier").value_or("");
        ReadRecipients();
        submission.subject = m_fields.Text("subject").value_or("");
        submission.text = m_fields.NeededText("text").value_or("");
        ReadAttachments();
        submission.isUrgent = m_fields.Boolean("urgent").value_or(false);
        ReadTime("not_before", submission.notBefore);
        ReadTime("deadline", submission.deadline);
        m_fields.RefuseOthers(kFieldNames);
        for (const JsonFields::Fault& fault : m_fields.Faults()) {
            m_draft.faults.push_back({fault.field, fault.text});
        }
        return std::move(m_draft);
    }

private:
    void ReadRecipients() {
        const bool single = m_fields.Has("recipient");
        if (single == m_fields.Has("recipients")) {
            m_fields.Refuse("recipient", single
                                             ? "expected either recipient or recipients, found both"
                                             : "expected recipient or recipients, both fields are missing");
        }
        const auto recipient = m_fields.Text("recipient");
        auto recipients = m_fields.Texts("recipients");
        if (recipient) {
            m_draft.submission.recipients = {*recipient};
        } else if (recipients) {
            m_draft.submission.recipients = std::move(*recipients);
        }
    }

    void ReadTime(const std::string& key, std::optional<StoreTime>& time) {
        if (const auto text = m_fields.Text(key)) {
            const std::string wrong = ReadMoment(*text, m_now, time);
            if (!wrong.empty()) {
                m_fields.Refuse(key, wrong);
            }
        }
    }

    void ReadAttachments() {
        const json* list = m_fields.Node("attachments");
        if (list == nullptr) {
            return;
        }
        if (!list->is_array()) {
            m_fields.Refuse("attachments", "expected an array, found " + TypeName(*list));
            return;
        }
        for (std::size_t index = 0; index < list->size(); ++index) {
            ReadAttachment((*list)[index], "attachments[" + std::to_string(index + 1) + "]");
        }
    }

    void ReadAttachment(const json& element, const std::string& field) {
        AttachmentSource source;
        if (element.is_string()) {
            source.path = element.get<std::string>();
            CheckPath(source.path, field);
        } else if (element.is_object()) {
            ReadAttachmentFields(element, field, source);
        } else {
            m_fields.Refuse(field,
                            "expected a path, or an object with the fields name and path or "
                            "content_base64; found " +
                                TypeName(element));
        }
        m_draft.attachments.push_back(std::move(source));
    }

    void ReadAttachmentFields(const json& element, const std::string& field, AttachmentSource& source) {
        JsonFields fields(element);
        const bool hasPath = fields.Has("path");
        source.name = fields.Text("name").value_or("");
        const auto path = fields.Text("path");
        const auto content = fields.Text("content_base64");
        if (hasPath == fields.Has("content_base64")) {
            fields.Refuse("content_base64", "expected exactly one of path and content_base64");
        } else if (hasPath && path) {
            source.path = *path;
            CheckPath(source.path, field + ".path");
        } else if (content) {
            ReadContent(*content, fields, source);
        }
        fields.RefuseOthers("name, path or content_base64");
        for (const JsonFields::Fault& fault : fields.Faults()) {
            m_fields.Refuse(field + "." + fault.field, fault.text);
        }
    }

    static void ReadContent(const std::string& text, JsonFields& fields, AttachmentSource& source) {
        if (!fields.Has("name")) {
            fields.Refuse("name", "expected the file name that the recipient sees, the field is missing");
        }
        if (auto content = DecodeBase64(text)) {
            source.content = std::move(*content);
        } else {
            fields.Refuse("content_base64", "expected base64 with its padding (RFC 4648 4)");
        }
    }

    void CheckPath(const std::string& path, const std::string& field) {
        if (m_origin == SubmissionOrigin::Remote) {
            m_fields.Refuse(field,
                            "a file cannot be named over the network; give its name and its content as "
                            "content_base64");
        } else if (path.empty() || path.find('\0') != std::string::npos) {
            m_fields.Refuse(field, "expected the path of a file, without NUL");
        }
    }

    JsonFields m_fields;
    const SubmissionOrigin m_origin;
    const StoreTime m_now;
    SubmissionDraft m_draft;
};

}  // namespace

std::string Describe(const SubmissionDraft::Fault& fault) {
    return fault.field.empty() ? fault.text : fault.field + ": " + fault.text;
}

SubmissionDraft ParseSubmission(const json& object, const HostConfig& config, SubmissionOrigin origin,
                                StoreTime now) {
    if (!object.is_object()) {
        SubmissionDraft draft;
        draft.faults.push_back({"", "expected one JSON object, found " + TypeName(object)});
        return draft;
    }
    SubmissionDraft draft = DraftReader(object, origin, now).Read();
    CheckSubmission(draft, config, now);
    return draft;
}

std::string ReadMoment(const std::string& text, StoreTime now, std::optional<StoreTime>& time) {
    if (const auto duration = ParseDuration(text)) {
        time = now + *duration;
        return {};
    }
    time = ParseTime(text);
    return time ? std::string()
                : std::string(
                      "expected a time such as \"2026-03-01T09:30:00Z\" or \"2026-03-01T09:30:00+02:00\", "
                      "or ") +
                      kDurationForm + " from now on; found \"" + MakeVisible(text.substr(0, 60)) + "\"";
}

std::string NewSubmissionId() {
    std::array<unsigned char, 16> bytes{};
    // So few bytes come whole (getrandom(2)); only a signal before the system has gathered any can interrupt.
    while (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "no random bytes for an identifier");
        }
    }
    std::string id;
    for (const unsigned char byte : bytes) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(byte));
        id += digits.data();
    }
    return id;
}

}  // namespace kvhost
