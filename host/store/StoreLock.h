#pragma once

#include <filesystem>

#include "StoreError.h"

namespace kvhost {

/// The right to be the one running host of a store: a lock on the file "host.lock" in its folder, with the process id
/// in it for people. The kernel gives it up when the process ends, however it ends.
class StoreLock {
public:
    /// Takes the lock. Throws StoreError when another process has it (naming that process), or when the file cannot
    /// be made.
    explicit StoreLock(const std::filesystem::path& folder);
    ~StoreLock();
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

    /// True while some process has the lock of the store.
    static bool IsTaken(const std::filesystem::path& folder);

private:
    int m_fd = -1;
};

}  // namespace kvhost
