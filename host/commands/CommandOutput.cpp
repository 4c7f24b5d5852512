#include "CommandOutput.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "ExitStatus.h"
#include "VisibleText.h"

namespace kvhost {

CommandOutput::CommandOutput() : m_before() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &m_before);
}

CommandOutput::~CommandOutput() {
    ::sigaction(SIGPIPE, &m_before, nullptr);
}

void CommandOutput::Write(std::string_view text) {
    while (!m_bClosed && !text.empty()) {
        const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            m_bClosed = true;
            m_nError = errno == EPIPE ? 0 : errno;
        }
    }
}

int CommandOutput::Conclude(int status) const {
    if (m_nError == 0) {
        return status;
    }
    TellFault(std::string("standard output cannot be written: ") + std::strerror(m_nError));
    return status == kExitSuccess ? kExitSomeFailed : status;
}

void TellFault(const std::string& text) {
    std::cerr << "kvhost: " << MakeVisible(text) << std::endl;
}

}  // namespace kvhost
