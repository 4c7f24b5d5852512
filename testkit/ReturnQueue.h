#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <vector>

#include "KvMessageFileQueue.h"

namespace kvtest {

/// The host's return queue with the questions a test asks of it. Thread-safe through the queue's own lock.
///
///     ReturnQueue queue;
///     driver->m_pMsgFileQueue = &queue;
///     ASSERT_TRUE(queue.waitFor(3));
///     for (KvMessageFile* file : queue.drain()) EXPECT_EQ(queue.timesReturned(file), 1);
class ReturnQueue : public KvMessageFileQueue {
public:
    static constexpr std::chrono::milliseconds DefaultBound{10000};

    /// Waits until at least `n` files have come back in all, drained ones included. The driver gives no sign,
    /// so that the queue is looked at every millisecond. False when `bound` has passed without.
    bool waitFor(int n, std::chrono::milliseconds bound = DefaultBound);
    /// Takes out what came back since the last drain, oldest first.
    std::vector<KvMessageFile*> drain();

    /// How many times files have come back, drained ones included.
    int count();
    /// How many times this file has come back, drained or not.
    int timesReturned(const KvMessageFile* file);
    /// True when every file that has come back at all did so exactly once.
    bool eachReturnedOnce();

private:
    std::map<const KvMessageFile*, int> timesReturnedByFile();

    // Guarded by m_lock.
    std::vector<KvMessageFile*> m_drained;
};

}  // namespace kvtest
