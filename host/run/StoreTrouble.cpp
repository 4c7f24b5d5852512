#include "StoreTrouble.h"

#include <algorithm>
#include <utility>

namespace kvhost {

namespace {

constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{5000};

}  // namespace

bool StoreTrouble::Note(const std::string& text, Time now) {
    m_pause = m_strText.empty() ? kFirstPause : std::min(2 * m_pause, kLongestPause);
    m_timeNext = now + m_pause;
    return std::exchange(m_strText, text) != text;
}

bool StoreTrouble::Clear() {
    return !std::exchange(m_strText, {}).empty();
}

std::optional<StoreTrouble::Time> StoreTrouble::Next() const {
    return m_strText.empty() ? std::nullopt : std::optional<Time>(m_timeNext);
}

}  // namespace kvhost
