#include "MailStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "AtomicFile.h"
#include "StartError.h"

namespace kvsink {
namespace {

const std::size_t DIGITS = 10;

[[noreturn]] void throwSystemError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// The number of a file that this class named; 0 for any other file.
std::uint64_t numberOf(const std::filesystem::path& file) {
    const std::string stem = file.stem().string();
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(stem.data(), stem.data() + stem.size(), number);
    const bool ours = file.extension() == ".eml" && stem.size() >= DIGITS && error == std::errc() &&
                      end == stem.data() + stem.size();
    return ours ? number : 0;
}

std::uint64_t highestNumberIn(const std::string& directory) {
    std::uint64_t highest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        highest = std::max(highest, numberOf(entry.path()));
    }
    return highest;
}

/// A name that no other store uses, be it of this process or of another.
std::string incomingName() {
    static std::atomic<unsigned> stores{0};
    return ".incoming." + std::to_string(::getpid()) + "." + std::to_string(++stores);
}

std::string padded(std::uint64_t number) {
    const std::string digits = std::to_string(number);
    return std::string(DIGITS - std::min(DIGITS, digits.size()), '0') + digits;
}

/// The present time as RFC 5322 writes it, in UTC; independent of the locale.
std::string currentDate() {
    static const char* const DAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* const MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d +0000", DAYS[utc.tm_wday],
                  utc.tm_mday, MONTHS[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text.data();
}

std::string traceHeaders(const Envelope& envelope, const Origin& origin) {
    std::string text = "Return-Path: <" + envelope.sender + ">\r\n";
    for (const std::string& recipient : envelope.recipients) {
        text.append("X-Envelope-To: <").append(recipient).append(">\r\n");
    }
    text.append("Received: from ").append(origin.heloName).append(" ([").append(origin.address);
    text.append("])\r\n by localhost with ").append(origin.protocol).append("; ").append(currentDate());
    return text.append("\r\n");
}

/// Writes both parts with one call, and the rest of a short write piece by piece.
void writeBoth(int fd, std::string_view header, std::string_view content) {
    iovec parts[2] = {{const_cast<char*>(header.data()), header.size()},
                      {const_cast<char*>(content.data()), content.size()}};
    const ssize_t written = ::writev(fd, parts, 2);
    if (written < 0) {
        throwSystemError("writev");
    }
    const auto done = static_cast<std::size_t>(written);
    writeAll(fd, header.substr(std::min(done, header.size())));
    writeAll(fd, content.substr(done - std::min(done, header.size())));
}

}  // namespace

MailStore::MailStore(const std::string& directory) : m_incoming(incomingName()) {
    try {
        std::filesystem::create_directories(directory);
        m_directory = FileDescriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (m_directory.get() < 0 || ::faccessat(m_directory.get(), ".", W_OK, AT_EACCESS) != 0) {
            throwSystemError(directory.c_str());
        }
        m_lastNumber = highestNumberIn(directory);
    } catch (const std::system_error& error) {
        throw StartError("--maildir", error.what());
    }
}

std::string MailStore::store(const Envelope& envelope, const Origin& origin, std::string_view content) {
    try {
        write(m_incoming, traceHeaders(envelope, origin), content);
        return publish(m_incoming);
    } catch (const std::system_error&) {
        ::unlinkat(m_directory.get(), m_incoming.c_str(), 0);
        throw;
    }
}

void MailStore::write(const std::string& name, std::string_view header, std::string_view content) const {
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
    const FileDescriptor file(::openat(m_directory.get(), name.c_str(), flags, 0644));
    if (file.get() < 0) {
        throwSystemError("openat");
    }
    writeBoth(file.get(), header, content);
}

/// Gives the file the next number that is free: another process may have taken some.
std::string MailStore::publish(const std::string& name) {
    for (;;) {
        std::string number = padded(++m_lastNumber);
        const std::string target = number + ".eml";
        const int directory = m_directory.get();
        if (::renameat2(directory, name.c_str(), directory, target.c_str(), RENAME_NOREPLACE) == 0) {
            return number;
        }
        if (errno != EEXIST) {
            throwSystemError("renameat2");
        }
    }
}

}  // namespace kvsink
