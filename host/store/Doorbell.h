#pragma once

#include <filesystem>

namespace kvhost {

/// Wakes the running host of a store when another process or thread has changed it: the FIFO "doorbell" in the store's
/// folder. A ring that nobody hears is no trouble: the host looks at the store by itself now and then.
class Doorbell {
public:
    /// Makes the FIFO when it is missing and opens it, as the one that listens. Throws StoreError.
    explicit Doorbell(const std::filesystem::path& folder);
    ~Doorbell();
    Doorbell(const Doorbell&) = delete;
    Doorbell& operator=(const Doorbell&) = delete;

    /// Readable when somebody rang.
    int Descriptor() const { return m_fd; }
    /// Forgets all rings so far; true when there was one.
    bool Answer();

    /// Rings at the store of `folder`. Any thread of any process; never waits, never fails.
    static void Ring(const std::filesystem::path& folder) noexcept;

private:
    int m_fd = -1;
};

}  // namespace kvhost
