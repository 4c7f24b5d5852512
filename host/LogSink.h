#pragma once

#include <spdlog/logger.h>

#include <memory>
#include <string>

#include "AuthExchangeMask.h"
#include "KvLogInterface.h"
#include "SecretMask.h"

namespace kvhost {

/// Where log lines go to. Throws BadInput when `file` cannot be opened; an empty `file` is standard error, on
/// which `overProgress` has every line wipe the progress line first.
std::shared_ptr<spdlog::logger> OpenLog(spdlog::level::level_enum level, const std::string& file,
                                        bool overProgress);

/// What the driver logs, one line each, with secrets masked and control characters made visible. Thread-safe.
/// Nothing that goes wrong here reaches the driver.
class LogSink : public KvLogInterface {
public:
    LogSink(std::shared_ptr<spdlog::logger> logger, SecretMask secrets);

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
    const SecretMask m_secrets;
    AuthExchangeMask m_authExchange;
};

}  // namespace kvhost
