#pragma once

#include <string>

#include "SmtpRecords.h"

namespace kvtest {

/// A whole conversation, byte for byte: "S: " or "C: " (inside TLS "S*: " or "C*: ") and then everything that
/// side sent until the other one spoke. How the bytes were cut into segments does not show.
inline std::string TranscriptOf(const ConnectionRecord& connection) {
    std::string transcript;
    std::string speaker;
    for (const Chunk& chunk : connection.chunks) {
        const std::string side = chunk.direction == Direction::FromClient ? "C" : "S";
        const std::string now = side + (chunk.insideTls ? "*: " : ": ");
        transcript += (now == speaker ? "" : now) + chunk.bytes;
        speaker = now;
    }
    return transcript;
}

}  // namespace kvtest
