#pragma once

#include "KvException.h"

/// A concurrency operation failed. Immutable after construction.
class KvconException : public KvException {
public:
    KvconException(unsigned long failedThreadID, const char* sourceFile, int sourceLine,
                   const std::string& message, const std::string& systemMessage);
    KvconException(unsigned long failedThreadID, const char* sourceFile, int sourceLine,
                   const std::string& message);
    KvconException(unsigned long failedThreadID, const std::string& message);
    ~KvconException() override = default;

    /// Compatibility: the thread id is printed with "%d", so an id above 2^31-1 prints as a negative number.
    /// Relied on by: log readers that match "ThreadID[...]" as a signed 32-bit number.
    /// Held by: KvconExceptionTest.ThreadIdIsPrintedAsASigned32BitNumber.
    std::string ToString() override;

    /// Id of the thread that failed or raised.
    unsigned long GetThreadID() const { return threadID; }

protected:
    unsigned long threadID;
};
