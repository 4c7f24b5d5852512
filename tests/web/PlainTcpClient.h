#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

namespace kvhosttest {

/// What the server at that port of 127.0.0.1 answers to these bytes, until it closes the connection, or until it is
/// silent for ten seconds.
inline std::string Exchange(int port, const std::string& request) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit = {10, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        ::send(socket, request.data(), request.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(request.size())) {
        char buffer[4096];
        for (ssize_t count = 0; (count = ::recv(socket, buffer, sizeof(buffer), 0)) > 0;) {
            answer.append(buffer, static_cast<std::size_t>(count));
        }
    }
    ::close(socket);
    return answer;
}

}  // namespace kvhosttest
