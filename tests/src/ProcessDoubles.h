#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>

#include "Eventually.h"

/// Writes the line counts of this process down; there is none in a build without coverage.
extern "C" [[gnu::weak]] void __gcov_dump();

// What the tests of the process-wide functions share: they run in children of the test program.

namespace kvtest {

/// Ends a child process as it is, without what the test program would do at its end.
[[noreturn]] inline void EndChild(int status) {
    if (&__gcov_dump != nullptr) {
        __gcov_dump();
    }
    _exit(status);
}

/// Starts a child that runs `body` and ends with the status that it answers, 99 for an exception. A child that
/// hangs is ended after a minute. To be called while the program has one thread.
inline pid_t StartChild(const std::function<int()>& body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        int status = 99;
        try {
            status = body();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "the child threw: %s\n", error.what());
        }
        EndChild(status);
    }
    if (child == -1) {
        throw std::runtime_error("no child");
    }
    return child;
}

/// Waits for a child: its exit status, or minus the number of the signal that ended it.
inline int EndOf(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

inline int StatusOfChild(const std::function<int()>& body) {
    return EndOf(StartChild(body));
}

inline std::string ContentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline bool FileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

/// Runs `body` in a child and hands back the text that it answers. A child that failed answers "(no text)".
inline std::string TextOfChild(const std::function<std::string()>& body) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = StartChild([&] {
        const std::string text = body();
        return write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1;
    });
    close(ends[1]);
    std::string text;
    char buffer[512];
    for (ssize_t size = 0; (size = read(ends[0], buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    return EndOf(child) == 0 ? text : "(no text)";
}

}  // namespace kvtest
