#include "Doorbell.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "StoreError.h"

namespace kvhost {

namespace {

constexpr const char* kName = "doorbell";
constexpr mode_t kMode = 0660;

std::string PathIn(const std::filesystem::path& folder) {
    return (folder / kName).string();
}

[[noreturn]] void Fail(const std::string& path, int error) {
    throw StoreError(path + ": cannot be opened as a FIFO: " + std::generic_category().message(error) +
                     "; remove it, it is made anew");
}

}  // namespace

// Opened for writing too, so that the reader never sees an end when the last ringer has gone.
Doorbell::Doorbell(const std::filesystem::path& folder) {
    const std::string path = PathIn(folder);
    if (::mkfifo(path.c_str(), kMode) == 0) {
        // Whatever the mask of the process: the group of the store may ring.
        ::chmod(path.c_str(), kMode);
    } else if (errno != EEXIST) {
        Fail(path, errno);
    }
    m_fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    if (m_fd < 0) {
        Fail(path, errno);
    }
    struct stat info {};
    if (::fstat(m_fd, &info) != 0 || !S_ISFIFO(info.st_mode)) {
        ::close(m_fd);
        Fail(path, EEXIST);
    }
}

Doorbell::~Doorbell() {
    ::close(m_fd);
}

bool Doorbell::Answer() {
    std::array<char, 512> rings{};
    bool hasRung = false;
    while (::read(m_fd, rings.data(), rings.size()) > 0) {
        hasRung = true;
    }
    return hasRung;
}

// Opened for reading too: a listener that dies between the open and the write would otherwise end the ringer with SIGPIPE.
// What nobody hears is gone with the descriptor; a pipe that is full of rings needs no more.
void Doorbell::Ring(const std::filesystem::path& folder) noexcept {
    try {
        const int fd = ::open(PathIn(folder).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0) {
            return;
        }
        struct stat info {};
        if (::fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode)) {
            const char ring = 1;
            [[maybe_unused]] const auto written = ::write(fd, &ring, 1);
        }
        ::close(fd);
    } catch (...) {
        return;
    }
}

}  // namespace kvhost
