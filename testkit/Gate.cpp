#include "Gate.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "ScopedDescriptor.h"

namespace kvtest {

/// An event descriptor that is never read, so that it stays readable once it was written.
class Gate::Door {
public:
    Door() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!m_event.valid()) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }
    int descriptor() const { return m_event.get(); }

private:
    ScopedDescriptor m_event;
};

Gate::Gate() : m_door(std::make_shared<Door>()) {}

void Gate::open() {
    const std::uint64_t one = 1;
    // A counter that is full already says what it has to.
    [[maybe_unused]] const ssize_t written = write(descriptor(), &one, sizeof one);
}

bool Gate::isOpen() const {
    pollfd door{descriptor(), POLLIN, 0};
    return poll(&door, 1, 0) == 1;
}

int Gate::descriptor() const {
    return m_door->descriptor();
}

}  // namespace kvtest
