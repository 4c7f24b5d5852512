#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Bytes that fill a line of base64: 76 characters (RFC 2045, 6.8).
inline constexpr std::size_t kBase64LineBytes = 57;

/// Appends the base64 (RFC 4648, section 4) of `data` to `out`, with `lineEnd` after every full line and none after a
/// last line that is shorter. Pieces of a multiple of kBase64LineBytes can be encoded one after another. Thread-safe.
void KvAppendBase64Lines(std::string_view data, std::string_view lineEnd, std::string& out);

/// How many characters KvAppendBase64Lines appends for `size` bytes.
std::size_t KvBase64LinesLength(std::size_t size, std::size_t lineEndLength);
