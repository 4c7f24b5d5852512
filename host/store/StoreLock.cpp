#include "StoreLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

namespace kvhost {

namespace {

constexpr mode_t kOwnerOnly = 0600;

std::string LockFile(const std::filesystem::path& folder) {
    return (folder / "host.lock").string();
}

std::string ReadOwner(int fd) {
    std::array<char, 32> text{};
    const ssize_t size = ::pread(fd, text.data(), text.size(), 0);
    std::string owner(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    while (!owner.empty() && owner.back() == '\n') {
        owner.pop_back();
    }
    return owner.empty() ? "unknown" : owner;
}

// Who looks whether the lock is taken has it for a few microseconds: that must not keep a host from starting.
bool Lock(int fd) {
    constexpr int kTries = 50;
    constexpr useconds_t kPauseUs = 10000;
    for (int i = 1; i < kTries; ++i) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            return true;
        }
        ::usleep(kPauseUs);  // flock waits either not at all or without limit
    }
    return ::flock(fd, LOCK_EX | LOCK_NB) == 0;
}

bool WriteOwner(int fd) {
    const std::string text = std::to_string(::getpid()) + "\n";
    return ::ftruncate(fd, 0) == 0 &&
           ::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

}  // namespace

StoreLock::StoreLock(const std::filesystem::path& folder) {
    const std::string file = LockFile(folder);
    m_fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly);
    if (m_fd < 0) {
        throw StoreError(file + ": the lock of the store cannot be made: " + std::strerror(errno));
    }
    if (!Lock(m_fd)) {
        const std::string owner = ReadOwner(m_fd);
        ::close(m_fd);
        throw StoreError(file + ": another kvhost runs on this store (process " + owner +
                         "); stop it first, or use another store");
    }
    if (!WriteOwner(m_fd)) {
        const int error = errno;
        ::close(m_fd);
        throw StoreError(file + ": the lock of the store cannot be written: " + std::strerror(error));
    }
}

StoreLock::~StoreLock() {
    ::close(m_fd);
}

bool StoreLock::IsTaken(const std::filesystem::path& folder) {
    const int fd = ::open(LockFile(folder).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        return false;
    }
    const bool isTaken = ::flock(fd, LOCK_SH | LOCK_NB) != 0;
    ::close(fd);
    return isTaken;
}

}  // namespace kvhost
