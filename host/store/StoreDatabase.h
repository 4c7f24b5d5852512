#pragma once

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

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
    friend class StoreStatement;

    std::filesystem::path m_pathFolder;
    SQLite::Database m_database;
    std::map<std::string, std::unique_ptr<SQLite::Statement>> m_mapIdle;  ///< by text
};

/// A statement that is prepared once for each text, because to prepare one takes longer than to run it. At its end it is
/// given back, reset and without values. For texts of which there are few; outlived by the database. One thread at a
/// time, as the database.
class StoreStatement {
public:
    StoreStatement(StoreDatabase& store, const std::string& text);
    ~StoreStatement();
    StoreStatement(const StoreStatement&) = delete;
    StoreStatement& operator=(const StoreStatement&) = delete;

    SQLite::Statement& operator*() { return *m_pStatement; }
    SQLite::Statement* operator->() { return m_pStatement.get(); }

private:
    StoreDatabase& m_store;
    std::unique_ptr<SQLite::Statement> m_pStatement;
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
