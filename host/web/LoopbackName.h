#pragma once

#include <string>

namespace kvhost {

/// True for "localhost", an IPv4 address that begins with 127, and "::1".
bool IsLoopback(const std::string& host);

/// The host of a Host header (RFC 9110 7.2), without its port and without the brackets of an IPv6 address.
std::string HostOf(const std::string& header);

}  // namespace kvhost
