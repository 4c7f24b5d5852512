#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>

#include "InputChecks.h"
#include "MailAddresses.h"
#include "SubmissionParser.h"
#include "TimeText.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr std::size_t kMostIdBytes = 200;
constexpr std::size_t kMostSubjectBytes =
    900;  // with "Subject: " and the line end below the 998 of RFC 5322 2.1.1
constexpr std::size_t kMostShownBytes = 80;

bool HasControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

/// The value for a message: in one line, and cut when it is long.
std::string Shown(const std::string& value) {
    const bool isLong = value.size() > kMostShownBytes;
    return "\"" + MakeVisible(value.substr(0, kMostShownBytes)) + (isLong ? "…" : "") + "\"";
}

std::string Number(std::uint64_t number) {
    return std::to_string(number);
}

std::string WhyNotAnId(const std::string& id) {
    if (id.empty()) {
        return "expected an identifier, found an empty one; leave the field out to get a random one";
    }
    if (id.size() > kMostIdBytes) {
        return "expected an identifier of at most " + Number(kMostIdBytes) + " bytes, found " +
               Number(id.size());
    }
    if (HasControl(id) || !IsUtf8(id)) {
        return "expected an identifier of UTF-8 text without control characters, found " + Shown(id);
    }
    if (id.find('/') != std::string::npos) {
        return "expected an identifier without \"/\", which numbers the jobs of a submission (\"ID/1\"), "
               "found " +
               Shown(id);
    }
    return {};
}

std::string WhyNotAFileName(const std::string& name) {
    const auto wrong = WhyNotAnAttachmentName(name);
    return wrong ? *wrong + ": " + Shown(name) + "; give another one in the field name" : std::string();
}

/// The checks of one draft.
class Checker {
public:
    Checker(SubmissionDraft& draft, const HostConfig& config, StoreTime now)
        : m_draft(draft), m_submission(draft.submission), m_config(config), m_now(now) {
        for (const SubmissionDraft::Fault& fault : draft.faults) {
            m_setFaulty.insert(fault.field);
        }
    }

    void Check() {
        Judge("id", WhyNotAnId(m_submission.id));
        CheckCarrier();
        CheckRecipients();
        CheckSubject();
        CheckText();
        CheckAttachments();
        CheckTimes();
    }

private:
    void Judge(const std::string& field, const std::string& wrong) {
        if (!wrong.empty() && m_setFaulty.count(field) == 0) {
            m_draft.faults.push_back({field, wrong});
        }
    }

    void CheckCarrier() {
        const auto refused = m_config.refusedCarriers.find(m_submission.carrier);
        if (refused != m_config.refusedCarriers.end()) {
            Judge("carrier", "the carrier is refused: " + refused->second);
        } else if (m_config.carriers.count(m_submission.carrier) == 0) {
            Judge("carrier", "expected a carrier of the configuration, found " + Shown(m_submission.carrier) +
                                 "; `kvhost config check` lists them");
        }
    }

    void CheckRecipients() {
        const std::vector<std::string>& recipients = m_submission.recipients;
        if (m_setFaulty.count("recipient") != 0) {
            return;
        }
        const std::string field = recipients.size() == 1 ? "recipient" : "recipients";
        if (recipients.empty()) {
            Judge(field, "expected at least one recipient");
        }
        const auto most = static_cast<std::size_t>(m_config.limits.recipients);
        if (recipients.size() > most) {
            Judge(field, "expected at most " + Number(most) + " recipients (limits.recipients), found " +
                             Number(recipients.size()) + "; make several submissions of it");
            return;
        }
        std::set<std::string> seen;
        for (const std::string& recipient : recipients) {
            Judge(field, WhyNotARecipient(recipient));
            if (!seen.insert(ComparableAddress(recipient)).second) {
                Judge(field, "expected every recipient once, found " + Shown(recipient) +
                                 " again; it would get the same mail twice");
            }
        }
    }

