#pragma once

#include <unistd.h>

#include <utility>

namespace kvtest {

/// Owns a file descriptor and closes it. One thread at a time; movable.
class ScopedDescriptor {
public:
    ScopedDescriptor() = default;
    explicit ScopedDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~ScopedDescriptor() { reset(); }

    ScopedDescriptor(ScopedDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    ScopedDescriptor& operator=(ScopedDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    /// The descriptor, or -1.
    int get() const { return m_descriptor; }
    bool valid() const { return m_descriptor >= 0; }
    void reset() {
        if (m_descriptor >= 0) {
            close(std::exchange(m_descriptor, -1));
        }
    }

private:
    int m_descriptor = -1;
};

}  // namespace kvtest
