#include "LogSink.h"

#include <cxxabi.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Problem.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr const char* kPattern = "%Y-%m-%dT%H:%M:%S.%e%z %l [%t] %v";
constexpr const char* kWipeLine = "\r\033[K";
constexpr const char* kHost = "kvhost";

/// "FILE:LINE", or the name alone for a line that has no call site.
std::string CallSite(const char* file, int line) {
    const std::string name = file != nullptr ? file : "?";
    return line > 0 ? name + ":" + std::to_string(line) : name;
}

std::shared_ptr<spdlog::sinks::sink> OpenFileSink(const LogFile& file) {
    if (file.bytes == 0) {
        return std::make_shared<spdlog::sinks::basic_file_sink_mt>(file.path);
    }
    const auto bytes = static_cast<std::size_t>(std::min<std::uint64_t>(file.bytes, SIZE_MAX));
    const auto older = static_cast<std::size_t>(std::max(file.files - 1, 0));
    return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(file.path, bytes, older);
}

std::shared_ptr<spdlog::sinks::sink> OpenSink(const LogFile& file) {
    if (file.path.empty()) {
        return std::make_shared<spdlog::sinks::stderr_sink_mt>();
    }
    try {
        return OpenFileSink(file);
    } catch (const spdlog::spdlog_ex& error) {
        throw BadInput(file.path + ": cannot be opened for the log: " + error.what());
    }
}

std::shared_ptr<spdlog::logger> MakeLogger(spdlog::level::level_enum level, const LogFile& file,
                                           const std::string& pattern) {
    const auto sink = OpenSink(file);
    sink->set_pattern(pattern);
    auto logger = std::make_shared<spdlog::logger>("kvhost", sink);
    logger->set_level(level);
    // A line that waits in memory is not seen by who follows the file, and is lost when the process is killed.
    logger->flush_on(spdlog::level::trace);
    return logger;
}

}  // namespace

std::shared_ptr<spdlog::logger> OpenLog(spdlog::level::level_enum level, const std::string& file,
                                        bool overProgress) {
    return MakeLogger(level, {file},
                      overProgress && file.empty() ? std::string(kWipeLine) + kPattern : kPattern);
}

std::shared_ptr<spdlog::logger> OpenLog(spdlog::level::level_enum level, const LogFile& file) {
    return MakeLogger(level, file, kPattern);
}

LogSink::LogSink(std::shared_ptr<spdlog::logger> logger, SecretMask secrets)
    : LogSink(std::move(logger), std::make_shared<Secrets>(std::move(secrets)), {}) {}

LogSink::LogSink(std::shared_ptr<spdlog::logger> logger, std::shared_ptr<const Secrets> secrets,
                 Watcher watcher)
    : m_pLogger(std::move(logger)), m_pSecrets(std::move(secrets)), m_watcher(std::move(watcher)) {}

void LogSink::LogTrace(const std::string& text, int line, const char* file) {
    Write(spdlog::level::trace, text, file, line);
}

void LogSink::LogDebug(const std::string& text, int line, const char* file) {
    Write(spdlog::level::debug, text, file, line);
}

void LogSink::LogInfo(const std::string& text, int line, const char* file) {
    Write(spdlog::level::info, text, file, line);
}

void LogSink::LogWarning(const std::string& text, int line, const char* file) {
    Write(spdlog::level::warn, text, file, line);
}

void LogSink::LogError(const std::string& text, int line, const char* file) {
    Write(spdlog::level::err, text, file, line);
}

void LogSink::Tell(const std::string& text) {
    Write(spdlog::level::info, text, kHost, 0);
}

void LogSink::Warn(const std::string& text) {
    Write(spdlog::level::warn, text, kHost, 0);
}

// Each level is always wholly in or out, and all traffic lines have one level: an exchange is never seen in
// part.
void LogSink::Write(spdlog::level::level_enum level, const std::string& text, const char* file, int line) {
    try {
        if (m_watcher) {
            m_watcher(text);
        }
        if (!m_pLogger->should_log(level)) {
            return;
        }
        const std::string masked = m_pSecrets->Mask(m_authExchange.Apply(text));
        m_pLogger->log(level, "{} {}", CallSite(file, line), MakeVisible(masked));
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // A line that cannot be written is lost; the driver's work goes on.
        return;
    }
}

}  // namespace kvhost
