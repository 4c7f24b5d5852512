#include "StoreCheck.h"

#include <SQLiteCpp/Statement.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "AttachmentStore.h"
#include "Sha256.h"

namespace kvhost {

namespace {

constexpr int kFaultsOfAKind = 100;

/// A rule as the rows that break it: the first column names the job.
struct Rule {
    const char* brokenBy;
    const char* fault;
};

constexpr std::array<Rule, 9> kRules = {{
    {"SELECT job.id FROM job LEFT JOIN submission ON submission.key = job.submission WHERE submission.key IS "
     "NULL",
     "has no submission"},
    {"SELECT job.id FROM job JOIN attempt ON attempt.job = job.key WHERE outcome = 0 GROUP BY job.key HAVING "
     "count(*) > 1",
     "was delivered twice"},
    {"SELECT job.id FROM job JOIN attempt AS done ON done.job = job.key AND done.outcome = 0 "
     "WHERE EXISTS (SELECT 1 FROM attempt AS later WHERE later.job = job.key AND later.number > done.number)",
     "was attempted again after it was delivered"},
    {"SELECT job.id FROM job WHERE state = 1 AND "
     "(SELECT count(*) FROM attempt WHERE attempt.job = job.key AND ended IS NULL) <> 1",
     "is handed over without exactly one open attempt"},
    {"SELECT DISTINCT job.id FROM job JOIN attempt ON attempt.job = job.key WHERE state <> 1 AND ended IS "
     "NULL",
     "has an open attempt and is not handed over"},
    {"SELECT job.id FROM job WHERE (state = 2) <> EXISTS "
     "(SELECT 1 FROM attempt WHERE attempt.job = job.key AND outcome = 0)",
     "is delivered without a delivery, or has one and is not delivered"},
    {"SELECT job.id FROM job WHERE attempts <> (SELECT count(*) FROM attempt WHERE attempt.job = job.key) "
     "OR attempts <> (SELECT coalesce(max(number), 0) FROM attempt WHERE attempt.job = job.key)",
     "has attempts that are not numbered from 1 without a gap"},
    {"SELECT job.id FROM job JOIN attempt ON attempt.job = job.key AND attempt.number = job.attempts "
     "WHERE state = 4 AND outcome <> 2",
     "is in doubt and its last attempt is not"},
    {"SELECT carrier FROM (SELECT carrier, state, jobs FROM tally WHERE jobs <> 0 "
     "EXCEPT SELECT carrier, state, count(*) FROM job GROUP BY carrier, state "
     "UNION ALL SELECT * FROM (SELECT carrier, state, count(*) FROM job GROUP BY carrier, state "
     "EXCEPT SELECT carrier, state, jobs FROM tally)) GROUP BY carrier",
     "(a carrier) has a tally that is not that of its jobs"},
}};

void CheckPages(StoreDatabase& store, std::vector<std::string>& faults) {
    SQLite::Statement rows(store.Connection(),
                           "PRAGMA integrity_check(" + std::to_string(kFaultsOfAKind) + ")");
    while (rows.executeStep()) {
        if (const std::string text = rows.getColumn(0).getString(); text != "ok") {
            faults.push_back("database: " + text);
        }
    }
}

void CheckRule(StoreDatabase& store, const Rule& rule, std::vector<std::string>& faults) {
    SQLite::Statement rows(store.Connection(),
                           std::string(rule.brokenBy) + " LIMIT " + std::to_string(kFaultsOfAKind));
    while (rows.executeStep()) {
        faults.push_back("job " + rows.getColumn(0).getString() + " " + rule.fault);
    }
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// What is wrong with a kept content; empty when it is what its digest tells.
std::string FaultOfContent(const std::string& path, const std::string& digest, std::uint64_t size) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    if (!file) {
        return errno == ENOENT ? "is missing" : std::string("cannot be read: ") + std::strerror(errno);
    }
    Sha256 actual;
    std::uint64_t actualSize = 0;
    std::array<char, 65536> piece{};
    while (const std::size_t read = std::fread(piece.data(), 1, piece.size(), file.get())) {
        actual.Add(piece.data(), read);
        actualSize += read;
    }
    if (actualSize != size) {
        return "has " + std::to_string(actualSize) + " bytes instead of " + std::to_string(size);
    }
    return actual.HexDigest() == digest ? "" : "has another content than its digest tells";
}

void CheckAttachments(StoreDatabase& store, StoreCheckResult& result) {
    const AttachmentStore attachments(store.Folder(), 0);
    SQLite::Statement rows(store.Connection(),
                           "SELECT digest, min(size), min(name) FROM attachment GROUP BY digest");
    int faults = 0;
    while (rows.executeStep()) {
        ++result.attachments;
        const std::string digest = rows.getColumn(0).getString();
        const std::string fault = FaultOfContent(attachments.ContentPath(digest).string(), digest,
                                                 static_cast<std::uint64_t>(rows.getColumn(1).getInt64()));
        if (!fault.empty() && ++faults <= kFaultsOfAKind) {
            std::string& line = result.faults.emplace_back("attachment ");
            line.append(digest)
                .append(" (\"")
                .append(rows.getColumn(2).getString())
                .append("\") ")
                .append(fault);
        }
    }
}

}  // namespace

StoreCheckResult CheckStore(StoreDatabase& store) {
    const StoreRead snapshot(store);
    StoreCheckResult result;
    CheckPages(store, result.faults);
    if (!result.IsSound()) {
        return result;  // what is read from broken pages proves nothing
    }
    result.jobs = store.Connection().execAndGet("SELECT count(*) FROM job").getInt64();
    result.attempts = store.Connection().execAndGet("SELECT count(*) FROM attempt").getInt64();
    for (const Rule& rule : kRules) {
        CheckRule(store, rule, result.faults);
    }
    CheckAttachments(store, result);
    return result;
}

}  // namespace kvhost
