#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kvsink {

/// Base64 of RFC 4648 section 4, without line breaks. The functions keep no state.
std::string encodeBase64(std::string_view bytes);

/// The bytes, or nothing when `text` has a foreign character, a wrong length or misplaced padding.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace kvsink
