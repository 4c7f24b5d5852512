#include "AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "FileDescriptor.h"

namespace kvsink {
namespace {

[[noreturn]] void throwSystemError(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

void writeNewFile(const std::string& path, std::string_view text, mode_t mode) {
    ::unlink(path.c_str());
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (file.get() < 0) {
        throwSystemError(path);
    }
    writeAll(file.get(), text);
}

}  // namespace

void writeFileAtomically(const std::string& path, std::string_view text, mode_t mode) {
    const std::string temporary = path + "." + std::to_string(::getpid()) + ".new";
    try {
        writeNewFile(temporary, text, mode);
        if (std::rename(temporary.c_str(), path.c_str()) != 0) {
            throwSystemError(path);
        }
    } catch (const std::system_error&) {
        ::unlink(temporary.c_str());
        throw;
    }
}

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            throwSystemError("write");
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
}

}  // namespace kvsink
