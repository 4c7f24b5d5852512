#include "Descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace kvtest {

int OpenDescriptorCount() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    // One of them is the folder that is being read.
    return static_cast<int>(std::distance(entries, std::filesystem::directory_iterator())) - 1;
}

bool RaiseDescriptorLimit(unsigned wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return false;
    }
    if (limit.rlim_cur >= wanted) {
        return true;
    }
    limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
    return setrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur >= wanted;
}

OccupiedDescriptors::OccupiedDescriptors(int lowest) {
    RaiseDescriptorLimit(static_cast<unsigned>(lowest) + 256);
    for (;;) {
        ScopedDescriptor next(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!next.valid()) {
            throw std::system_error(errno, std::generic_category(), "open /dev/null");
        }
        if (next.get() >= lowest) {
            return;
        }
        m_held.push_back(std::move(next));
    }
}

}  // namespace kvtest
