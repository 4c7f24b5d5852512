#pragma once

#include <signal.h>

#include <string>
#include <string_view>

namespace kvhost {

/// The standard output of a command. A reader that has seen enough and goes, as in `kvhost list | head`, is no fault:
/// what comes after is dropped. One thread at a time; one object in a process.
class CommandOutput {
public:
    CommandOutput();
    /// Gives the signal SIGPIPE back what it did.
    ~CommandOutput();
    CommandOutput(const CommandOutput&) = delete;
    CommandOutput& operator=(const CommandOutput&) = delete;

    void Write(std::string_view text);
    /// True when nobody reads any more, or nothing more can be written.
    bool IsClosed() const { return m_bClosed; }
    /// Answers `status`, the exit status of the command; when not all could be written, on a full disk for example,
    /// tells so on standard error and answers kExitSomeFailed unless `status` is a failure already.
    int Conclude(int status) const;

private:
    bool m_bClosed = false;
    int m_nError = 0;  ///< of errno; 0 when all was written, or when the reader went
    struct sigaction m_before;
};

/// One line on standard error, with "kvhost: " in front and control characters made visible.
void TellFault(const std::string& text);

}  // namespace kvhost
