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
    std::vector<SubmissionDraft::Fault> faults;
};

/// "stored", "repeated", "conflict", "refused".
const char* SubmissionStatusName(SubmissionReceipt::Status status);

/// Takes drafts into the store of a folder: attachments first, then all submissions in one transaction, then the
/// running host is woken. One thread at a time.
class SubmissionTaker {
public:
    /// `base`: the folder below which attachments of relative paths are looked for. Throws StoreError.
    SubmissionTaker(StoreDatabase& store, const HostConfig& config, std::filesystem::path base);

    /// The receipts are in the order of the drafts. A draft with faults, or with an attachment that cannot be taken, is
    /// refused alone. When it returns, what is Stored is on disk. Throws SQLite::Exception; then nothing was stored.
    std::vector<SubmissionReceipt> Take(std::vector<SubmissionDraft> drafts, StoreTime now);

private:
    StoreDatabase& m_store;
    AttachmentStore m_attachments;
    const std::filesystem::path m_pathBase;
};

}  // namespace kvhost
