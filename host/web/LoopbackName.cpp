#include "LoopbackName.h"

#include <arpa/inet.h>
#include <strings.h>

namespace kvhost {

bool IsLoopback(const std::string& host) {
    in_addr address{};
    if (::inet_pton(AF_INET, host.c_str(), &address) == 1) {
        return (ntohl(address.s_addr) >> 24U) == 127;
    }
    return host == "::1" || ::strcasecmp(host.c_str(), "localhost") == 0;
}

std::string HostOf(const std::string& header) {
    if (!header.empty() && header.front() == '[') {
        const std::size_t end = header.find(']');
        return end == std::string::npos ? header : header.substr(1, end - 1);
    }
    return header.substr(0, header.find(':'));
}

}  // namespace kvhost
