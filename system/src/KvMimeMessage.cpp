#include "KvMimeMessage.h"

#include <mimetic/mimetic.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <system_error>

namespace {

// Compatibility: one boundary for every message. A protocol literal, not a secret.
// Relied on by: receivers that match the messages byte for byte.
// Held by: KvEmailDriverSendMailTest.TheWholeMessageIsByteExact.
constexpr const char* kBoundary = "MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";

std::string WithCrLfLineEnds(const std::string& text) {
    std::string converted;
    converted.reserve(text.size() + text.size() / 16);
    char previous = '\0';
    for (const char c : text) {
        if (c == '\n' && previous != '\r') {
            converted += '\r';
        }
        converted += c;
        previous = c;
    }
    return converted;
}

/// The top entity owns its parts.
void Append(mimetic::MimeEntity& top, std::unique_ptr<mimetic::MimeEntity> part) {
    top.body().parts().push_back(part.get());
    static_cast<void>(part.release());
}

std::unique_ptr<mimetic::MimeEntity> TextPart(const std::string& body) {
    auto part = std::make_unique<mimetic::MimeEntity>();
    part->body().assign(WithCrLfLineEnds(body));
    part->header().contentType(mimetic::ContentType("text/plain"));
    return part;
}

/// The bytes of a regular file; none of anything else, or of what cannot be read. A lack of memory is no property of
/// the file: it throws std::bad_alloc.
std::string FileContent(const std::string& path) {
    std::error_code failure;
    if (!std::filesystem::is_regular_file(path, failure)) {
        if (failure == std::errc::not_enough_memory) {
            throw std::bad_alloc();
        }
        return "";
    }
    try {
        errno = 0;
        std::ifstream file(path, std::ios::binary);
        if (!file.is_open() && errno == ENOMEM) {
            throw std::bad_alloc();
        }
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    } catch (const std::ios_base::failure&) {
        return "";
    }
}

/// The same text as mimetic::Attachment(path). That one maps the file into memory, and the process ends with
/// a signal when the file is empty, cannot be mapped, or shrinks meanwhile.
std::unique_ptr<mimetic::MimeEntity> FilePart(const std::string& path) {
    const std::string name = mimetic::utils::extractFilename(path);
    mimetic::Base64::Encoder encoder;
    auto part = std::make_unique<mimetic::MimeEntity>();
    mimetic::Header& header = part->header();
    header.contentType(mimetic::ContentType("application", "octet-stream"));
    header.contentType().paramList().push_back({"name", name});
    header.contentTransferEncoding().mechanism(encoder.name());
    header.contentDisposition().type("attachment");
    header.contentDisposition().paramList().push_back({"filename", name});
    part->body().assign(FileContent(path));
    part->body().code(encoder);
    return part;
}

void SetHeaders(mimetic::Header& header, const std::string& from, const std::string& subject) {
    header.mimeVersion(mimetic::MimeVersion("1.0"));
    if (!subject.empty()) {
        header.subject(subject);
    }
    header.from(mimetic::MailboxList(from));
    header.contentType(mimetic::ContentType("multipart/mixed"));
    header.contentType().param("boundary", kBoundary);
}

}  // namespace

std::string KvMimeMessageText(const std::string& from, const std::string& subject, const std::string& body,
                              const std::vector<std::string>& attachments) {
    mimetic::MimeEntity top;
    SetHeaders(top.header(), from, subject);
    Append(top, TextPart(body));
    for (const std::string& path : attachments) {
        Append(top, FilePart(path));
    }
    std::ostringstream text;
    text << top;
    if (!text.good()) {
        throw std::bad_alloc();  // the stream keeps the failure to itself; the text is cut somewhere
    }
    return text.str();
}
