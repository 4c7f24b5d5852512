#include "LineReader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "Problem.h"

namespace kvhost {

namespace {

constexpr std::size_t kMostBytes = std::size_t{256} << 20U;

[[noreturn]] void Fail(const std::string& name, unsigned long line, const std::string& text) {
    throw BadInput({Problem{name, line, "", text}});
}

bool IsRegular(int fd) {
    struct stat status {};
    return fd >= 0 && ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

/// -1 with errno. A pipe that nobody writes is not waited for here when there is something that cuts waits short.
int Open(const std::string& path, int interrupt) {
    if (path == "-") {
        return STDIN_FILENO;
    }
    if (interrupt < 0) {
        return ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    }
    return fd;
}

}  // namespace

LineReader::LineReader(const std::string& path, int interrupt)
    : m_strName(path == "-" ? "standard input" : path),
      m_fd(Open(path, interrupt)),
      m_interrupt(IsRegular(m_fd) ? -1 : interrupt) {
    if (m_fd < 0) {
        Fail(m_strName, 0, "cannot be read: " + std::generic_category().message(errno));
    }
}

LineReader::~LineReader() {
    if (m_fd != STDIN_FILENO) {
        ::close(m_fd);
    }
}

std::optional<std::string> LineReader::Next() {
    while (!HasLine() && !m_bEnd) {
        ReadMore();
    }
    const bool isCutOff = m_bInterrupted && m_nScanned == m_strBuffer.size();
    if (m_nBegin == m_strBuffer.size() || isCutOff) {
        return std::nullopt;
    }
    ++m_nLine;
    std::string line = m_strBuffer.substr(m_nBegin, m_nScanned - m_nBegin);
    m_nBegin = m_nScanned < m_strBuffer.size() ? m_nScanned + 1 : m_nScanned;
    m_nScanned = m_nBegin;
    return line;
}

bool LineReader::IsReady() {
    while (!HasLine() && !m_bEnd) {
        pollfd wait{m_fd, POLLIN, 0};
        if (::poll(&wait, 1, 0) == 0) {
            return false;
        }
        ReadMore();
    }
    return true;
}

std::string LineReader::Rest() {
    while (!m_bEnd) {
        ReadMore();
    }
    return m_strBuffer.substr(m_nBegin);
}

bool LineReader::HasLine() {
    const std::size_t end = m_strBuffer.find('\n', m_nScanned);
    m_nScanned = end == std::string::npos ? m_strBuffer.size() : end;
    return end != std::string::npos;
}

void LineReader::ReadMore() {
    m_strBuffer.erase(0, m_nBegin);
    m_nScanned -= m_nBegin;
    m_nBegin = 0;
    if (m_strBuffer.size() > kMostBytes) {
        Fail(m_strName, m_nLine + 1, "expected at most 256 MiB, found more");
    }
    if (!WaitForMore()) {
        m_bInterrupted = true;
        m_bEnd = true;
        return;
    }
    std::array<char, 65536> piece{};
    const ssize_t count = ::read(m_fd, piece.data(), piece.size());
    if (count > 0) {
        m_strBuffer.append(piece.data(), static_cast<std::size_t>(count));
    } else if (count == 0) {
        m_bEnd = true;
    } else if (errno != EINTR) {
        Fail(m_strName, m_nLine + 1, "cannot be read: " + std::generic_category().message(errno));
    }
}

/// False when the wait was cut short.
bool LineReader::WaitForMore() {
    std::array<pollfd, 2> waits{{{m_fd, POLLIN, 0}, {m_interrupt, POLLIN, 0}}};
    while (m_interrupt >= 0 && ::poll(waits.data(), waits.size(), -1) < 0 && errno == EINTR) {
    }
    return m_interrupt < 0 || waits[1].revents == 0;
}

}  // namespace kvhost
