#pragma once

#include <unistd.h>

namespace kvhost {

/// A descriptor that is closed with the object; a negative one stands for none. Immutable.
class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int fd) : m_fd(fd) {}
    ~OwnedDescriptor() {
        if (IsOpen()) {
            ::close(m_fd);
        }
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

    int Get() const { return m_fd; }
    bool IsOpen() const { return m_fd >= 0; }

private:
    const int m_fd;
};

}  // namespace kvhost
