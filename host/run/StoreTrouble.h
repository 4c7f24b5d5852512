#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace kvhost {

/// Whether the store can be used at the moment, and when it is to be tried again: 100 ms after the first failure, then
/// twice as long each time, up to 5 s. One thread at a time.
class StoreTrouble {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// True when there is no trouble, or when it is time to try again.
    bool MayTry(Time now) const { return m_strText.empty() || now >= m_timeNext; }
    /// True when the trouble is new, or another one than before.
    bool Note(const std::string& text, Time now);
    /// True when there was one.
    bool Clear();

    const std::string& Text() const { return m_strText; }
    /// When to try again; nothing when there is no trouble.
    std::optional<Time> Next() const;

private:
    std::string m_strText;
    Time m_timeNext;
    std::chrono::milliseconds m_pause{0};
};

}  // namespace kvhost
