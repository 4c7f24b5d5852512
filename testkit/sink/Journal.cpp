#include "Journal.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "AtomicFile.h"
#include "StartError.h"

namespace kvsink {
namespace {

std::string currentMilliseconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

Journal::Journal(const std::string& file)
    : m_file(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {
    if (m_file.get() < 0) {
        throw StartError("--journal", std::system_error(errno, std::generic_category(), file).what());
    }
}

void Journal::note(const Envelope& envelope, std::string_view protocol) const {
    std::string line = currentMilliseconds();
    line.append("\t").append(protocol).append("\t").append(envelope.sender);
    for (const std::string& recipient : envelope.recipients) {
        line.append("\t").append(recipient);
    }
    writeAll(m_file.get(), line.append("\n"));
}

}  // namespace kvsink
