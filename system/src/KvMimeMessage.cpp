#include "KvMimeMessage.h"

#include <mimetic/mimetic.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "KvBase64Lines.h"

namespace {

// Compatibility: one boundary for every message. A protocol literal, not a secret.
// Relied on by: receivers that match the messages byte for byte.
// Held by: KvEmailDriverSendMailTest.TheWholeMessageIsByteExact.
constexpr const char* kBoundary = "MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";

/// Room for what usually stands around a content: a delimiter, the header of a part, the end.
constexpr std::size_t kRoomForDelimiters = 512;

const std::string kDelimiter = std::string("\r\n--") + kBoundary + "\r\n";
const std::string kClosingDelimiter = std::string("\r\n--") + kBoundary + "--\r\n";

std::string TextOf(const mimetic::MimeEntity& entity) {
    std::ostringstream text;
    text << entity;
    return text.str();
}

void AppendWithCrLfLineEnds(const std::string& text, std::string& out) {
    std::size_t begin = 0;
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
        if (at == 0 || text[at - 1] != '\r') {
            out.append(text, begin, at - begin).append("\r\n");
            begin = at + 1;
        }
    }
    out.append(text, begin);
}

void AppendTextPart(const std::string& body, std::string& out) {
    mimetic::MimeEntity part;
    part.header().contentType(mimetic::ContentType("text/plain"));
    out += TextOf(part);
    AppendWithCrLfLineEnds(body, out);
}

/// The header of an attached file, with the empty line behind it.
std::string FilePartHeader(const std::string& path) {
    const std::string name = mimetic::utils::extractFilename(path);
    mimetic::MimeEntity part;
    mimetic::Header& header = part.header();
    header.contentType(mimetic::ContentType("application", "octet-stream"));
    header.contentType().paramList().push_back({"name", name});
    header.contentTransferEncoding().mechanism(mimetic::Base64::Encoder().name());
    header.contentDisposition().type("attachment");
    header.contentDisposition().paramList().push_back({"filename", name});
    return TextOf(part);
}

/// The bytes of a regular file, encoded piece by piece as the MIME library would; none of anything else, or of what
/// cannot be read.
void AppendFileContent(const std::string& path, std::string& out) {
    constexpr std::size_t kPiece = 1024 * kBase64LineBytes;
    std::error_code failure;
    if (!std::filesystem::is_regular_file(path, failure)) {
        return;
    }
    std::ifstream file(path, std::ios::binary);
    const std::uintmax_t size = std::filesystem::file_size(path, failure);
    if (!failure && file) {
        out.reserve(out.size() + KvBase64LinesLength(static_cast<std::size_t>(size), 1) + kRoomForDelimiters);
    }
    std::vector<char> piece(kPiece);
    while (file.read(piece.data(), static_cast<std::streamsize>(kPiece)) || file.gcount() > 0) {
        KvAppendBase64Lines({piece.data(), static_cast<std::size_t>(file.gcount())}, "\n", out);
    }
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

/// Everything before the first part.
std::string Head(const std::string& from, const std::string& subject) {
    mimetic::MimeEntity top;
    SetHeaders(top.header(), from, subject);
    std::string text = TextOf(top);
    text.resize(text.size() - kClosingDelimiter.size());  // what ends a message without parts
    return text;
}

}  // namespace

// The MIME library writes the headers. The contents of the parts, which may be large, are put between them as they are
// made; the bytes are those that the library would write.
std::string KvMimeMessageText(const std::string& from, const std::string& subject, const std::string& body,
                              const std::vector<std::string>& attachments) {
    std::string text = Head(from, subject);
    text.reserve(text.size() + body.size() + body.size() / 16 + kRoomForDelimiters);
    AppendTextPart(body, text);
    for (const std::string& path : attachments) {
        text += kDelimiter + FilePartHeader(path);
        AppendFileContent(path, text);
    }
    text += kClosingDelimiter;
    return text;
}
