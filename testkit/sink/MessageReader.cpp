#include "MessageReader.h"

namespace kvsink {

void MessageReader::reset() {
    m_state = State::lineStart;
    m_size = 0;
}

std::size_t MessageReader::consume(std::string_view input, std::string* content) {
    std::size_t taken = 0;
    while (taken < input.size() && m_state != State::ended) {
        taken += step(input.substr(taken), content);
    }
    return taken;
}

/// One move of the state machine on input that is not empty; returns how many bytes it takes.
std::size_t MessageReader::step(std::string_view input, std::string* content) {
    switch (m_state) {
        case State::lineStart:
            return input.front() == '.' ? enter(State::dot, 1) : enter(State::text, 0);
        case State::text:
            return takeText(input, content);
        case State::afterCr:
            return takeAfterCr(input, content);
        case State::dot:  // a stuffed dot unless CR LF follows: it is dropped
            return input.front() == '\r' ? enter(State::dotCr, 1) : enter(State::text, 0);
        case State::dotCr:
            return takeDotCr(input, content);
        case State::ended:
            break;
    }
    return 0;
}

/// Takes whole lines as far as no line begins with a dot.
std::size_t MessageReader::takeText(std::string_view input, std::string* content) {
    const std::size_t found = input.find("\r\n.");
    const std::string_view text = input.substr(0, found == std::string_view::npos ? found : found + 2);
    append(text, content);
    const State next = text.ends_with("\r\n") ? State::lineStart
                       : text.ends_with('\r') ? State::afterCr
                                              : State::text;
    return enter(next, text.size());
}

std::size_t MessageReader::takeAfterCr(std::string_view input, std::string* content) {
    if (input.front() != '\n') {
        return enter(State::text, 0);
    }
    append("\n", content);
    return enter(State::lineStart, 1);
}

std::size_t MessageReader::takeDotCr(std::string_view input, std::string* content) {
    if (input.front() == '\n') {
        return enter(State::ended, 1);
    }
    append("\r", content);
    return enter(State::afterCr, 0);
}

void MessageReader::append(std::string_view bytes, std::string* content) {
    m_size += bytes.size();
    if (content != nullptr) {
        content->append(bytes);
    }
}

std::size_t MessageReader::enter(State state, std::size_t taken) {
    m_state = state;
    return taken;
}

}  // namespace kvsink
