#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kvhost {

/// A whole reply of an SMTP server (RFC 5321 4.2). A value.
struct ProbeReply {
    int code = 0;
    std::vector<std::string> lines;  ///< without their line ends, as they came
    int pieces = 0;                  ///< reads that it took
    std::size_t bytes = 0;

    bool IsRefusal() const { return code >= 400; }
    /// The lines in one, with " / " between them.
    std::string Text() const;
};

/// Takes the first reply off the beginning of `input`; nothing, and `input` as it was, while it is not complete. Throws
/// ProbeError when a line is none of a reply.
std::optional<ProbeReply> TakeReply(std::string& input);

}  // namespace kvhost
