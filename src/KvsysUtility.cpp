#include "KvsysUtility.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t kLongestAddress = 15;
constexpr std::size_t kBufferSize = 512;

/// The first line that `command` writes, without what is beyond 511 characters; empty when there is none.
std::string FirstLineOf(const char* command) {
    FILE* const output = popen(command, "re");
    if (output == nullptr) {
        return "";
    }
    std::array<char, kBufferSize> line{};
    const bool hasLine = std::fgets(line.data(), static_cast<int>(line.size()), output) != nullptr;
    pclose(output);
    return hasLine ? line.data() : "";
}

}  // namespace

// The shell takes the first of the two spaces for a part of the pattern: 10.0.0.1 is not found in 10.0.0.12.
bool KvsysUtility::VerifyIP(const std::string& ip) {
    if (ip.empty() || ip.size() > kLongestAddress) {
        return false;
    }
    std::array<char, kBufferSize> command{};
    std::snprintf(command.data(), command.size(),
                  "ifconfig -a | grep -v grep | grep %s\\  | wc -l |awk '{print $1}'", ip.c_str());
    return std::strtol(FirstLineOf(command.data()).c_str(), nullptr, 10) > 0;
}
