#include "ReportOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace kvhost {

ReportOutput::ReportOutput() : m_nDescriptor(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stdout);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

ReportOutput::~ReportOutput() {
    std::fflush(stdout);
    if (m_nDescriptor >= 0) {
        ::dup2(m_nDescriptor, STDOUT_FILENO);
        ::close(m_nDescriptor);
    }
}

bool ReportOutput::Write(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(m_nDescriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

}  // namespace kvhost
