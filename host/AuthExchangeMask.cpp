#include "AuthExchangeMask.h"

#include <strings.h>

namespace kvhost {

namespace {

constexpr std::string_view kSent = "<= ";
constexpr std::string_view kReceived = "=> ";
constexpr std::string_view kAuth = "AUTH ";

bool IsAuthCommand(std::string_view command) {
    return command.size() >= kAuth.size() && strncasecmp(command.data(), kAuth.data(), kAuth.size()) == 0;
}

/// The command without an initial response: credentials may follow the mechanism's name on the same line.
std::string WithoutInitialResponse(std::string_view line) {
    const std::size_t blank = line.find(' ', kSent.size() + kAuth.size());
    return blank == std::string_view::npos ? std::string(line)
                                           : std::string(line.substr(0, blank)) + " [masked]";
}

bool EndsExchange(std::string_view reply) {
    return !reply.empty() && reply.front() >= '0' && reply.front() <= '9' && reply.front() != '3';
}

}  // namespace

std::string AuthExchangeMask::Apply(std::string_view line) {
    if (line.substr(0, kReceived.size()) == kReceived) {
        if (EndsExchange(line.substr(kReceived.size()))) {
            SetAuthenticating(false);
        }
    } else if (line.substr(0, kSent.size()) == kSent) {
        if (IsAuthenticating()) {
            return "<= [masked]";
        }
        if (IsAuthCommand(line.substr(kSent.size()))) {
            SetAuthenticating(true);
            return WithoutInitialResponse(line);
        }
    }
    return std::string(line);
}

bool AuthExchangeMask::IsAuthenticating() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_setAuthenticating.count(std::this_thread::get_id()) != 0;
}

void AuthExchangeMask::SetAuthenticating(bool isAuthenticating) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (isAuthenticating) {
        m_setAuthenticating.insert(std::this_thread::get_id());
    } else {
        m_setAuthenticating.erase(std::this_thread::get_id());
    }
}

}  // namespace kvhost
