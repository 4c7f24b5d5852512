#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "EngineKit.h"
#include "KvsysCodec.h"
#include "TempDir.h"

using namespace kvengine;

namespace {

const std::string kBoundary = "MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";

/// A header block (names in lower case, values unfolded) and what follows the empty line.
struct Entity {
    explicit Entity(const std::string& text) {
        const std::size_t end = text.find("\r\n\r\n");
        EXPECT_NE(end, std::string::npos) << text;
        body = text.substr(end + 4);
        std::string name;
        std::size_t at = 0;
        while (at < end) {
            const std::size_t lineEnd = text.find("\r\n", at);
            const std::string line = text.substr(at, lineEnd - at);
            at = lineEnd + 2;
            if (line.front() == ' ' || line.front() == '\t') {
                headers[name] += " " + line.substr(line.find_first_not_of(" \t"));
                continue;
            }
            name = line.substr(0, line.find(':'));
            std::transform(name.begin(), name.end(), name.begin(),
                           [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
            headers[name] = line.substr(line.find(':') + 2);
            names.push_back(name);
        }
        std::sort(names.begin(), names.end());
    }

    /// The parts between the boundary lines.
    std::vector<Entity> parts() const {
        std::vector<Entity> result;
        const std::string line = "--" + kBoundary;
        std::size_t at = body.find(line);
        while (at != std::string::npos && body.compare(at + line.size(), 2, "\r\n") == 0) {
            const std::size_t begin = at + line.size() + 2;
            at = body.find("\r\n" + line, begin);
            EXPECT_NE(at, std::string::npos);
            result.emplace_back(body.substr(begin, at - begin));
            at += 2;
        }
        EXPECT_EQ(body.substr(std::min(at, body.size())), line + "--\r\n");
        return result;
    }

    Texts names;
    std::map<std::string, std::string> headers;
    std::string body;
};

std::string Sent(const std::string& subject, const std::string& body, const Texts& attachments = {},
                 const std::string& from = "ann@example.org") {
    ScriptedSmtpServer server;
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    engine.SendMail(from, {"bob@example.org"}, subject, body, attachments);
    EXPECT_EQ(server.acceptedTransactions(), 1);
    return server.transactions().at(0).data;
}

TEST(EngineMessage, HasFourHeadersAndNoOthers) {
    const Entity message(Sent("Subject", "Text"));
    EXPECT_EQ(message.names, (Texts{"content-type", "from", "mime-version", "subject"}));
    EXPECT_EQ(message.headers.at("mime-version"), "1.0");
    EXPECT_EQ(message.headers.at("subject"), "Subject");
    EXPECT_EQ(message.headers.at("from"), "ann@example.org");
    std::string type = message.headers.at("content-type");
    std::erase(type, '"');
    EXPECT_EQ(type, "multipart/mixed; boundary=" + kBoundary);
}

TEST(EngineMessage, WithoutASubjectHasNoSubjectHeader) {
    const Entity message(Sent("", "Text"));
    EXPECT_EQ(message.names, (Texts{"content-type", "from", "mime-version"}));
}

TEST(EngineMessage, EveryMessageHasTheSameBoundary) {
    EXPECT_EQ(Sent("Subject", "Text"), Sent("Subject", "Text"));
}

TEST(EngineMessage, WithoutAttachmentsHasOneTextPart) {
    const std::vector<Entity> parts = Entity(Sent("Subject", "Text")).parts();
    ASSERT_EQ(parts.size(), 1U);
    EXPECT_EQ(parts[0].names, (Texts{"content-type"}));
    EXPECT_EQ(parts[0].headers.at("content-type"), "text/plain");
    EXPECT_EQ(parts[0].body, "Text");
}

TEST(EngineMessage, TheFromHeaderKnowsDisplayNames) {
    const Entity message(Sent("Subject", "Text", {}, "Ann Example <ann@example.org>"));
    EXPECT_NE(message.headers.at("from").find("<ann@example.org>"), std::string::npos);
    EXPECT_NE(message.headers.at("from").find("Ann Example"), std::string::npos);
}

struct Body {
    const char* name;
    std::string text, sent;

    friend void PrintTo(const Body& each, std::ostream* out) { *out << each.name; }
};

class EngineBody : public testing::TestWithParam<Body> {};

TEST_P(EngineBody, BareLineFeedsBecomeLineEnds) {
    const std::vector<Entity> parts = Entity(Sent("Subject", GetParam().text)).parts();
    ASSERT_EQ(parts.size(), 1U);
    EXPECT_EQ(parts[0].body, GetParam().sent);
}

INSTANTIATE_TEST_SUITE_P(
    All, EngineBody,
    testing::Values(Body{"Mixed", "a\nb\r\nc", "a\r\nb\r\nc"}, Body{"LineFeedFirst", "\na", "\r\na"},
                    Body{"OnlyALineFeed", "\n", "\r\n"}, Body{"TwoLineFeeds", "a\n\nb", "a\r\n\r\nb"},
                    Body{"ManyLineFeeds", "\n\n\n", "\r\n\r\n\r\n"},
                    Body{"LineEndThenLineFeed", "a\r\n\nb", "a\r\n\r\nb"},
                    Body{"LineFeedThenLineEnd", "a\n\r\nb", "a\r\n\r\nb"},
                    Body{"LoneCarriageReturn", "a\rb", "a\rb"}, Body{"LineFeedLast", "a\n", "a\r\n"},
                    Body{"NothingToDo", "a\r\nb\r\n", "a\r\nb\r\n"}, Body{"Empty", "", ""},
                    Body{"PercentSigns", "100% %s %n", "100% %s %n"},
                    Body{"HighBytes", "\xC3\xA4\n\xFF", "\xC3\xA4\r\n\xFF"},
                    Body{"LeadingDots", ".a\n..b\nc.\n", ".a\r\n..b\r\nc.\r\n"},
                    Body{"LongLine", std::string(5000, 'x'), std::string(5000, 'x')},
                    Body{"LooksLikeAHeader", "From: x\n\ny", "From: x\r\n\r\ny"}),
    [](const auto& each) { return each.param.name; });

TEST(EngineMessage, ALineOfOneDotIsNotProtected) {
    ScriptedSmtpServer server;
    server.on(step::Any).reply("250 ok\r\n");
    Engine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecNone);
    engine.SendMail("ann@example.org", {"bob@example.org"}, "", "before\n.\nafter", {});
    EXPECT_NE(server.connection().clientBytes().find("before\r\n.\r\nafter\r\n"), std::string::npos);
}

TEST(EngineMessage, ALargeTextIsSentWhole) {
    std::string text;
    for (int n = 0; n < 20000; ++n) {
        text += "line " + std::to_string(n) + "\r\n";
    }
    EXPECT_EQ(Entity(Sent("Subject", text)).parts().at(0).body, text);
}

std::string Decoded(std::string text) {
    std::erase_if(text, [](unsigned char each) { return std::isspace(each) != 0; });
    int length = static_cast<int>(text.size());
    text.push_back('\0');
    EXPECT_TRUE(KvsysCodec::DecodeBase64(reinterpret_cast<unsigned char*>(text.data()), length));
    return text.substr(0, static_cast<std::size_t>(length));
}

TEST(EngineMessage, EachAttachmentIsAPartOfItsOwnInTheirOrder) {
    const kvtest::TempDir dir;
    std::string bytes;
    for (int n = 0; n < 1000; ++n) {
        bytes.push_back(static_cast<char>(n));
    }
    const std::string first = dir.write("first.bin", bytes);
    const std::string second = dir.write("second.txt", "hello\n.\nworld\n");
    const std::vector<Entity> parts = Entity(Sent("Subject", "Text", {second, first, second})).parts();
    ASSERT_EQ(parts.size(), 4U);
    EXPECT_EQ(parts[0].body, "Text");
    EXPECT_EQ(Decoded(parts[1].body), "hello\n.\nworld\n");
    EXPECT_EQ(Decoded(parts[2].body), bytes);
    EXPECT_EQ(Decoded(parts[3].body), "hello\n.\nworld\n");
    std::string all;
    for (const auto& header : parts[1].headers) {
        all += header.second;
    }
    EXPECT_NE(all.find("second.txt"), std::string::npos) << all;
    EXPECT_EQ(all.find(dir.path()), std::string::npos) << all;
}

TEST(EngineMessage, AnEmptyAttachmentIsAnEmptyPart) {
    const kvtest::TempDir dir;
    const std::vector<Entity> parts = Entity(Sent("Subject", "Text", {dir.write("empty", "")})).parts();
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_EQ(Decoded(parts[1].body), "");
}

TEST(EngineMessage, TheSameBytesGoThroughTls) {
    ScriptedSmtpServer server(WithTls());
    TlsEngine engine;
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "a\nb", {});
    ASSERT_EQ(server.acceptedTransactions(), 1);
    EXPECT_EQ(server.transactions()[0].data, Sent("Subject", "a\nb"));
}

}  // namespace
