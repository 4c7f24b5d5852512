#pragma once

#include <SQLiteCpp/Database.h>

#include <string>

namespace kvhost {

/// The version of the schema that this program reads and writes; stored as the database's user_version.
inline constexpr int kStoreSchemaVersion = 1;

/// Makes the tables of an empty database, or brings those of an older version up to date, in one transaction. Throws
/// StoreError, naming `file`, for a database of a newer version and for one that is no store.
void PrepareStoreSchema(SQLite::Database& database, const std::string& file);

}  // namespace kvhost
