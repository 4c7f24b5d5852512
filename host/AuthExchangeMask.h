#pragma once

#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace kvhost {

/// Hides what a client says while it authenticates, in log lines of mail traffic: "<= TEXT" is what was sent,
/// "=> TEXT" what was received. Thread-safe; a conversation is taken to stay on one thread while it
/// authenticates.
///
/// From a "<= AUTH" line on, what the same thread's lines send is hidden, until a reply that does not ask for
/// more (RFC 4954: 334 asks for more). A line that begins with no digit is the rest of a reply, not a reply.
class AuthExchangeMask {
public:
    /// `line` as it may be shown. Lines that are no traffic pass unchanged.
    std::string Apply(std::string_view line);

private:
    bool IsAuthenticating();
    void SetAuthenticating(bool isAuthenticating);

    std::mutex m_mutex;
    std::set<std::thread::id> m_setAuthenticating;  ///< guarded by m_mutex
};

}  // namespace kvhost
