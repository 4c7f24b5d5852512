#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kvtest {

/// A server as a child process. It is told to end by closing its standard input, and by
/// SIGTERM. One thread at a time.
class PeerProcess {
public:
    /// Starts `arguments[0]`, looked up in PATH, with `environment` ("NAME=value") added to this process's
    /// own. Throws std::system_error.
    explicit PeerProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {});
    ~PeerProcess();

    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    /// The next line of its standard output, without the line end; empty when it ended. Waits up to 20 s.
    std::string readLine();
    bool isRunning();

private:
    pid_t m_pid = -1;
    int m_stdin = -1;
    int m_stdout = -1;
};

/// True when a client can connect to this port of 127.0.0.1.
bool CanConnect(int port);

}  // namespace kvtest
