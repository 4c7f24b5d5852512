#include "StoreDatabase.h"

#include <SQLiteCpp/Exception.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "StoreRights.h"
#include "StoreSchema.h"

namespace kvhost {

namespace {

constexpr int kWaitForWriterMs = 30000;
constexpr const char* kFileName = "jobs.db";

namespace fs = std::filesystem;

void MakeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw StoreError(folder.string() + ": the store's folder cannot be made: " + error.message());
    }
    // The texts of messages and the names of recipients are the business of the host's user alone.
    fs::permissions(folder, fs::perms::group_write | fs::perms::others_all, fs::perm_options::remove, error);
}

fs::path PrepareFile(const fs::path& folder, StoreDatabase::Access access) {
    const fs::path file = folder / kFileName;
    CheckStoreRights(folder);
    if (access == StoreDatabase::Access::Create) {
        CheckFilesWillBeTheOwners(folder);
        MakeFolder(folder);
    } else if (!fs::exists(file)) {
        throw StoreError(file.string() +
                         ": there is no store; start `kvhost run` or submit a job to make it");
    }
    return file;
}

/// Lets one process at a time open the database of a folder: a change of the journal mode does not wait for another
/// connection as everything else does, it fails at once. A folder that cannot be locked is used all the same.
class OpeningTurn {
public:
    explicit OpeningTurn(const fs::path& folder)
        : m_fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        while (m_fd >= 0 && ::flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~OpeningTurn() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    OpeningTurn(const OpeningTurn&) = delete;
    OpeningTurn& operator=(const OpeningTurn&) = delete;

private:
    const int m_fd;
};

SQLite::Database Open(const fs::path& folder, StoreDatabase::Access access) {
    const fs::path file = PrepareFile(folder, access);
    const OpeningTurn turn(folder);
    try {
        SQLite::Database database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                                  kWaitForWriterMs);
        database.exec("PRAGMA journal_mode = WAL");
        database.exec("PRAGMA synchronous = FULL");
        database.exec("PRAGMA foreign_keys = ON");
        PrepareStoreSchema(database, file.string());
        return database;
    } catch (const SQLite::Exception& error) {
        throw StoreError(file.string() + ": the store cannot be opened: " + error.what());
    }
}

}  // namespace

StoreDatabase::StoreDatabase(const fs::path& folder, Access access)
    : m_pathFolder(folder), m_database(Open(folder, access)) {}

StoreStatement::StoreStatement(StoreDatabase& store, const std::string& text) : m_store(store) {
    if (auto idle = store.m_mapIdle.extract(text); !idle.empty()) {
        m_pStatement = std::move(idle.mapped());
    } else {
        m_pStatement = std::make_unique<SQLite::Statement>(store.Connection(), text);
    }
}

// What fails here fails for this statement alone: it is then not used again.
StoreStatement::~StoreStatement() {
    try {
        m_pStatement->reset();
        m_pStatement->clearBindings();
        const std::string text = m_pStatement->getQuery();
        m_store.m_mapIdle.emplace(text, std::move(m_pStatement));
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
    }
}

}  // namespace kvhost
