#include "SubmissionTaker.h"

#include <algorithm>
#include <utility>

#include "Doorbell.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

using Status = SubmissionReceipt::Status;

Status StatusOf(SubmitResult result) {
    switch (result) {
        case SubmitResult::Stored:
            return Status::Stored;
        case SubmitResult::Repeated:
            return Status::Repeated;
        case SubmitResult::Conflict:
            break;
    }
    return Status::Conflict;
}

SubmissionDraft::Fault TakenId(const std::string& id) {
    return {"id", "expected an identifier of its own, another submission is stored under \"" +
                      MakeVisible(id) + "\"; choose another one, or leave it out"};
}

}  // namespace

const char* SubmissionStatusName(Status status) {
    switch (status) {
        case Status::Stored:
            return "stored";
        case Status::Repeated:
            return "repeated";
        case Status::Conflict:
            return "conflict";
        case Status::Refused:
            break;
    }
    return "refused";
}

SubmissionTaker::SubmissionTaker(StoreDatabase& store, const HostConfig& config, std::filesystem::path base)
    : m_store(store),
      m_attachments(store.Folder(), config.limits.attachmentBytes),
      m_pathBase(std::move(base)) {}

void SubmissionTaker::KeepAttachments(SubmissionDraft& draft) {
    for (std::size_t index = 0; index < draft.attachments.size() && !draft.IsRefused(); ++index) {
        try {
            draft.submission.attachments.push_back(Keep(draft.attachments[index]));
        } catch (const AttachmentError& error) {
            draft.faults.push_back(
                {"attachments[" + std::to_string(index + 1) + "]", MakeVisible(error.what())});
        }
    }
    draft.attachments.clear();
}

std::vector<SubmissionReceipt> SubmissionTaker::Take(std::vector<SubmissionDraft> drafts, StoreTime now) {
    std::vector<SubmissionReceipt> receipts;
    std::vector<Submission> submissions;
    std::vector<std::size_t> places;
    for (SubmissionDraft& draft : drafts) {
        KeepAttachments(draft);
        receipts.push_back({Status::Refused, draft.submission.id, std::move(draft.faults)});
        if (receipts.back().faults.empty()) {
            places.push_back(receipts.size() - 1);
            submissions.push_back(std::move(draft.submission));
        }
    }
    if (!submissions.empty()) {
        Store(submissions, places, receipts, now);
    }
    return receipts;
}

StoredAttachment SubmissionTaker::Keep(const AttachmentSource& source) {
    if (source.path.empty()) {
        return m_attachments.AddContent(source.name, source.content);
    }
    StoredAttachment kept = m_attachments.AddFile(m_pathBase, source.path);
    if (!source.name.empty()) {
        kept.name = source.name;
    }
    return kept;
}

void SubmissionTaker::Store(const std::vector<Submission>& submissions,
                            const std::vector<std::size_t>& places, std::vector<SubmissionReceipt>& receipts,
                            StoreTime now) {
    const std::vector<SubmitResult> results = JobIntake(m_store).Submit(submissions, now);
    for (std::size_t i = 0; i < results.size(); ++i) {
        SubmissionReceipt& receipt = receipts[places[i]];
        receipt.status = StatusOf(results[i]);
        if (receipt.status == Status::Conflict) {
            receipt.faults.push_back(TakenId(receipt.id));
        }
    }
    if (std::find(results.begin(), results.end(), SubmitResult::Stored) != results.end()) {
        Doorbell::Ring(m_store.Folder());
    }
}

}  // namespace kvhost
