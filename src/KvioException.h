#pragma once

#include "KvException.h"

/// An input or output operation failed. Immutable after construction.
class KvioException : public KvException {
public:
    KvioException(const std::string& ioPath, const char* sourceFile, int sourceLine,
                  const std::string& message, const std::string& systemMessage);
    KvioException(const std::string& ioPath, const char* sourceFile, int sourceLine,
                  const std::string& message);
    KvioException(const std::string& ioPath, const std::string& message);
    ~KvioException() override = default;

    std::string ToString() override;

    /// The path, address or endpoint on which the operation failed.
    std::string GetPath() const { return path; }

protected:
    std::string path;
};
