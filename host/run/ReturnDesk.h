#pragma once

#include <atomic>
#include <string>

#include "KvMessageFileQueue.h"
#include "RunState.h"

namespace kvhost {

/// Takes back what the driver is through with, and decides what follows. One thread at a time, except for NoteComing.
class ReturnDesk {
public:
    ReturnDesk(RunState& state, KvMessageFileQueue& returned) : m_state(state), m_returned(returned) {}

    /// A file is about to be put into the return queue. Thread-safe.
    void NoteComing() noexcept { ++m_nComing; }
    /// Empties the queue; the outcomes are in the book then.
    void Collect(StoreTime now);
    /// True while a file that was announced is not in the queue yet, for a short while: it will be in a moment.
    bool ExpectsMore();

    /// From now on the driver cleans up: what it hands back for no reason of a server was perhaps being sent, so its
    /// attempt stays open, and the next start treats it as in doubt.
    void BeginCleanUp() { m_bCleaningUp = true; }

private:
    void NoteReturned(const KvMessageFile* returned, StoreTime now);
    void NoteRefused(const DriverLoop::Refusal& refusal, StoreTime now);
    void Conclude(const JobFile& file, const Verdict& verdict, StoreTime now);
    void NoteHealth(const JobFile& file, const Verdict& verdict, const FailureSign& sign);
    void Release(const JobFile& file);
    const RetryPolicy& PolicyOf(const std::string& carrier) const;

    RunState& m_state;
    KvMessageFileQueue& m_returned;
    std::atomic<long> m_nComing{0};
    long m_nCollected = 0;  ///< files that were announced and found in the queue
    int m_nHurry = 0;       ///< how often in a row more was expected
    bool m_bCleaningUp = false;
};

}  // namespace kvhost
