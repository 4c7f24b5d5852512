#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "AttachmentStore.h"
#include "JobIntake.h"
#include "SubmissionParser.h"

namespace kvhost {

/// What the submitter is told.
struct SubmissionReceipt {
    enum class Status {
        Stored,    ///< on disk now
        Repeated,  ///< the very same was stored before
        Conflict,  ///< another submission has its id
        Refused    ///< see the faults
    };
    Status status = Status::Refused;
    std::string id;
    std::vector<SubmissionDraft::Fault> faults;  ///< of what is Refused or in Conflict
};

/// "stored", "repeated", "conflict", "refused".
const char* SubmissionStatusName(SubmissionReceipt::Status status);

/// Takes drafts into the store of a folder: attachments first, then all submissions in one transaction, then the
/// running host is woken. One thread at a time; refers to the store.
class SubmissionTaker {
public:
    /// `base`: the folder below which attachments of relative paths are looked for.
    SubmissionTaker(StoreDatabase& store, const HostConfig& config, std::filesystem::path base);

    /// Copies the attachments of a draft without faults into the store and takes their sources out of the draft; one
    /// that cannot be taken becomes a fault. Throws StoreError when the store cannot be written.
    void KeepAttachments(SubmissionDraft& draft);

    /// The receipts are in the order of the drafts. A draft with faults, or with an attachment that cannot be taken, is
    /// refused alone. When it returns, what is Stored is on disk. Throws StoreError and SQLite::Exception; then no
    /// submission was stored.
    std::vector<SubmissionReceipt> Take(std::vector<SubmissionDraft> drafts, StoreTime now);

private:
    StoredAttachment Keep(const AttachmentSource& source);
    void Store(const std::vector<Submission>& submissions, const std::vector<std::size_t>& places,
               std::vector<SubmissionReceipt>& receipts, StoreTime now);

    StoreDatabase& m_store;
    AttachmentStore m_attachments;
    const std::filesystem::path m_pathBase;
};

}  // namespace kvhost
