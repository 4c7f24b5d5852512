#include "ReturnQueue.h"

#include <algorithm>

#include "Eventually.h"
#include "KvconCriticalSection.h"

namespace kvtest {

bool ReturnQueue::waitFor(int n, std::chrono::milliseconds bound) {
    return Eventually([&] { return count() >= n; }, bound);
}

std::vector<KvMessageFile*> ReturnQueue::drain() {
    const KvconCriticalSection section(&m_lock, true, true, false);
    const std::vector<KvMessageFile*> result(m_dqMsgFiles.begin(), m_dqMsgFiles.end());
    m_dqMsgFiles.clear();
    m_drained.insert(m_drained.end(), result.begin(), result.end());
    return result;
}

int ReturnQueue::count() {
    const KvconCriticalSection section(&m_lock, true, true, false);
    return static_cast<int>(m_drained.size() + m_dqMsgFiles.size());
}

int ReturnQueue::timesReturned(const KvMessageFile* file) {
    const auto times = timesReturnedByFile();
    const auto found = times.find(file);
    return found == times.end() ? 0 : found->second;
}

bool ReturnQueue::eachReturnedOnce() {
    return std::ranges::all_of(timesReturnedByFile(), [](const auto& each) { return each.second == 1; });
}

std::map<const KvMessageFile*, int> ReturnQueue::timesReturnedByFile() {
    const KvconCriticalSection section(&m_lock, true, true, false);
    std::map<const KvMessageFile*, int> result;
    for (const KvMessageFile* file : m_drained) {
        ++result[file];
    }
    for (const KvMessageFile* file : m_dqMsgFiles) {
        ++result[file];
    }
    return result;
}

}  // namespace kvtest
