#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace kvhosttest {

/// A program that runs on a terminal of its own, of 24 rows and 100 columns. One thread at a time. A child that has not
/// ended when the object does is killed.
class TerminalProcess {
public:
    explicit TerminalProcess(const std::vector<std::string>& command)
        : m_fdMaster(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        char name[128];
        if (m_fdMaster < 0 || ::grantpt(m_fdMaster) != 0 || ::unlockpt(m_fdMaster) != 0 ||
            ::ptsname_r(m_fdMaster, name, sizeof name) != 0) {
            throw std::runtime_error("no terminal");
        }
        // Held open, so that what the child leaves behind can be read after its end.
        m_fdSlave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        const winsize size{24, 100, 0, 0};
        ::ioctl(m_fdMaster, TIOCSWINSZ, &size);
        Spawn(command, name);
    }

    ~TerminalProcess() {
        if (m_nProcess > 0) {
            ::kill(m_nProcess, SIGKILL);
            ::waitpid(m_nProcess, nullptr, 0);
        }
        ::close(m_fdSlave);
        ::close(m_fdMaster);
    }

    TerminalProcess(const TerminalProcess&) = delete;
    TerminalProcess& operator=(const TerminalProcess&) = delete;

    void Signal(int number) const { ::kill(m_nProcess, number); }
    void Type(const std::string& keys) const {
        if (::write(m_fdMaster, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
            throw std::runtime_error("the terminal takes no keys");
        }
    }

    /// Reads until the output contains `text`; false after 30 s without it.
    bool WaitFor(const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (m_strOutput.find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            Collect(100);
        }
        return true;
    }

    /// Waits for the end, reading on; answers the exit status, -1 for an end by a signal or none within 30 s.
    int Wait() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        int status = 0;
        while (::waitpid(m_nProcess, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > end) {
                return -1;
            }
            Collect(10);
        }
        m_nProcess = -1;
        while (Collect(0)) {
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string& Output() const { return m_strOutput; }
    /// Whether the terminal shows what is typed and hands it over line by line, as a shell leaves it.
    bool IsOrdinary() const {
        termios settings{};
        ::tcgetattr(m_fdSlave, &settings);
        constexpr tcflag_t kOrdinary = ICANON | ECHO | ISIG;
        return (settings.c_lflag & kOrdinary) == kOrdinary;
    }

private:
    void Spawn(const std::vector<std::string>& command, const char* terminal) {
        std::vector<char*> arguments;
        for (const std::string& part : command) {
            arguments.push_back(const_cast<char*>(part.c_str()));
        }
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::posix_spawn_file_actions_addopen(&actions, descriptor, terminal, O_RDWR, 0);
        }
        posix_spawnattr_t attributes;
        ::posix_spawnattr_init(&attributes);
        sigset_t none;
        ::sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&attributes, &none);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
        const int failed =
            ::posix_spawn(&m_nProcess, arguments[0], &actions, &attributes, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
        if (failed != 0) {
            m_nProcess = -1;
            throw std::runtime_error(std::string("cannot run ") + arguments[0]);
        }
    }

    /// True when something came within `limitMs`.
    bool Collect(int limitMs) {
        pollfd wait{m_fdMaster, POLLIN, 0};
        if (::poll(&wait, 1, limitMs) <= 0) {
            return false;
        }
        char buffer[4096];
        const ssize_t count = ::read(m_fdMaster, buffer, sizeof buffer);
        if (count > 0) {
            m_strOutput.append(buffer, static_cast<std::size_t>(count));
        }
        return count > 0;
    }

    const int m_fdMaster;
    int m_fdSlave = -1;
    pid_t m_nProcess = -1;
    std::string m_strOutput;
};

}  // namespace kvhosttest
