#include "InputChecks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr std::size_t kMaxAddress = 254;  // a path of 256 octets less its angle brackets
constexpr std::size_t kMaxFileName = 255;

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

bool HasControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(), IsControl);
}

bool Has(std::string_view text, std::string_view unwanted) {
    return text.find_first_of(unwanted) != std::string_view::npos;
}

std::string SystemText(int error) {
    return std::generic_category().message(error);
}

std::string WhyNotRead(const std::string& path, int error) {
    return "expected a readable file, \"" + MakeVisible(path) + "\": " + SystemText(error) +
           (error == EACCES ? "; give this user the right to read it, or run the command as one who has it"
                            : "");
}

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

std::optional<std::string> WhyNotAnAddress(std::string_view address) {
    if (address.empty()) {
        return "expected a mail address, found an empty one";
    }
    if (HasControl(address) || Has(address, "<>")) {
        return "expected a mail address without control characters and without \"<\" and \">\"";
    }
    if (address.size() > kMaxAddress) {
        return "expected a mail address of at most 254 bytes, found " + std::to_string(address.size());
    }
    return std::nullopt;
}

std::optional<std::string> WhyNotOneLine(std::string_view text) {
    if (Has(text, std::string_view("\r\n\0", 3))) {
        return "expected one line of text, without CR, LF and NUL";
    }
    return std::nullopt;
}

std::optional<std::string> WhyNotAName(std::string_view text) {
    if (text.empty()) {
        return "expected a name, found an empty one";
    }
    if (HasControl(text)) {
        return "expected a name without control characters";
    }
    return std::nullopt;
}

std::optional<std::string> WhyNotAMessageText(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return "expected a text without NUL";
    }
    return std::nullopt;
}

std::optional<std::string> WhyNotAnAttachmentName(std::string_view name) {
    if (name.empty() || name == "." || name == "..") {
        return "expected a file name";
    }
    if (name.size() > kMaxFileName) {
        return "expected a file name of at most 255 bytes, found " + std::to_string(name.size());
    }
    if (HasControl(name) || Has(name, "\"\\/")) {
        return "expected a file name without control characters, quotation marks, slashes and backslashes";
    }
    if (!IsAscii(name)) {
        return "expected a file name in ASCII: other characters arrive as something else in some mail "
               "programs";
    }
    if (name.front() == ' ' || name.back() == ' ') {
        return "expected a file name without blanks at its ends: they would get lost";
    }
    if (name.find("=?") != std::string_view::npos) {
        return "expected a file name without \"=?\": mail programs decode what follows it";
    }
    return std::nullopt;
}

std::optional<std::string> WhyNotAReadableFile(const std::string& path) {
    struct stat info {};
    if (path.find('\0') != std::string::npos) {
        return "expected a path without NUL";
    }
    if (::stat(path.c_str(), &info) != 0) {
        return WhyNotRead(path, errno);
    }
    if (!S_ISREG(info.st_mode)) {
        return "expected a regular file, \"" + MakeVisible(path) + "\" is none";
    }
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return WhyNotRead(path, errno);
    }
    ::close(descriptor);
    return std::nullopt;
}

std::string ResolveBeside(const std::filesystem::path& file, const std::string& path) {
    return (file.parent_path() / path).lexically_normal().string();
}

}  // namespace kvhost
