#pragma once

#include <spdlog/logger.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "AuthExchangeMask.h"
#include "KvLogInterface.h"
#include "SecretMask.h"
#include "Secrets.h"

namespace kvhost {

/// The file that log lines go to. Immutable value.
struct LogFile {
    std::string path;         ///< empty: standard error
    std::uint64_t bytes = 0;  ///< size at which it is begun anew; 0 for no limit
    int files = 5;  ///< that are kept then, the current one included: NAME.log, NAME.1.log and so on
};

/// Where log lines go to. Throws BadInput when the file cannot be opened. The level may be changed later, on any thread
/// (set_level).
std::shared_ptr<spdlog::logger> OpenLog(spdlog::level::level_enum level, const LogFile& file);

/// Where log lines go to. Throws BadInput when `file` cannot be opened; an empty `file` is standard error, on
/// which `overProgress` has every line wipe the progress line first.
std::shared_ptr<spdlog::logger> OpenLog(spdlog::level::level_enum level, const std::string& file,
                                        bool overProgress);

/// What the driver logs, one line each, with secrets masked and control characters made visible. Thread-safe.
/// Nothing that goes wrong here reaches the driver.
class LogSink : public KvLogInterface {
public:
    /// Gets every text before it is masked and whatever its level, on the thread that logs it. It must be thread-safe
    /// and keep nothing of the text.
    using Watcher = std::function<void(const std::string& text)>;

    LogSink(std::shared_ptr<spdlog::logger> logger, SecretMask secrets);
    /// `secrets` may learn more later; `watcher` may be empty.
    LogSink(std::shared_ptr<spdlog::logger> logger, std::shared_ptr<const Secrets> secrets, Watcher watcher);

    void LogTrace(const std::string& text, int line, const char* file) override;
    void LogDebug(const std::string& text, int line, const char* file) override;
    void LogInfo(const std::string& text, int line, const char* file) override;
    void LogWarning(const std::string& text, int line, const char* file) override;
    void LogError(const std::string& text, int line, const char* file) override;

    /// A step of the host itself, at level info.
    void Tell(const std::string& text);
    /// A trouble of the host itself, at level warning.
    void Warn(const std::string& text);
    void Flush() { m_pLogger->flush(); }

private:
    void Write(spdlog::level::level_enum level, const std::string& text, const char* file, int line);

    const std::shared_ptr<spdlog::logger> m_pLogger;
    const std::shared_ptr<const Secrets> m_pSecrets;
    const Watcher m_watcher;
    AuthExchangeMask m_authExchange;
};

}  // namespace kvhost
