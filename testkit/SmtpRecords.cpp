#include "SmtpRecords.h"

#include <cstdio>

namespace kvtest {

namespace {

std::string Joined(const std::vector<Chunk>& chunks, Direction direction) {
    std::string result;
    for (const Chunk& chunk : chunks) {
        if (chunk.direction == direction) {
            result += chunk.bytes;
        }
    }
    return result;
}

std::string Escaped(unsigned char byte) {
    switch (byte) {
        case '\r':
            return "\\r";
        case '\n':
            return "\\n";
        case '\\':
            return "\\\\";
        default:
            break;
    }
    if (byte >= 0x20 && byte < 0x7f) {
        return std::string(1, static_cast<char>(byte));
    }
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned>(byte));
    return text;
}

}  // namespace

std::vector<std::string> TransactionRecord::recipientAddresses() const {
    std::vector<std::string> result;
    for (const RecipientRecord& recipient : recipients) {
        result.push_back(recipient.address);
    }
    return result;
}

std::string ConnectionRecord::clientBytes() const {
    return Joined(chunks, Direction::FromClient);
}

std::string ConnectionRecord::serverBytes() const {
    return Joined(chunks, Direction::FromServer);
}

std::vector<std::string> ConnectionRecord::steps() const {
    std::vector<std::string> result;
    for (const CommandRecord& command : commands) {
        result.push_back(command.step);
    }
    return result;
}

std::vector<std::string> ConnectionRecord::lines() const {
    std::vector<std::string> result;
    for (const CommandRecord& command : commands) {
        result.push_back(command.line);
    }
    return result;
}

std::string ConnectionRecord::toText() const {
    std::string result;
    for (const Chunk& chunk : chunks) {
        result += chunk.direction == Direction::FromClient ? "C" : "S";
        result += chunk.insideTls ? " (tls): " : ": ";
        for (const char byte : chunk.bytes) {
            result += Escaped(static_cast<unsigned char>(byte));
        }
        result += "\n";
    }
    return result;
}

}  // namespace kvtest
