#pragma once

#include <stdexcept>
#include <string>

namespace kvhost {

/// Why a step of a probe did not succeed, in words. The text may hold what a server said, as it came.
class ProbeError : public std::runtime_error {
public:
    explicit ProbeError(const std::string& text) : std::runtime_error(text) {}
};

}  // namespace kvhost
