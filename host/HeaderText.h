#pragma once

#include <string>
#include <string_view>

namespace kvhost {

/// Any text as the unstructured value of a header field: as it is when it is short, printable ASCII that every program
/// leaves alone, else in encoded words of UTF-8 (RFC 2047) with one blank between them, each with whole characters and
/// of at most 64 bytes. A decoder gets exactly `text` back. Bytes that are no valid UTF-8 go in as they are.
std::string HeaderText(std::string_view text);

}  // namespace kvhost