    static std::string WhyNotARecipient(const std::string& recipient) {
        if (const auto wrong = WhyNotAnAddress(recipient)) {
            return *wrong + (recipient.empty() ? "" : ": " + Shown(recipient)) +
                   "; give the address alone, such as \"ops@example.org\"";
        }
        return IsUtf8(recipient) ? std::string()
                                 : "expected a mail address of UTF-8 text, found " + Shown(recipient);
    }

    void CheckSubject() {
        const std::string& subject = m_submission.subject;
        if (HasControl(subject)) {
            Judge("subject", "expected one line of text without control characters, found " + Shown(subject) +
                                 "; put blanks in their place");
        } else if (!IsUtf8(subject)) {
            Judge("subject", "expected UTF-8, found " + Shown(subject) + "; convert the subject to UTF-8");
        } else if (subject.size() > kMostSubjectBytes) {
            Judge("subject", "expected at most " + Number(kMostSubjectBytes) + " bytes, found " +
                                 Number(subject.size()) + "; put the rest into the text");
        }
    }

    void CheckText() {
        const std::string& text = m_submission.text;
        if (text.size() > m_config.limits.textBytes) {
            Judge("text", "expected at most " + Number(m_config.limits.textBytes) +
                              " bytes (limits.text_bytes), found " + Number(text.size()) +
                              "; attach what is longer");
        } else if (text.find('\0') != std::string::npos) {
            Judge("text", "expected a text without NUL; attach what is no text");
        } else if (!IsUtf8(text)) {
            Judge("text", "expected UTF-8, found other bytes; convert the text to UTF-8, or attach it");
        }
    }

    void CheckAttachments() {
        const auto most = static_cast<std::size_t>(m_config.limits.attachments);
        if (m_draft.attachments.size() > most) {
            Judge("attachments", "expected at most " + Number(most) +
                                     " attachments (limits.attachments), found " +
                                     Number(m_draft.attachments.size()) + "; make one archive of them");
            return;
        }
        for (std::size_t index = 0; index < m_draft.attachments.size(); ++index) {
            CheckAttachment(m_draft.attachments[index], "attachments[" + Number(index + 1) + "]");
        }
    }

    void CheckAttachment(const AttachmentSource& source, const std::string& field) {
        if (HasFaultBelow(field)) {
            return;
        }
        const std::string name =
            source.name.empty() ? std::filesystem::path(source.path).filename().string() : source.name;
        Judge(field, WhyNotAFileName(name));
        if (source.content.size() > m_config.limits.attachmentBytes) {
            Judge(field, "expected at most " + Number(m_config.limits.attachmentBytes) +
                             " bytes (limits.attachment_bytes), found " + Number(source.content.size()));
        }
    }

    /// What could not be read need not be judged.
    bool HasFaultBelow(const std::string& field) const {
        const auto next = m_setFaulty.lower_bound(field);
        return next != m_setFaulty.end() && next->compare(0, field.size(), field) == 0;
    }

    void CheckTimes() {
        if (m_submission.deadline && *m_submission.deadline <= m_now) {
            Judge("deadline", "expected a time to come, found " + TimeText(*m_submission.deadline) +
                                  "; it is " + TimeText(m_now) + " now");
        } else if (m_submission.deadline && m_submission.notBefore &&
                   *m_submission.notBefore >= *m_submission.deadline) {
            Judge("not_before", "expected a time before the deadline (" + TimeText(*m_submission.deadline) +
                                    "), found " + TimeText(*m_submission.notBefore));
        }
    }

    SubmissionDraft& m_draft;
    const Submission& m_submission;
    const HostConfig& m_config;
    const StoreTime m_now;
    std::set<std::string> m_setFaulty;  ///< the fields that had a fault before
};

}  // namespace

void CheckSubmission(SubmissionDraft& draft, const HostConfig& config, StoreTime now) {
    Checker(draft, config, now).Check();
}

}  // namespace kvhost
