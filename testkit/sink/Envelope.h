#pragma once

#include <string>
#include <vector>

namespace kvsink {

/// Who a mail is from and for: the addresses of MAIL and RCPT, without angle brackets, in the order received.
struct Envelope {
    std::string sender;  ///< empty for the null reverse-path
    std::vector<std::string> recipients;
};

/// How a mail arrived: the facts that the Received header states.
struct Origin {
    std::string heloName;
    std::string address;   ///< the client's address in text
    std::string protocol;  ///< a "with" protocol of RFC 3848: SMTP, ESMTP, ESMTPS, ESMTPA or ESMTPSA
};

}  // namespace kvsink
