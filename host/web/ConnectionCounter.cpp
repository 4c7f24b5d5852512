#include "ConnectionCounter.h"

#include <string_view>

namespace kvhost {

namespace {

constexpr std::string_view kAttempted = "Creating new connection object.";
constexpr std::string_view kReused = "Getting connection object from cache.";
constexpr std::string_view kFailed = "Failed to create new connection for carrier: ";

}  // namespace

void ConnectionCounter::Watch(const std::string& text) {
    if (text == kAttempted) {
        ++m_nAttempted;
    } else if (text == kReused) {
        ++m_nReused;
    } else if (text.compare(0, kFailed.size(), kFailed) == 0) {
        ++m_nFailed;
    }
}

ConnectionFigures ConnectionCounter::Get() const {
    return {m_nAttempted.load(), m_nFailed.load(), m_nReused.load()};
}

}  // namespace kvhost
