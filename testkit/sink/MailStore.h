#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Envelope.h"
#include "FileDescriptor.h"

namespace kvsink {

/// A directory of .eml files, one a mail. Externally synchronised; several processes may share a directory.
///
/// A file is "0000000001.eml" and so on, so that names sort in the order of arrival. It appears whole: it is
/// written under a name that begins with a dot and then renamed. It holds, with CR LF line ends, one
/// Return-Path, one X-Envelope-To for each recipient, one Received, and then the mail's bytes, unchanged.
class MailStore {
public:
    /// Makes the directory if need be and goes on behind its highest number. Throws StartError "--maildir:
    /// ...".
    explicit MailStore(const std::string& directory);

    /// Stores a mail and returns its number as in the file's name. Throws std::system_error.
    std::string store(const Envelope& envelope, const Origin& origin, std::string_view content);

private:
    void write(const std::string& name, std::string_view header, std::string_view content) const;
    std::string publish(const std::string& name);

    const std::string m_incoming;
    FileDescriptor m_directory;
    std::uint64_t m_lastNumber = 0;
};

}  // namespace kvsink
