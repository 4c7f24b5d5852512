#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kvsink {

/// Receives the content of one mail after DATA, in pieces of any size, and removes the stuffed dots
/// (RFC 5321 4.5.2). Externally synchronised.
///
/// Only CR LF "." CR LF ends the content, or "." CR LF as its very first line. A bare CR or LF is content.
class MessageReader {
public:
    /// Starts over with the next mail.
    void reset();

    /// Takes the part of `input` that belongs to the mail and appends the content to *content, unless that is
    /// null. Returns the number of bytes taken: all of them, or those up to the end mark and with it.
    std::size_t consume(std::string_view input, std::string* content);

    bool atEnd() const { return m_state == State::ended; }
    /// Bytes of content so far, after dot-unstuffing.
    std::uint64_t size() const { return m_size; }

private:
    enum class State { lineStart, text, afterCr, dot, dotCr, ended };

    std::size_t step(std::string_view input, std::string* content);
    std::size_t takeText(std::string_view input, std::string* content);
    std::size_t takeAfterCr(std::string_view input, std::string* content);
    std::size_t takeDotCr(std::string_view input, std::string* content);
    void append(std::string_view bytes, std::string* content);
    std::size_t enter(State state, std::size_t taken);

    State m_state = State::lineStart;
    std::uint64_t m_size = 0;
};

}  // namespace kvsink
