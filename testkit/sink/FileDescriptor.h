#pragma once

#include <unistd.h>

#include <utility>

namespace kvsink {

/// Owns a descriptor and closes it. Externally synchronised.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        other.reset();
        return *this;
    }
    ~FileDescriptor() { reset(); }

    /// The descriptor, or -1.
    int get() const { return m_fd; }

    /// Closes the descriptor, if there is one.
    void reset() {
        if (m_fd >= 0) {
            ::close(std::exchange(m_fd, -1));
        }
    }

private:
    int m_fd;
};

}  // namespace kvsink
