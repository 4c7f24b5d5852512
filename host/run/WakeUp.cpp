#include "WakeUp.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace kvhost {

namespace {

int OpenEvent() {
    const int fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for a wake-up");
    }
    return fd;
}

}  // namespace

WakeUp::WakeUp() : m_fd(OpenEvent()) {}

WakeUp::~WakeUp() {
    ::close(m_fd);
}

// A counter that is full is one that was not answered yet.
void WakeUp::Wake() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_fd, &one, sizeof(one));
}

bool WakeUp::Answer() noexcept {
    std::uint64_t count = 0;
    return ::read(m_fd, &count, sizeof(count)) == static_cast<ssize_t>(sizeof(count));
}

}  // namespace kvhost
