#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace kvhosttest {

/// A program that runs as a child, with its standard output and error collected. One thread at a time.
///
/// The child begins with no signal blocked and with the default dispositions. A child that has not ended when
/// the object does, or within the bound of Wait, is killed.
class ChildProcess {
public:
    struct Input {
        std::string standardInput;
        std::map<std::string, std::string> environment;  ///< added to this process's own
    };

    ChildProcess(const std::vector<std::string>& command, const Input& input) {
        MakePipe(m_arrIn);
        MakePipe(m_arrOut);
        MakePipe(m_arrErr);
        Spawn(command, input.environment);
        CloseEnd(m_arrIn[0]);
        CloseEnd(m_arrOut[1]);
        CloseEnd(m_arrErr[1]);
        Feed(input.standardInput);
    }

    ~ChildProcess() {
        if (m_nProcess > 0) {
            ::kill(m_nProcess, SIGKILL);
            ::waitpid(m_nProcess, nullptr, 0);
        }
        for (int descriptor : {m_arrIn[1], m_arrOut[0], m_arrErr[0]}) {
            if (descriptor >= 0) {
                ::close(descriptor);
            }
        }
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void Signal(int number) const { ::kill(m_nProcess, number); }

    /// Waits for the end and answers the exit status; -1 for an end by a signal. Throws after 30 s.
    int Wait() {
        if (!CollectUntil([] { return false; })) {
            throw std::runtime_error("the child did not end in time; so far it said: " + m_strErr);
        }
        int status = 0;
        ::waitpid(m_nProcess, &status, 0);
        m_nProcess = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// Waits until standard error contains `text`. False when the child ends without, or after 30 s.
    bool WaitForError(const std::string& text) {
        CollectUntil([&] { return m_strErr.find(text) != std::string::npos; });
        return m_strErr.find(text) != std::string::npos;
    }

    const std::string& Output() const { return m_strOut; }
    const std::string& Error() const { return m_strErr; }

private:
    static void MakePipe(int (&ends)[2]) {
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
    }

    static void CloseEnd(int& descriptor) {
        ::close(descriptor);
        descriptor = -1;
    }

    void Spawn(const std::vector<std::string>& command, const std::map<std::string, std::string>& added) {
        std::vector<char*> arguments;
        for (const std::string& part : command) {
            arguments.push_back(const_cast<char*>(part.c_str()));
        }
        arguments.push_back(nullptr);
        std::vector<std::string> texts = EnvironmentWith(added);
        std::vector<char*> environment;
        for (std::string& text : texts) {
            environment.push_back(text.data());
        }
        environment.push_back(nullptr);
        Spawn(arguments.data(), environment.data());
    }

    void Spawn(char* const* arguments, char* const* environment) {
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, m_arrIn[0], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, m_arrOut[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, m_arrErr[1], STDERR_FILENO);
        posix_spawnattr_t attributes;
        ::posix_spawnattr_init(&attributes);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes, &signals);
        ::sigaddset(&signals, SIGINT);
        ::sigaddset(&signals, SIGQUIT);
        ::posix_spawnattr_setsigdefault(&attributes, &signals);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        const int failed =
            ::posix_spawn(&m_nProcess, arguments[0], &actions, &attributes, arguments, environment);
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
        if (failed != 0) {
            throw std::runtime_error(std::string("cannot run ") + arguments[0]);
        }
    }

    static std::vector<std::string> EnvironmentWith(const std::map<std::string, std::string>& added) {
        std::vector<std::string> texts;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            texts.emplace_back(*entry);
        }
        for (const auto& [name, value] : added) {
            texts.push_back(name + "=" + value);
        }
        return texts;
    }

    /// The inputs of these tests fit into a pipe.
    void Feed(const std::string& text) {
        if (!text.empty() &&
            ::write(m_arrIn[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
            throw std::runtime_error("the child does not read");
        }
        CloseEnd(m_arrIn[1]);
    }

    /// Collects until `isEnough` or until the child has closed both streams. False after 30 s.
    template <typename IsEnough>
    bool CollectUntil(const IsEnough& isEnough) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!isEnough() && (m_arrOut[0] >= 0 || m_arrErr[0] >= 0)) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            pollfd waits[2] = {{m_arrOut[0], POLLIN, 0}, {m_arrErr[0], POLLIN, 0}};
            ::poll(waits, 2, 100);
            Collect(waits[0], m_arrOut[0], m_strOut);
            Collect(waits[1], m_arrErr[0], m_strErr);
        }
        return true;
    }

    static void Collect(const pollfd& wait, int& descriptor, std::string& text) {
        if (descriptor < 0 || wait.revents == 0) {
            return;
        }
        char buffer[4096];
        const ssize_t count = ::read(descriptor, buffer, sizeof(buffer));
        if (count > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        } else {
            CloseEnd(descriptor);
        }
    }

    pid_t m_nProcess = -1;
    int m_arrIn[2] = {-1, -1};
    int m_arrOut[2] = {-1, -1};
    int m_arrErr[2] = {-1, -1};
    std::string m_strOut;
    std::string m_strErr;
};

}  // namespace kvhosttest
