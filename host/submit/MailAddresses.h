#pragma once

#include <string>
#include <vector>

namespace kvhost {

/// The addresses of a header field such as To (RFC 5322 3.4), without names, comments and groups. Throws MailFault,
/// naming `field`, for one that is malformed.
std::vector<std::string> ReadAddresses(const std::string& field, const std::string& text);

/// An address in the form in which it is compared: the domain is the same in either case, what stands before it need
/// not be (RFC 5321 2.4).
std::string ComparableAddress(const std::string& address);

}  // namespace kvhost
