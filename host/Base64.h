#pragma once

#include <string>
#include <string_view>

namespace kvhost {

/// Base64 (RFC 4648 4) on one line, however long.
std::string Base64(std::string_view bytes);

}  // namespace kvhost
