#include "RecordingLog.h"

#include <algorithm>

namespace kvtest {

namespace {

template <typename Predicate>
int CountIf(const std::vector<LogEntry>& entries, Predicate predicate) {
    return static_cast<int>(std::ranges::count_if(entries, predicate));
}

auto HasText(const std::string& text) {
    return [&text](const LogEntry& entry) { return entry.text == text; };
}

auto HasPart(const std::string& part) {
    return [&part](const LogEntry& entry) { return entry.text.find(part) != std::string::npos; };
}

auto IsOf(Severity severity) {
    return [severity](const LogEntry& entry) { return entry.severity == severity; };
}

}  // namespace

void RecordingLog::LogTrace(const std::string& text, int line, const char* file) {
    add(Severity::Trace, text, line, file);
}

void RecordingLog::LogDebug(const std::string& text, int line, const char* file) {
    add(Severity::Debug, text, line, file);
}

void RecordingLog::LogInfo(const std::string& text, int line, const char* file) {
    add(Severity::Info, text, line, file);
}

void RecordingLog::LogWarning(const std::string& text, int line, const char* file) {
    add(Severity::Warning, text, line, file);
}

void RecordingLog::LogError(const std::string& text, int line, const char* file) {
    add(Severity::Error, text, line, file);
}

void RecordingLog::add(Severity severity, const std::string& text, int line, const char* file) {
    const std::lock_guard lock(m_mutex);
    m_entries.push_back({severity, text, line, file == nullptr ? "" : file, pthread_self()});
    m_added.notify_all();
}

std::vector<LogEntry> RecordingLog::entries() const {
    const std::lock_guard lock(m_mutex);
    return m_entries;
}

std::vector<std::string> RecordingLog::texts() const {
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> result;
    std::ranges::transform(m_entries, std::back_inserter(result), &LogEntry::text);
    return result;
}

std::vector<std::string> RecordingLog::texts(Severity severity) const {
    std::vector<std::string> result;
    for (const LogEntry& entry : entries()) {
        if (entry.severity == severity) {
            result.push_back(entry.text);
        }
    }
    return result;
}

std::vector<LogEntry> RecordingLog::entriesContaining(const std::string& part) const {
    std::vector<LogEntry> result;
    std::ranges::copy_if(entries(), std::back_inserter(result), HasPart(part));
    return result;
}

int RecordingLog::count() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(m_entries.size());
}

int RecordingLog::count(Severity severity) const {
    const std::lock_guard lock(m_mutex);
    return CountIf(m_entries, IsOf(severity));
}

int RecordingLog::countEqual(const std::string& text) const {
    const std::lock_guard lock(m_mutex);
    return CountIf(m_entries, HasText(text));
}

int RecordingLog::countContaining(const std::string& part) const {
    const std::lock_guard lock(m_mutex);
    return CountIf(m_entries, HasPart(part));
}

bool RecordingLog::has(Severity severity, const std::string& text) const {
    const std::lock_guard lock(m_mutex);
    return std::ranges::any_of(
        m_entries, [&](const LogEntry& entry) { return entry.severity == severity && entry.text == text; });
}

bool RecordingLog::waitFor(const std::string& text, int n, std::chrono::milliseconds bound) const {
    std::unique_lock lock(m_mutex);
    return m_added.wait_for(lock, bound, [&] { return CountIf(m_entries, HasText(text)) >= n; });
}

bool RecordingLog::waitForContaining(const std::string& part, int n, std::chrono::milliseconds bound) const {
    std::unique_lock lock(m_mutex);
    return m_added.wait_for(lock, bound, [&] { return CountIf(m_entries, HasPart(part)) >= n; });
}

void RecordingLog::clear() {
    const std::lock_guard lock(m_mutex);
    m_entries.clear();
}

}  // namespace kvtest
