#pragma once

#include <string>
#include <vector>

#include "StoreDatabase.h"
#include "StoredJob.h"

namespace kvhost {

/// What became of one submission.
enum class SubmitResult {
    Stored,    ///< on disk now
    Repeated,  ///< the very same submission was stored before; nothing changed
    Conflict   ///< another submission has this identifier; nothing was stored
};

/// Takes submissions into the store. One thread at a time, as its database.
class JobIntake {
public:
    explicit JobIntake(StoreDatabase& store) : m_store(store) {}

    /// Stores the submissions in one transaction, in their order; the results are in the same order. When it returns,
    /// everything that is Stored is on disk. Throws SQLite::Exception when the store cannot be written; then nothing
    /// was stored.
    std::vector<SubmitResult> Submit(const std::vector<Submission>& submissions, StoreTime now);

private:
    StoreDatabase& m_store;
};

/// What tells two submissions apart that have the same identifier: SHA-256 over carrier, recipients, subject, text,
/// attachments and urgency, as 64 hexadecimal digits. The times are left out: "within an hour" is another moment
/// when it is said again.
std::string Fingerprint(const Submission& submission);

}  // namespace kvhost
