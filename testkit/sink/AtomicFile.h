#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace kvsink {

/// Makes or replaces a file so that a reader sees the old text or the new one, never a part: writes a new
/// file beside it and renames that. `mode` is the new file's permissions, e.g. 0600. Throws
/// std::system_error.
void writeFileAtomically(const std::string& path, std::string_view text, mode_t mode);

/// write() until everything is written. Throws std::system_error.
void writeAll(int fd, std::string_view bytes);

}  // namespace kvsink
