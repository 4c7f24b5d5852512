#include "ProbeReply.h"

#include <string_view>

#include "ProbeError.h"

namespace kvhost {

namespace {

constexpr std::size_t kShownBytes = 200;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// A digit from 2 to 5, two more, and then nothing, a blank or a hyphen.
bool IsReplyLine(std::string_view line) {
    return line.size() >= 3 && line[0] >= '2' && line[0] <= '5' && IsDigit(line[1]) && IsDigit(line[2]) &&
           (line.size() == 3 || line[3] == ' ' || line[3] == '-');
}

/// The line without the CR at its end.
std::string_view LineAt(std::string_view input, std::size_t start, std::size_t end) {
    const std::string_view line = input.substr(start, end - start);
    return !line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line;
}

int CodeOf(const std::string& line) {
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

}  // namespace

std::string ProbeReply::Text() const {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : " / ") + line;
    }
    return text;
}

std::optional<ProbeReply> TakeReply(std::string& input) {
    ProbeReply reply;
    std::size_t start = 0;
    for (std::size_t end = input.find('\n'); end != std::string::npos; end = input.find('\n', start)) {
        const std::string_view line = LineAt(input, start, end);
        if (!IsReplyLine(line)) {
            throw ProbeError("the server sends what is no SMTP reply: " +
                             std::string(line.substr(0, kShownBytes)));
        }
        reply.lines.emplace_back(line);
        start = end + 1;
        if (line.size() == 3 || line[3] != '-') {
            reply.code = CodeOf(reply.lines.back());
            reply.bytes = start;
            input.erase(0, start);
            return reply;
        }
    }
    return std::nullopt;
}

}  // namespace kvhost
