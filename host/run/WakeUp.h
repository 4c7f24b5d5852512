#pragma once

namespace kvhost {

/// Ends the wait of one thread from any other: a descriptor that poll reports readable once it was woken. Thread-safe.
class WakeUp {
public:
    /// Throws std::system_error when the process has no descriptor left.
    WakeUp();
    ~WakeUp();
    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    int Descriptor() const { return m_fd; }
    /// Never waits, never fails.
    void Wake() noexcept;
    /// Forgets that it was woken; true when it was.
    bool Answer() noexcept;

private:
    const int m_fd;
};

}  // namespace kvhost
