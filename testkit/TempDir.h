#pragma once

#include <sys/types.h>

#include <string>

namespace kvtest {

/// A private folder under the system's temporary folder, removed with everything in it at the end of its
/// life. One thread at a time. A forked child that ends leaves the folder to its parent.
///
///     TempDir dir;
///     std::string path = dir.write("note.txt", "hello");
class TempDir {
public:
    /// Throws std::system_error when the folder cannot be made.
    TempDir();
    ~TempDir();

    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    /// The path of a file of that name in the folder; nothing is made.
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    /// Writes a file and answers its path. Throws std::runtime_error when that fails.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string m_path;
    pid_t m_owner;
};

}  // namespace kvtest
