#include "StoreSchema.h"

#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>

#include "StoreError.h"

namespace kvhost {

namespace {

// "kvhs": tells a store from the databases of other programs.
constexpr int kApplicationId = 0x6b766873;

// State 0 is "queued", the one that is looked for by time; jobs of other states are looked for in their order.
// The triggers keep the tally: counting a million jobs for every look at the figures would take too long.
constexpr const char* kVersion1 = R"sql(
CREATE TABLE submission(
    key INTEGER PRIMARY KEY,
    id TEXT NOT NULL UNIQUE,
    fingerprint TEXT NOT NULL,
    submitted INTEGER NOT NULL,
    subject TEXT NOT NULL,
    text TEXT NOT NULL
);
CREATE TABLE attachment(
    submission INTEGER NOT NULL REFERENCES submission(key) ON DELETE CASCADE,
    position INTEGER NOT NULL,
    name TEXT NOT NULL,
    digest TEXT NOT NULL,
    size INTEGER NOT NULL,
    PRIMARY KEY(submission, position)
) WITHOUT ROWID;
CREATE INDEX attachment_digest ON attachment(digest);
CREATE TABLE job(
    key INTEGER PRIMARY KEY AUTOINCREMENT,
    id TEXT NOT NULL UNIQUE,
    submission INTEGER NOT NULL REFERENCES submission(key),
    carrier TEXT NOT NULL,
    recipient TEXT NOT NULL,
    state INTEGER NOT NULL CHECK(state BETWEEN 0 AND 6),
    urgent INTEGER NOT NULL CHECK(urgent IN (0, 1)),
    changed INTEGER NOT NULL,
    due INTEGER NOT NULL,
    deadline INTEGER,
    attempts INTEGER NOT NULL DEFAULT 0,
    crashes INTEGER NOT NULL DEFAULT 0,
    reason TEXT NOT NULL DEFAULT '',
    decision TEXT NOT NULL DEFAULT ''
);
CREATE INDEX job_submission ON job(submission);
CREATE INDEX job_due ON job(carrier, urgent, due, key) WHERE state = 0;
CREATE INDEX job_deadline ON job(deadline) WHERE state = 0 AND deadline IS NOT NULL;
CREATE INDEX job_state ON job(state, key);
CREATE INDEX job_carrier ON job(carrier, key);
CREATE TABLE attempt(
    job INTEGER NOT NULL REFERENCES job(key) ON DELETE CASCADE,
    number INTEGER NOT NULL,
    run INTEGER NOT NULL REFERENCES run(key),
    begun INTEGER NOT NULL,
    ended INTEGER,
    outcome INTEGER CHECK(outcome BETWEEN 0 AND 2),
    reason TEXT NOT NULL DEFAULT '',
    decision TEXT NOT NULL DEFAULT '',
    PRIMARY KEY(job, number),
    CHECK((ended IS NULL) = (outcome IS NULL))
) WITHOUT ROWID;
CREATE TABLE event(
    key INTEGER PRIMARY KEY,
    job INTEGER NOT NULL REFERENCES job(key) ON DELETE CASCADE,
    at INTEGER NOT NULL,
    text TEXT NOT NULL
);
CREATE INDEX event_job ON event(job, key);
CREATE TABLE run(
    key INTEGER PRIMARY KEY,
    begun INTEGER NOT NULL,
    ended INTEGER
);
CREATE TABLE tally(
    carrier TEXT NOT NULL,
    state INTEGER NOT NULL,
    jobs INTEGER NOT NULL,
    PRIMARY KEY(carrier, state)
) WITHOUT ROWID;
CREATE TRIGGER job_counted AFTER INSERT ON job BEGIN
    INSERT INTO tally VALUES(new.carrier, new.state, 1) ON CONFLICT DO UPDATE SET jobs = jobs + 1;
END;
CREATE TRIGGER job_recounted AFTER UPDATE OF state ON job WHEN old.state <> new.state BEGIN
    UPDATE tally SET jobs = jobs - 1 WHERE carrier = old.carrier AND state = old.state;
    INSERT INTO tally VALUES(new.carrier, new.state, 1) ON CONFLICT DO UPDATE SET jobs = jobs + 1;
END;
CREATE TRIGGER job_uncounted AFTER DELETE ON job BEGIN
    UPDATE tally SET jobs = jobs - 1 WHERE carrier = old.carrier AND state = old.state;
END;
)sql";

int Pragma(SQLite::Database& database, const char* name) {
    return database.execAndGet(std::string("PRAGMA ") + name).getInt();
}

bool IsEmpty(SQLite::Database& database) {
    return database.execAndGet("SELECT count(*) FROM sqlite_master").getInt() == 0;
}

void CheckOwner(SQLite::Database& database, const std::string& file) {
    if (Pragma(database, "application_id") != kApplicationId) {
        throw StoreError(file + ": a database of another program; name an empty folder or a store of kvhost");
    }
    const int version = Pragma(database, "user_version");
    if (version > kStoreSchemaVersion) {
        throw StoreError(file + ": a store of version " + std::to_string(version) +
                         ", and this kvhost knows up to " + std::to_string(kStoreSchemaVersion) +
                         "; use the newer kvhost, or another folder");
    }
}

}  // namespace

// Looked at under the write lock: two processes may open a new store at the same moment.
void PrepareStoreSchema(SQLite::Database& database, const std::string& file) {
    if (!IsEmpty(database)) {
        CheckOwner(database, file);
        return;
    }
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    if (IsEmpty(database)) {
        database.exec(kVersion1);
        database.exec("PRAGMA application_id = " + std::to_string(kApplicationId));
        database.exec("PRAGMA user_version = " + std::to_string(kStoreSchemaVersion));
    }
    transaction.commit();
    CheckOwner(database, file);
}

}  // namespace kvhost
