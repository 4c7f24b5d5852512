#include "KvProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t kCommandBufferSize = 1024;

/// Goes on in a child of the calling process. False, in the caller, when there is none.
bool ContinueInChild() {
    const pid_t child = fork();
    if (child > 0) {
        _exit(0);
    }
    return child == 0;
}

/// Opens /dev/null as the descriptors 0, 1 and 2; all are closed.
void OpenNullStreams() {
    const int null = open("/dev/null", O_RDWR);
    for (int copies = 0; copies < 2; ++copies) {
        [[maybe_unused]] const int copy = dup(null);
    }
}

}  // namespace

int Kvsystem(const std::string& command) {
    return std::system(command.c_str());
}

// The child shares nothing with the other threads of the process but calls of the system: all that it needs is
// made before.
int Kvsystem(const std::string& path, const std::vector<std::string>& args) {
    std::vector<std::string> copies = args;
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& copy : copies) {
        arguments.push_back(copy.data());
    }
    arguments.push_back(nullptr);

    const pid_t child = fork();
    if (child == -1) {
        return 0;
    }
    if (child == 0) {
        execv(path.c_str(), arguments.data());
        _exit(0);
    }
    int status = 0;
    const pid_t ended = waitpid(child, &status, 0);
    return ended == child && WIFEXITED(status) ? WEXITSTATUS(status) : ended;
}

// Half a command may do something else than the whole one: it is not run.
void systemEx(char* format, ...) {
    std::array<char, kCommandBufferSize> command{};
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(command.data(), command.size(), format, arguments);
    va_end(arguments);
    if (length >= 0 && static_cast<std::size_t>(length) < command.size()) {
        Kvsystem(command.data());
    }
}

// The second child leads no session, so that it can never get a terminal.
bool KvstartDaemon(bool changeDir, bool closeFiles) {
    if (!ContinueInChild() || setsid() == -1 || !ContinueInChild()) {
        return false;
    }
    if (changeDir) {
        [[maybe_unused]] const int changed = chdir("/");
    }
    if (closeFiles) {
        closeallfiles(0);
        OpenNullStreams();
    }
    return true;
}

// The limit can be a thousand million: one call closes them all. Systems before it close one at a time.
int closeallfiles(int from) {
    const int first = std::max(from, 0);
    const int last = static_cast<int>(sysconf(_SC_OPEN_MAX)) - 1;
    if (last < first ||
        close_range(static_cast<unsigned int>(first), static_cast<unsigned int>(last), 0) == 0) {
        return 0;
    }
    for (int descriptor = first; descriptor <= last; ++descriptor) {
        close(descriptor);
    }
    return 0;
}

bool IsProcessRunning(unsigned long pid) {
    return kill(static_cast<pid_t>(pid), 0) == 0;
}

int GetTimeOfDay(timeval* now, struct timezone* zone) {
    return gettimeofday(now, zone);
}
