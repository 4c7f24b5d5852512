#pragma once

#include <stdexcept>
#include <string>

namespace kvhost {

/// The store cannot be used: the text names the file or folder, what is wrong with it and what to do.
class StoreError : public std::runtime_error {
public:
    explicit StoreError(const std::string& text) : std::runtime_error(text) {}
};

}  // namespace kvhost
