#pragma once

#include <string>

/// The host's logging sink. Thread-safe: the driver calls it from every thread that it runs code on. A line for which an
/// operation throws is lost; the exception goes no further.
///
/// Each operation takes the formatted text, the source line and the source file name of the call site.
/// The order of the five operations is the order of their slots; hosts are compiled against it.
class KvLogInterface {
public:
    virtual void LogTrace(const std::string& text, int line, const char* file) = 0;
    virtual void LogDebug(const std::string& text, int line, const char* file) = 0;
    virtual void LogInfo(const std::string& text, int line, const char* file) = 0;
    virtual void LogWarning(const std::string& text, int line, const char* file) = 0;
    virtual void LogError(const std::string& text, int line, const char* file) = 0;

protected:
    /// Not virtual, so that LogTrace is the first slot; the driver never deletes a sink.
    ~KvLogInterface() = default;
};
