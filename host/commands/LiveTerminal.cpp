#include "LiveTerminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <sstream>

#include "TextTable.h"

namespace kvhost {

namespace {

constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l";  // a screen of its own, without a cursor
constexpr const char* kLeave = "\x1b[?25h\x1b[?1049l";
constexpr const char* kHome = "\x1b[H";
constexpr const char* kEndOfLine = "\x1b[K\r\n";
constexpr const char* kEndOfScreen = "\x1b[J";
constexpr char kCtrlC = 0x03;
constexpr char kCtrlD = 0x04;

struct Size {
    std::size_t rows = 24;
    std::size_t columns = 80;
};

Size TerminalSize() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

sigset_t EndSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        ::sigaddset(&signals, number);
    }
    return signals;
}

int TimeoutMs(std::chrono::milliseconds left) {
    return static_cast<int>(std::max(left, std::chrono::milliseconds(0)).count());
}

}  // namespace

LiveTerminal::LiveTerminal() : m_setBefore() {
    const sigset_t signals = EndSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, &m_setBefore);
    m_fdSignals = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    m_bHasKeys = ::tcgetattr(STDIN_FILENO, &m_before) == 0;
    if (m_bHasKeys) {
        // Without ISIG, Ctrl-Z cannot leave a stopped process on a screen that is not the user's.
        termios keys = m_before;
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
        keys.c_cc[VMIN] = 0;
        keys.c_cc[VTIME] = 0;
        ::tcsetattr(STDIN_FILENO, TCSANOW, &keys);
    }
    Write(kEnter);
}

LiveTerminal::~LiveTerminal() {
    Write(kLeave);
    if (m_bHasKeys) {
        ::tcsetattr(STDIN_FILENO, TCSANOW, &m_before);
    }
    // A signal that has been taken is not to end the process now: the command ends by itself.
    WaitForEnd(std::chrono::milliseconds(0));
    ::close(m_fdSignals);
    ::pthread_sigmask(SIG_SETMASK, &m_setBefore, nullptr);
}

bool LiveTerminal::Draw(const std::string& text) {
    const Size size = TerminalSize();
    std::istringstream lines(text);
    std::string drawn = kHome;
    std::size_t row = 1;
    for (std::string line; row < size.rows && std::getline(lines, line); ++row) {
        drawn += Shorten(line, size.columns) + kEndOfLine;
    }
    return Write(drawn + kEndOfScreen);
}

bool LiveTerminal::WaitForEnd(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        std::array<pollfd, 2> waits{{{m_fdSignals, POLLIN, 0}, {m_bHasKeys ? STDIN_FILENO : -1, POLLIN, 0}}};
        const int ready = ::poll(waits.data(), waits.size(), TimeoutMs(left));
        if (ready == 0) {
            return false;
        }
        signalfd_siginfo signal{};
        if (::read(m_fdSignals, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
            return true;
        }
        if (waits[1].revents != 0 && HasEndKey()) {
            return true;
        }
    }
}

/// A terminal that is gone ends the view too.
bool LiveTerminal::HasEndKey() {
    std::array<char, 64> keys{};
    const ssize_t count = ::read(STDIN_FILENO, keys.data(), keys.size());
    for (ssize_t i = 0; i < count; ++i) {
        const char key = keys[static_cast<std::size_t>(i)];
        if (key == 'q' || key == 'Q' || key == kCtrlC || key == kCtrlD) {
            return true;
        }
    }
    return count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN);
}

bool LiveTerminal::Write(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

}  // namespace kvhost
