#include "JobIntake.h"

#include <SQLiteCpp/Statement.h>

#include <optional>

#include "Sha256.h"
#include "StoreRows.h"

namespace kvhost {

namespace {

/// The statements of one intake, prepared once for all submissions of a transaction.
class Writer {
public:
    Writer(StoreDatabase& store, StoreTime now)
        : m_store(store),
          m_now(now),
          m_find(store.Connection(), "SELECT fingerprint FROM submission WHERE id = ?"),
          m_taken(store.Connection(), "SELECT 1 FROM job WHERE id = ?"),
          m_submission(
              store.Connection(),
              "INSERT INTO submission(id, fingerprint, submitted, subject, text) VALUES(?, ?, ?, ?, ?)"),
          m_attachment(store.Connection(), "INSERT INTO attachment VALUES(?, ?, ?, ?, ?)"),
          m_job(store.Connection(),
                "INSERT INTO job(id, submission, carrier, recipient, state, urgent, changed, due, deadline) "
                "VALUES(?, ?, ?, ?, 0, ?, ?, ?, ?)") {}

    SubmitResult Write(const Submission& submission) {
        const std::string fingerprint = Fingerprint(submission);
        if (const std::optional<std::string> stored = StoredFingerprint(submission.id)) {
            return *stored == fingerprint ? SubmitResult::Repeated : SubmitResult::Conflict;
        }
        if (IsAnyNameTaken(submission)) {
            return SubmitResult::Conflict;
        }
        const std::int64_t key = InsertSubmission(submission, fingerprint);
        InsertAttachments(key, submission);
        InsertJobs(key, submission);
        return SubmitResult::Stored;
    }

private:
    std::optional<std::string> StoredFingerprint(const std::string& id) {
        m_find.reset();
        m_find.bind(1, id);
        return m_find.executeStep() ? std::optional(m_find.getColumn(0).getString()) : std::nullopt;
    }

    // "A/1" may be a submission of its own, or the first job of "A".
    bool IsAnyNameTaken(const Submission& submission) {
        for (std::size_t index = 0; index < submission.recipients.size(); ++index) {
            m_taken.reset();
            m_taken.bind(1, JobId(submission, index));
            if (m_taken.executeStep()) {
                return true;
            }
        }
        return false;
    }

    static std::string JobId(const Submission& submission, std::size_t index) {
        return submission.recipients.size() == 1 ? submission.id
                                                 : submission.id + "/" + std::to_string(index + 1);
    }

    std::int64_t InsertSubmission(const Submission& submission, const std::string& fingerprint) {
        m_submission.reset();
        m_submission.bind(1, submission.id);
        m_submission.bind(2, fingerprint);
        m_submission.bind(3, ToNumber(m_now));
        m_submission.bindNoCopy(4, submission.subject);
        m_submission.bindNoCopy(5, submission.text);
        m_submission.exec();
        return m_store.Connection().getLastInsertRowid();
    }

    void InsertAttachments(std::int64_t key, const Submission& submission) {
        int position = 0;
        for (const StoredAttachment& attachment : submission.attachments) {
            m_attachment.reset();
            m_attachment.bind(1, key);
            m_attachment.bind(2, position++);
            m_attachment.bind(3, attachment.name);
            m_attachment.bind(4, attachment.digest);
            m_attachment.bind(5, static_cast<std::int64_t>(attachment.size));
            m_attachment.exec();
        }
    }

    void InsertJobs(std::int64_t key, const Submission& submission) {
        for (std::size_t index = 0; index < submission.recipients.size(); ++index) {
            m_job.reset();
            m_job.bind(1, JobId(submission, index));
            m_job.bind(2, key);
            m_job.bind(3, submission.carrier);
            m_job.bind(4, submission.recipients[index]);
            m_job.bind(5, submission.isUrgent ? 1 : 0);
            m_job.bind(6, ToNumber(m_now));
            m_job.bind(7, ToNumber(submission.notBefore.value_or(m_now)));
            BindTime(m_job, 8, submission.deadline);
            m_job.exec();
        }
    }

    StoreDatabase& m_store;
    const StoreTime m_now;
    SQLite::Statement m_find;
    SQLite::Statement m_taken;
    SQLite::Statement m_submission;
    SQLite::Statement m_attachment;
    SQLite::Statement m_job;
};

/// Adds a field with its length, so that no two different submissions add the same bytes.
void AddField(Sha256& digest, const std::string& text) {
    digest.Add(std::to_string(text.size()) + ":");
    digest.Add(text);
}

}  // namespace

std::string Fingerprint(const Submission& submission) {
    Sha256 digest;
    AddField(digest, submission.carrier);
    AddField(digest, std::to_string(submission.recipients.size()));
    for (const std::string& recipient : submission.recipients) {
        AddField(digest, recipient);
    }
    AddField(digest, submission.subject);
    AddField(digest, submission.text);
    for (const StoredAttachment& attachment : submission.attachments) {
        AddField(digest, attachment.name);
        AddField(digest, attachment.digest);
    }
    AddField(digest, submission.isUrgent ? "urgent" : "normal");
    return digest.HexDigest();
}

std::vector<SubmitResult> JobIntake::Submit(const std::vector<Submission>& submissions, StoreTime now) {
    StoreWrite transaction(m_store);
    Writer writer(m_store, now);
    std::vector<SubmitResult> results;
    results.reserve(submissions.size());
    for (const Submission& submission : submissions) {
        results.push_back(writer.Write(submission));
    }
    transaction.Commit();
    return results;
}

}  // namespace kvhost
