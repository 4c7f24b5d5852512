// The message against the one that the MIME library writes by itself, byte for byte.
#include <gtest/gtest.h>
#include <mimetic/mimetic.h>

#include <memory>
#include <random>
#include <sstream>

#include "KvMimeMessage.h"
#include "TempDir.h"

namespace {

using Random = std::mt19937;

/// What the library makes of the same message. The text has CR LF line ends already, and the file's content is given.
class LibraryMessage {
public:
    LibraryMessage(const std::string& from, const std::string& subject, const std::string& text) {
        mimetic::Header& header = m_top.header();
        header.mimeVersion(mimetic::MimeVersion("1.0"));
        if (!subject.empty()) {
            header.subject(subject);
        }
        header.from(mimetic::MailboxList(from));
        header.contentType(mimetic::ContentType("multipart/mixed"));
        header.contentType().param("boundary", "MujheKaamBataoMaiKiaKaronMaiKisKoKhaon");
        auto part = std::make_unique<mimetic::MimeEntity>();
        part->body().assign(text);
        part->header().contentType(mimetic::ContentType("text/plain"));
        Append(std::move(part));
    }

    LibraryMessage& Attach(const std::string& name, const std::string& content) {
        mimetic::Base64::Encoder encoder;
        auto part = std::make_unique<mimetic::MimeEntity>();
        mimetic::Header& header = part->header();
        header.contentType(mimetic::ContentType("application", "octet-stream"));
        header.contentType().paramList().push_back({"name", name});
        header.contentTransferEncoding().mechanism(encoder.name());
        header.contentDisposition().type("attachment");
        header.contentDisposition().paramList().push_back({"filename", name});
        part->body().assign(content);
        part->body().code(encoder);
        Append(std::move(part));
        return *this;
    }

    std::string Text() const {
        std::ostringstream text;
        text << m_top;
        return text.str();
    }

private:
    /// The entity owns its parts.
    void Append(std::unique_ptr<mimetic::MimeEntity> part) {
        m_top.body().parts().push_back(part.get());
        static_cast<void>(part.release());
    }

    mimetic::MimeEntity m_top;
};

std::string RandomBytes(Random& random, std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

/// Text of few different characters, line ends of all kinds among them.
std::string RandomText(Random& random, std::size_t size) {
    constexpr std::string_view kCharacters = "\r\n\r\n.a -";
    std::string text(size, '\0');
    for (char& c : text) {
        c = kCharacters[random() % kCharacters.size()];
    }
    return text;
}

std::string WithCrLf(const std::string& text) {
    std::string converted;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) {
            converted += '\r';
        }
        converted += text[i];
    }
    return converted;
}

/// Every short size, those around full lines and around the pieces that a file is read in, and some others.
std::vector<std::size_t> AttachmentSizes(Random& random) {
    std::vector<std::size_t> sizes;
    for (std::size_t size = 0; size <= 250; ++size) {
        sizes.push_back(size);
    }
    for (const std::size_t lines : {10U, 100U, 175U, 1023U, 1024U, 1025U, 2048U, 3072U}) {
        for (std::size_t size = lines * 57 - 4; size <= lines * 57 + 4; ++size) {
            sizes.push_back(size);
        }
    }
    for (int i = 0; i < 200; ++i) {
        sizes.push_back(random() % 10001);
    }
    return sizes;
}

TEST(KvMimeMessageLibraryTest, AnAttachmentOfAnySizeIsEncodedAsTheLibraryDoes) {
    const kvtest::TempDir dir;
    Random random(1);
    for (const std::size_t size : AttachmentSizes(random)) {
        const std::string content = RandomBytes(random, size);
        const std::string message =
            KvMimeMessageText("ann@example.org", "Subject", "Text", {dir.write("file", content)});
        ASSERT_EQ(message,
                  LibraryMessage("ann@example.org", "Subject", "Text").Attach("file", content).Text())
            << size << " bytes";
    }
}

TEST(KvMimeMessageLibraryTest, AnyTextAndSubjectIsWrittenAsTheLibraryDoes) {
    Random random(2);
    for (int i = 0; i < 500; ++i) {
        const std::string subject = RandomBytes(random, random() % 120);
        const std::string text = RandomText(random, random() % 200);
        ASSERT_EQ(KvMimeMessageText("Ann <ann@example.org>", subject, text, {}),
                  LibraryMessage("Ann <ann@example.org>", subject, WithCrLf(text)).Text())
            << testing::PrintToString(subject) << ' ' << testing::PrintToString(text);
    }
}

TEST(KvMimeMessageLibraryTest, SeveralAttachmentsFollowEachOtherAsTheLibraryWritesThem) {
    const kvtest::TempDir dir;
    const std::string first = dir.write("a long name, with \"quotes\".txt", "one");
    const std::string second = dir.write("empty", "");
    const std::string third = dir.write("third;=.bin", std::string(57, '\xFF'));
    EXPECT_EQ(KvMimeMessageText("ann@example.org", "", "", {first, second, third}),
              LibraryMessage("ann@example.org", "", "")
                  .Attach("a long name, with \"quotes\".txt", "one")
                  .Attach("empty", "")
                  .Attach("third;=.bin", std::string(57, '\xFF'))
                  .Text());
}

}  // namespace
