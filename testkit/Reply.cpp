#include "Reply.h"

#include <utility>

namespace kvtest {

Reply& Reply::split(std::vector<std::size_t> at, std::chrono::milliseconds between) {
    offsets = std::move(at);
    pause = between;
    return *this;
}

Reply& Reply::byteByByte(std::chrono::milliseconds between) {
    eachByte = true;
    pause = between;
    return *this;
}

Reply& Reply::delayed(std::chrono::milliseconds time) {
    delay = time;
    return *this;
}

Reply& Reply::heldBy(Gate door) {
    gate = std::move(door);
    return *this;
}

Reply& Reply::restHeldBy(Gate door) {
    restGate = std::move(door);
    return *this;
}

Reply& Reply::followedBy(Then action) {
    then = action;
    return *this;
}

bool Reply::isRefusal() const {
    return !bytes.empty() && (bytes[0] == '4' || bytes[0] == '5');
}

std::vector<std::string> Reply::pieces() const {
    std::vector<std::size_t> ends;
    for (std::size_t offset = 1; eachByte && offset < bytes.size(); ++offset) {
        ends.push_back(offset);
    }
    if (!eachByte) {
        ends = offsets;
    }
    ends.push_back(bytes.size());
    std::vector<std::string> result;
    std::size_t begin = 0;
    for (const std::size_t end : ends) {
        if (end > begin && end <= bytes.size()) {
            result.push_back(bytes.substr(begin, end - begin));
            begin = end;
        }
    }
    return result;
}

}  // namespace kvtest
