#pragma once

#include <string>
#include <string_view>

#include "Envelope.h"
#include "FileDescriptor.h"

namespace kvsink {

/// A file with one line for each mail that was taken. Externally synchronised; several processes may share a file.
///
/// A line is the time in milliseconds since 1970, the protocol of the Received header, the sender and each
/// recipient, with tabs between them. It is appended by one call, so that it is whole or missing also when the
/// process is killed.
class Journal {
public:
    /// Makes the file if need be. Throws StartError "--journal: ...".
    explicit Journal(const std::string& file);

    /// Appends the line of a mail. Throws std::system_error.
    void note(const Envelope& envelope, std::string_view protocol) const;

private:
    FileDescriptor m_file;
};

}  // namespace kvsink
