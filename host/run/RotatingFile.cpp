#include "RotatingFile.h"

#include <fcntl.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Problem.h"

namespace kvhost {

RotatingFile::RotatingFile(const RotatedFile& settings) : m_settings(settings) {
    if (!Open()) {
        throw BadInput(m_settings.path + ": cannot be opened for appending: " + std::strerror(errno) +
                       "; name a file in a folder that kvhost may write to");
    }
}

RotatingFile::~RotatingFile() {
    Close();
}

std::string RotatingFile::Append(std::string_view line) {
    const std::string whole = std::string(line) + "\n";
    if (m_fd >= 0 && m_nSize > 0 && m_nSize + whole.size() > m_settings.bytes) {
        Rotate();
    }
    if (m_fd < 0 && !Open()) {
        return std::strerror(errno);
    }
    const ssize_t written = ::write(m_fd, whole.data(), whole.size());
    if (written == static_cast<ssize_t>(whole.size())) {
        m_nSize += whole.size();
        return "";
    }
    const int cause = written < 0 ? errno : ENOSPC;
    // Half a line would spoil the next one. What is no regular file cannot be cut, and keeps nothing either.
    if (::ftruncate(m_fd, static_cast<off_t>(m_nSize)) != 0) {
        Close();
    }
    return std::strerror(cause);
}

bool RotatingFile::Open() {
    m_fd = ::open(m_settings.path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    struct stat status {};
    if (m_fd < 0 || ::fstat(m_fd, &status) != 0) {
        return false;
    }
    m_nSize = static_cast<std::uint64_t>(status.st_size);
    return true;
}

void RotatingFile::Close() {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

// A file that is not there cannot be renamed, which is nothing to worry about. When the current one stays where it is,
// opening it again goes on with it.
void RotatingFile::Rotate() {
    Close();
    const int oldest = m_settings.files - 1;
    if (oldest < 1) {
        std::remove(m_settings.path.c_str());
    }
    for (int number = oldest; number >= 1; --number) {
        std::rename(PathOf(number - 1).c_str(), PathOf(number).c_str());
    }
    Open();
}

std::string RotatingFile::PathOf(int number) const {
    return spdlog::sinks::rotating_file_sink_mt::calc_filename(m_settings.path,
                                                               static_cast<std::size_t>(number));
}

}  // namespace kvhost
