#pragma once

#include <signal.h>
#include <termios.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace kvhost {

/// The terminal of a view that is drawn over and over: a screen of its own, no cursor, keys read one by one. The
/// destructor puts everything back, and the signals that end a process (SIGINT, SIGTERM, SIGHUP, SIGQUIT) are taken by
/// Wait meanwhile, so that it comes to that. One thread at a time; one object in a process.
class LiveTerminal {
public:
    /// Takes standard input, when that is a terminal, and standard output, which must be one.
    LiveTerminal();
    ~LiveTerminal();
    LiveTerminal(const LiveTerminal&) = delete;
    LiveTerminal& operator=(const LiveTerminal&) = delete;

    /// Draws `text`, line by line, cut off at the right and the lower edge. Control characters are made visible. False
    /// when the terminal is gone.
    bool Draw(const std::string& text);
    /// Waits at most `limit`; true as soon as the user wants to end: the key q, Ctrl-C or Ctrl-D, or a signal.
    bool WaitForEnd(std::chrono::milliseconds limit);

private:
    bool HasEndKey();
    static bool Write(const std::string& text);

    bool m_bHasKeys = false;  ///< standard input is a terminal
    termios m_before{};       ///< meaningful with keys
    sigset_t m_setBefore;
    int m_fdSignals = -1;
};

}  // namespace kvhost
