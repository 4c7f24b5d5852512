#pragma once

#include <fcntl.h>

/// Makes a descriptor non-blocking for the life of the object, unless it is so already. One thread at a time.
class KvNonBlockingMode {
public:
    explicit KvNonBlockingMode(int descriptor) : m_descriptor(descriptor), m_bSwitched(!IsOn(descriptor)) {
        if (m_bSwitched) {
            m_bSwitched = Set(descriptor, true);
        }
    }
    ~KvNonBlockingMode() {
        if (m_bSwitched) {
            Set(m_descriptor, false);
        }
    }

    KvNonBlockingMode(const KvNonBlockingMode&) = delete;
    KvNonBlockingMode& operator=(const KvNonBlockingMode&) = delete;

    /// True while it is this object that made the descriptor non-blocking.
    bool IsSwitched() const { return m_bSwitched; }
    /// Leaves the descriptor non-blocking for good; undone with Set(descriptor, false).
    void Keep() { m_bSwitched = false; }

    static bool IsOn(int descriptor) {
        const int flags = fcntl(descriptor, F_GETFL);
        return flags != -1 && (flags & O_NONBLOCK) != 0;
    }

    /// Switches O_NONBLOCK and leaves the other status flags alone. False when the descriptor is not open.
    static bool Set(int descriptor, bool nonBlocking) {
        const int flags = fcntl(descriptor, F_GETFL);
        const int wanted = nonBlocking ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
        return flags != -1 && fcntl(descriptor, F_SETFL, wanted) == 0;
    }

private:
    int m_descriptor;
    bool m_bSwitched;
};
