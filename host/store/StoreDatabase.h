#pragma once

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Transaction.h>

#include <filesystem>

#include "StoreError.h"

namespace kvhost {

/// One connection to the database of a store folder: the file "jobs.db", in WAL mode, every commit on disk before it
/// returns (synchronous=FULL).
///
/// Several processes may have a connection each; a writer waits up to 30 s for another. One thread at a time. What
/// SQLite throws (SQLite::Exception) passes through, except at opening.
class StoreDatabase {
public:
    enum class Access {
        Create,    ///< make folder and database when they are missing
        Existing,  ///< throw when there is no database
    };

    /// Opens the database and brings an older schema up to date. Throws StoreError: no such store, not writable, not
    /// a store, or written by a newer kvhost.
    StoreDatabase(const std::filesystem::path& folder, Access access);

    SQLite::Database& Connection() { return m_database; }
    const std::filesystem::path& Folder() const { return m_pathFolder; }

private:
    std::filesystem::path m_pathFolder;
    SQLite::Database m_database;
};

/// A transaction that takes the right to write at once, so that what it reads is what it changes.
class StoreWrite {
public:
    explicit StoreWrite(StoreDatabase& store)
        : m_transaction(store.Connection(), SQLite::TransactionBehavior::IMMEDIATE) {}

    /// On disk when it returns; without it the destructor takes everything back.
    void Commit() { m_transaction.commit(); }

private:
    SQLite::Transaction m_transaction;
};

/// A transaction that sees the store at one moment, whatever others write meanwhile. It ends with the object.
class StoreRead {
public:
    explicit StoreRead(StoreDatabase& store) : m_transaction(store.Connection()) {}

private:
    SQLite::Transaction m_transaction;
};

}  // namespace kvhost
