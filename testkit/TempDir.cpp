#include "TempDir.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace kvtest {

TempDir::TempDir()
    : m_path((std::filesystem::temp_directory_path() / "kvtest-XXXXXX").string()), m_owner(getpid()) {
    if (mkdtemp(m_path.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp " + m_path);
    }
}

TempDir::~TempDir() {
    if (getpid() == m_owner) {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
    std::ofstream stream(file(name), std::ios::binary);
    stream << content;
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + file(name));
    }
    return file(name);
}

}  // namespace kvtest
