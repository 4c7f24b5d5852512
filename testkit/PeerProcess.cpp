#include "PeerProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <system_error>

namespace kvtest {

namespace {

constexpr int kReadBoundMs = 20000;

void check(int error, const char* what) {
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

void makePipe(int ends[2]) {
    check(pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno, "pipe");
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        all.push_back(text.data());
    }
    all.push_back(nullptr);
    return all;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& additions) {
    std::vector<std::string> all = additions;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        all.emplace_back(*entry);
    }
    return all;
}

}  // namespace

PeerProcess::PeerProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
    int input[2];
    int output[2];
    makePipe(input);
    makePipe(output);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::vector<std::string> argumentTexts = arguments;
    std::vector<std::string> environmentTexts = environmentWith(environment);
    const int error = posix_spawnp(&m_pid, argumentTexts[0].c_str(), &actions, nullptr,
                                   pointers(argumentTexts).data(), pointers(environmentTexts).data());
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    m_stdin = input[1];
    m_stdout = output[0];
    check(error, arguments[0].c_str());
}

PeerProcess::~PeerProcess() {
    close(m_stdin);
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
    close(m_stdout);
}

std::string PeerProcess::readLine() {
    std::string line;
    pollfd readable{m_stdout, POLLIN, 0};
    char c = '\0';
    while (poll(&readable, 1, kReadBoundMs) > 0 && read(m_stdout, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

bool PeerProcess::isRunning() {
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return info.si_pid == 0;
}

bool CanConnect(int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(descriptor);
    return connected;
}

}  // namespace kvtest
