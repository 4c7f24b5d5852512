#pragma once

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "KvLogInterface.h"

namespace kvtest {

enum class Severity { Trace, Debug, Info, Warning, Error };

struct LogEntry {
    Severity severity = Severity::Trace;
    std::string text;
    int line = 0;
    std::string file;
    pthread_t thread = {};
};

/// A log sink that keeps every line. Thread-safe.
///
///     RecordingLog log;
///     driver->m_pLog = &log;
///     ...
///     EXPECT_EQ(log.texts(Severity::Error), std::vector<std::string>{"Error: no such user"});
class RecordingLog : public KvLogInterface {
public:
    static constexpr std::chrono::milliseconds DefaultBound{10000};

    // KvLogInterface
    void LogTrace(const std::string& text, int line, const char* file) override;
    void LogDebug(const std::string& text, int line, const char* file) override;
    void LogInfo(const std::string& text, int line, const char* file) override;
    void LogWarning(const std::string& text, int line, const char* file) override;
    void LogError(const std::string& text, int line, const char* file) override;

    /// All entries in the order in which they came.
    std::vector<LogEntry> entries() const;
    std::vector<std::string> texts() const;
    std::vector<std::string> texts(Severity severity) const;
    /// The entries whose text contains `part`.
    std::vector<LogEntry> entriesContaining(const std::string& part) const;

    int count() const;
    int count(Severity severity) const;
    int countEqual(const std::string& text) const;
    int countContaining(const std::string& part) const;
    bool has(Severity severity, const std::string& text) const;
    bool contains(const std::string& part) const { return countContaining(part) > 0; }

    /// Waits until `text` was logged at least `n` times. False when `bound` has passed without.
    bool waitFor(const std::string& text, int n = 1, std::chrono::milliseconds bound = DefaultBound) const;
    /// The same for lines that contain `part`.
    bool waitForContaining(const std::string& part, int n = 1,
                           std::chrono::milliseconds bound = DefaultBound) const;
    void clear();

private:
    void add(Severity severity, const std::string& text, int line, const char* file);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_added;
    // Guarded by m_mutex.
    std::vector<LogEntry> m_entries;
};

}  // namespace kvtest
