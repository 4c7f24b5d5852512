#pragma once

#include "InputChecks.h"
#include "SubmissionParser.h"
#include "support/Check.h"
#include "support/HostInputs.h"

namespace kvfuzz {

/// A draft is refused, with faults that can be shown, or has all that a job needs.
inline void CheckDraft(const kvhost::SubmissionDraft& draft, const kvhost::HostConfig& config) {
    for (const kvhost::SubmissionDraft::Fault& fault : draft.faults) {
        KV_FUZZ_CHECK(IsVisible(kvhost::Describe(fault)));
    }
    if (draft.IsRefused()) {
        return;
    }
    const kvhost::Submission& submission = draft.submission;
    KV_FUZZ_CHECK(!submission.id.empty() && submission.id.size() <= 200);
    KV_FUZZ_CHECK(!kvhost::WhyNotAName(submission.id) && kvhost::IsUtf8(submission.id));
    KV_FUZZ_CHECK(config.carriers.count(submission.carrier) == 1);
    KV_FUZZ_CHECK(!submission.recipients.empty() &&
                  submission.recipients.size() <= static_cast<std::size_t>(config.limits.recipients));
    for (const std::string& recipient : submission.recipients) {
        KV_FUZZ_CHECK(!kvhost::WhyNotAnAddress(recipient) && kvhost::IsUtf8(recipient));
    }
    KV_FUZZ_CHECK(!kvhost::WhyNotOneLine(submission.subject) && kvhost::IsUtf8(submission.subject));
    KV_FUZZ_CHECK(!kvhost::WhyNotAMessageText(submission.text) && kvhost::IsUtf8(submission.text));
    KV_FUZZ_CHECK(submission.text.size() <= config.limits.textBytes);
    KV_FUZZ_CHECK(draft.attachments.size() <= static_cast<std::size_t>(config.limits.attachments));
    for (const kvhost::AttachmentSource& source : draft.attachments) {
        KV_FUZZ_CHECK(source.content.size() <= config.limits.attachmentBytes);
        KV_FUZZ_CHECK(source.name.empty() || !kvhost::WhyNotAnAttachmentName(source.name));
    }
    KV_FUZZ_CHECK(!submission.deadline || *submission.deadline > Now());
}

}  // namespace kvfuzz
