#pragma once

#include <SQLiteCpp/Statement.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "StoreDatabase.h"
#include "StoredJob.h"

namespace kvhost {

// What the classes of the store share: how a row becomes a value, and the other way round.

/// The columns of a job, for a SELECT from "job JOIN submission ON submission.key = job.submission"; ReadJob takes them
/// in this order from column 0.
extern const char* const kJobColumns;
StoredJob ReadJob(SQLite::Statement& row);

/// Binds the moment, or null.
void BindTime(SQLite::Statement& statement, int index, const std::optional<StoreTime>& time);
/// The moment of a column, or nothing for null.
std::optional<StoreTime> ReadTime(SQLite::Statement& row, int column);

/// The attachments of a submission in their order.
std::vector<StoredAttachment> ReadAttachments(StoreDatabase& store, std::int64_t submission);

/// Notes an event of a job. Within the caller's transaction.
void NoteEvent(StoreDatabase& store, std::int64_t job, StoreTime at, const std::string& text);

}  // namespace kvhost
