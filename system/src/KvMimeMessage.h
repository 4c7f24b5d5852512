#pragma once

#include <string>
#include <vector>

/// The text of a MIME message (RFC 2045, 2046) that DATA carries: multipart/mixed, with `body` as its text/plain
/// part and one part per file of `attachments`, read now. Bare line feeds of `body` become CR LF. Without a
/// Subject header when `subject` is empty. Passes on what the MIME library raises. Thread-safe.
std::string KvMimeMessageText(const std::string& from, const std::string& subject, const std::string& body,
                              const std::vector<std::string>& attachments);
