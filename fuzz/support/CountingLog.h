#pragma once

#include <cstddef>

#include "KvLogInterface.h"

namespace kvfuzz {

/// A log that looks at every byte and keeps none.
class CountingLog : public KvLogInterface {
public:
    void LogTrace(const std::string& text, int line, const char* file) override { Count(text, line, file); }
    void LogDebug(const std::string& text, int line, const char* file) override { Count(text, line, file); }
    void LogInfo(const std::string& text, int line, const char* file) override { Count(text, line, file); }
    void LogWarning(const std::string& text, int line, const char* file) override { Count(text, line, file); }
    void LogError(const std::string& text, int line, const char* file) override { Count(text, line, file); }

    std::size_t Bytes() const { return m_nBytes; }

private:
    void Count(const std::string& text, int line, const char* file) {
        m_nBytes += text.size() + (line != 0 && file != nullptr ? 1 : 0);
    }

    std::size_t m_nBytes = 0;
};

}  // namespace kvfuzz
