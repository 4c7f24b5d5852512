#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "HostConfig.h"

namespace kvhost {

/// A file that lines are appended to, and that is begun anew when it is full: "NAME.log" becomes "NAME.1.log", that one
/// "NAME.2.log" and so on, as many as are kept. One thread at a time.
class RotatingFile {
public:
    /// Opens the file, for the user and the group alone. Throws BadInput when that fails.
    explicit RotatingFile(const RotatedFile& settings);
    ~RotatingFile();
    RotatingFile(const RotatingFile&) = delete;
    RotatingFile& operator=(const RotatingFile&) = delete;

    /// Appends the line and a line feed in one write. Answers "" when the line is in the file, and otherwise why it is
    /// not; then nothing of it is. A file that cannot be begun anew grows on instead.
    std::string Append(std::string_view line);

private:
    bool Open();
    void Close();
    void Rotate();
    std::string PathOf(int number) const;

    const RotatedFile m_settings;
    int m_fd = -1;
    std::uint64_t m_nSize = 0;  ///< bytes in the file
};

}  // namespace kvhost
