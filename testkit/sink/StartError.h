#pragma once

#include <stdexcept>
#include <string>

namespace kvsink {

/// Why a server cannot start. Immutable. The text begins with the option that is to blame: "--cert: ...".
class StartError : public std::runtime_error {
public:
    StartError(const std::string& option, const std::string& reason)
        : std::runtime_error(option + ": " + reason) {}
};

}  // namespace kvsink
