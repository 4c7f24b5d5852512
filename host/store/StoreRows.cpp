#include "StoreRows.h"

namespace kvhost {

const char* const kJobColumns =
    "job.key, job.id, job.carrier, job.recipient, submission.subject, job.state, job.urgent, "
    "submission.submitted, "
    "job.changed, job.due, job.deadline, job.attempts, job.crashes, job.reason, job.decision";

StoredJob ReadJob(SQLite::Statement& row) {
    StoredJob job;
    job.key = row.getColumn(0).getInt64();
    job.id = row.getColumn(1).getString();
    job.carrier = row.getColumn(2).getString();
    job.recipient = row.getColumn(3).getString();
    job.subject = row.getColumn(4).getString();
    job.state = static_cast<JobState>(row.getColumn(5).getInt());
    job.isUrgent = row.getColumn(6).getInt() != 0;
    job.submitted = FromNumber(row.getColumn(7).getInt64());
    job.changed = FromNumber(row.getColumn(8).getInt64());
    job.due = FromNumber(row.getColumn(9).getInt64());
    job.deadline = ReadTime(row, 10);
    job.attempts = row.getColumn(11).getInt();
    job.crashes = row.getColumn(12).getInt();
    job.reason = row.getColumn(13).getString();
    job.decision = row.getColumn(14).getString();
    return job;
}

void BindTime(SQLite::Statement& statement, int index, const std::optional<StoreTime>& time) {
    if (time) {
        statement.bind(index, ToNumber(*time));
    } else {
        statement.bind(index);
    }
}

std::optional<StoreTime> ReadTime(SQLite::Statement& row, int column) {
    if (row.isColumnNull(column)) {
        return std::nullopt;
    }
    return FromNumber(row.getColumn(column).getInt64());
}

std::vector<StoredAttachment> ReadAttachments(StoreDatabase& store, std::int64_t submission) {
    StoreStatement rows(store,
                        "SELECT name, digest, size FROM attachment WHERE submission = ? ORDER BY position");
    rows->bind(1, submission);
    std::vector<StoredAttachment> attachments;
    while (rows->executeStep()) {
        attachments.push_back({rows->getColumn(0).getString(), rows->getColumn(1).getString(),
                               static_cast<std::uint64_t>(rows->getColumn(2).getInt64())});
    }
    return attachments;
}

void NoteEvent(StoreDatabase& store, std::int64_t job, StoreTime at, const std::string& text) {
    StoreStatement insert(store, "INSERT INTO event(job, at, text) VALUES(?, ?, ?)");
    insert->bind(1, job);
    insert->bind(2, ToNumber(at));
    insert->bind(3, text);
    insert->exec();
}

}  // namespace kvhost
