#include "KvMimeMessage.h"

#include <fcntl.h>
#include <mimetic/mimetic.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <sstream>
#include <string_view>

#include "KvBase64Lines.h"

namespace {

// Compatibility: one boundary for every message. A protocol literal, not a secret.
// Relied on by: receivers that match the messages byte for byte.
// Held by: KvEmailDriverSendMailTest.TheWholeMessageIsByteExact.
constexpr const char* kBoundary = "MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";

/// Room for what usually stands around a content: a delimiter, the header of a part, the end.
constexpr std::size_t kRoomForDelimiters = 512;

constexpr std::string_view kLineEnd = "\r\n";
const std::string kDelimiter = std::string("\r\n--") + kBoundary + "\r\n";
const std::string kClosingDelimiter = std::string("\r\n--") + kBoundary + "--\r\n";

std::string TextOf(const mimetic::MimeEntity& entity) {
    std::ostringstream text;
    text << entity;
    if (!text.good()) {
        throw std::bad_alloc();  // the stream keeps the failure to itself; the text is cut somewhere
    }
    return text.str();
}

/// The header of an entity without content, up to the empty line.
std::string FieldsOf(const mimetic::MimeEntity& entity) {
    std::string text = TextOf(entity);
    text.resize(text.size() - kLineEnd.size());
    return text;
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

/// The header of the text part, with the empty line behind it.
std::string TextPartHeader() {
    mimetic::MimeEntity part;
    part.header().contentType(mimetic::ContentType("text/plain"));
    return TextOf(part);
}

void AppendTextPart(const std::string& body, std::string& out) {
    static const std::string kHeader = TextPartHeader();
    out += kHeader;
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

/// A regular file that is open for reading, or nothing. A lack of memory is no property of the file: it throws
/// std::bad_alloc.
class OpenFile {
public:
    explicit OpenFile(const char* path) {
        struct stat status {};
        // Looked at before it is opened, because to open something else may wait or set it off.
        if (IsRegular(::stat(path, &status), status)) {
            m_nDescriptor = ::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
            RefuseLackOfMemory(m_nDescriptor);
        }
        m_bReadable = m_nDescriptor >= 0 && ::fstat(m_nDescriptor, &status) == 0 && S_ISREG(status.st_mode);
        m_nSize = m_bReadable ? static_cast<std::size_t>(status.st_size) : 0;
    }
    ~OpenFile() {
        if (m_nDescriptor >= 0) {
            ::close(m_nDescriptor);
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    std::size_t Size() const { return m_nSize; }

    /// Fills `piece` as far as the file goes; what cannot be read is as if it were not there.
    std::size_t Read(char* piece, std::size_t size) const {
        std::size_t filled = 0;
        while (m_bReadable && filled < size) {
            const long count = ::read(m_nDescriptor, piece + filled, size - filled);
            if (count == 0 || (count < 0 && errno != EINTR)) {
                break;
            }
            filled += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        return filled;
    }

private:
    /// A file larger than what this process can address (EOVERFLOW) has no room in its memory either.
    static void RefuseLackOfMemory(int result) {
        if (result < 0 && (errno == ENOMEM || errno == EOVERFLOW)) {
            throw std::bad_alloc();
        }
    }
    static bool IsRegular(int result, const struct stat& status) {
        RefuseLackOfMemory(result);
        return result == 0 && S_ISREG(status.st_mode);
    }

    int m_nDescriptor = -1;
    bool m_bReadable = false;
    std::size_t m_nSize = 0;
};

/// The bytes of a regular file, encoded piece by piece as the MIME library would; none of anything else, or of what
/// cannot be read.
void AppendFileContent(const std::string& path, std::string& out) {
    constexpr std::size_t kPiece = 1024 * kBase64LineBytes;
    const OpenFile file(path.c_str());
    out.reserve(out.size() + KvBase64LinesLength(file.Size(), 1) + kRoomForDelimiters);
    std::vector<char> piece(kPiece);
    while (const std::size_t size = file.Read(piece.data(), piece.size())) {
        KvAppendBase64Lines({piece.data(), size}, "\n", out);
    }
}

/// What stands in every message before the fields of its own.
std::string FirstFields() {
    mimetic::MimeEntity top;
    top.header().mimeVersion(mimetic::MimeVersion("1.0"));
    return FieldsOf(top);
}

/// What stands in every message behind the fields of its own, up to the first part.
std::string LastFields() {
    mimetic::MimeEntity top;
    top.header().contentType(mimetic::ContentType("multipart/mixed"));
    top.header().contentType().param("boundary", kBoundary);
    std::string text = TextOf(top);
    text.resize(text.size() - kClosingDelimiter.size());  // what ends a message without parts
    return text;
}

std::string OwnFields(const std::string& from, const std::string& subject) {
    mimetic::MimeEntity top;
    if (!subject.empty()) {
        top.header().subject(subject);
    }
    top.header().from(mimetic::MailboxList(from));
    return FieldsOf(top);
}

/// Everything before the first part.
std::string Head(const std::string& from, const std::string& subject) {
    static const std::string kFirst = FirstFields();
    static const std::string kLast = LastFields();
    return kFirst + OwnFields(from, subject) + kLast;
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
