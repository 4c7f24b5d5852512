#include "Housekeeper.h"

#include <SQLiteCpp/Statement.h>

#include <exception>
#include <utility>

#include "AttachmentStore.h"
#include "ExpiredJobs.h"
#include "JobLedger.h"
#include "JobOperations.h"
#include "StoreDatabase.h"

namespace kvhost {

namespace {

constexpr int kPortion = 100;
constexpr std::chrono::milliseconds kBetweenPortions{50};
constexpr std::chrono::milliseconds kBetweenRounds{60000};
/// Attachments are looked through in one round of so many.
constexpr int kRoundsToAttachments = 60;

/// How many jobs ended before `before`, up to a portion. It reads only: a search through a big store would keep others
/// from writing.
int CountEnded(StoreDatabase& store, StoreTime before) {
    SQLite::Statement count(
        store.Connection(),
        "SELECT count(*) FROM (SELECT 1 FROM job WHERE state IN (2, 3, 6) AND changed < ? "
        "LIMIT ?)");
    count.bind(1, ToNumber(before));
    count.bind(2, kPortion);
    count.executeStep();
    return count.getColumn(0).getInt();
}

bool PurgePortion(StoreDatabase& store, Milliseconds keep, StoreTime now) {
    if (keep.count() == 0) {
        return false;
    }
    const int ended = CountEnded(store, now - keep);
    if (ended > 0) {
        JobOperations(store).Purge(now - keep, std::nullopt, ended);
    }
    return ended == kPortion;
}

bool HasUntried(StoreDatabase& store, const std::string& carrier, StoreTime before) {
    SQLite::Statement look(
        store.Connection(),
        "SELECT 1 FROM job WHERE state = 0 AND carrier = ? AND urgent IN (0, 1) AND due < ?2 "
        "AND changed < ?2 AND deadline IS NULL LIMIT 1");
    look.bind(1, carrier);
    look.bind(2, ToNumber(before));
    return look.executeStep();
}

bool GiveUpPortion(StoreDatabase& store, const HostConfig& config, StoreTime now,
                   std::vector<ExpiredJob>& expired) {
    bool mayBeMore = false;
    JobLedger ledger(store);
    for (const auto& [name, carrier] : config.carriers) {
        const StoreTime before = now - carrier.retry.lifetime;
        if (carrier.retry.lifetime.count() > 0 && HasUntried(store, name, before)) {
            const std::vector<ExpiredJob> portion = ledger.ExpireUntried(name, before, now, kPortion);
            expired.insert(expired.end(), portion.begin(), portion.end());
            mayBeMore = static_cast<int>(portion.size()) == kPortion || mayBeMore;
        }
    }
    return mayBeMore;
}

}  // namespace

bool TidyPortion(StoreDatabase& store, const HostConfig& config, StoreTime now,
                 std::vector<ExpiredJob>& expired) {
    const bool mayBeMoreToPurge = PurgePortion(store, config.run.keep, now);
    const bool mayBeMoreToGiveUp = GiveUpPortion(store, config, now, expired);
    return mayBeMoreToPurge || mayBeMoreToGiveUp;
}

Housekeeper::Housekeeper(std::filesystem::path storeFolder, std::shared_ptr<const HostConfig> config,
                         LogSink& log, RunObserver& observer)
    : m_pathStore(std::move(storeFolder)),
      m_log(log),
      m_observer(observer),
      m_pConfig(std::move(config)),
      m_thread([this] { Main(); }) {}

Housekeeper::~Housekeeper() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_bEnd = true;
        m_changed.notify_all();
    }
    m_thread.join();
}

void Housekeeper::Adopt(std::shared_ptr<const HostConfig> config) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_pConfig = std::move(config);
}

void Housekeeper::Main() {
    int round = 0;
    do {
        std::shared_ptr<const HostConfig> config;
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            config = m_pConfig;
        }
        try {
            StoreDatabase store(m_pathStore, StoreDatabase::Access::Existing);
            while (Tidy(store, *config) && Pause(kBetweenPortions)) {
            }
            if (++round % kRoundsToAttachments == 1 && Pause(kBetweenPortions)) {
                AttachmentStore(m_pathStore, config->limits.attachmentBytes).RemoveUnused(store);
            }
        } catch (const std::exception& error) {
            m_log.Warn(std::string("the store could not be tidied up: ") + error.what());
        }
    } while (Pause(kBetweenRounds));
}

bool Housekeeper::Tidy(StoreDatabase& store, const HostConfig& config) {
    std::vector<ExpiredJob> expired;
    const bool mayBeMore = TidyPortion(store, config, StoreNow(), expired);
    TellExpired(expired, m_log, m_observer);
    return mayBeMore;
}

/// False when the thread is to end.
bool Housekeeper::Pause(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_changed.wait_for(lock, time, [this] { return m_bEnd; });
}

}  // namespace kvhost
