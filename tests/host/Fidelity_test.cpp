// What arrives is what was submitted: kvhost with the real driver, and mail servers that we did not write. Python's
// email package reads the mails as a recipient's mail program does.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "ChildProcess.h"
#include "Eventually.h"
#include "KvsysCodec.h"
#include "PeerProcess.h"
#include "TempDir.h"
#include "TestCertificates.h"
#include "TestPorts.h"

namespace kvhosttest {
namespace {

using kvtest::PeerProcess;
using kvtest::TempDir;
using nlohmann::json;

struct Mail {
    std::string subject;
    std::string text;
};

std::string Contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string FromBase64(std::string text) {
    int length = static_cast<int>(text.size());
    KvsysCodec::DecodeBase64(reinterpret_cast<unsigned char*>(text.data()), length);
    return text.substr(0, static_cast<std::size_t>(length));
}

/// CR LF for CR LF, LF and a lone CR: what the comparison of texts leaves open.
std::string WithCrLf(const std::string& text) {
    std::string converted;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isPair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if (text[i] == '\n' || (text[i] == '\r' && !isPair)) {
            converted += "\r\n";
        } else if (!isPair) {
            converted += text[i];
        }
    }
    return converted;
}

std::string Repeated(const std::string& text, std::size_t times) {
    std::string repeated;
    for (std::size_t i = 0; i < times; ++i) {
        repeated += text;
    }
    return repeated;
}

std::vector<std::string> NastyTexts() {
    const std::string part = "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";
    return {"",
            "\n",
            "\r\n\r\n\r\n",
            "one line",
            "one line\n",
            "two\n\n\nends\n\n",
            ".",
            "..",
            "...\n",
            ".\n.\n.\n",
            ".leading",
            "a\n.\nMAIL FROM: <x@y>\n.\n",
            "a\r\n..\r\n.b\r\n",
            "a\r.\rb",
            "lone\rcarriage\r\rreturns",
            "mixed\r\nline\nends\rhere\n\r\n",
            "trailing blanks  \n\ttabs\t\t\n \n\t\n",
            "From the start\n>From quoted\nFrom again",
            "RSET\r\nQUIT\r\nDATA\r\n",
            "Subject: no header\n\nContent-Type: text/html\n",
            "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x9A\x80 \xC2\xA0\n",
            "=C3=A9 =?UTF-8?B?eA==?= =\n=20\n",
            std::string(997, 'x'),
            std::string(998, 'x') + "\n" + std::string(998, 'y'),
            "." + std::string(997, 'x'),
            "see " + part + "\n" + part.substr(0, 20) + "\n " + part + "--\n",
            "--\n-- \n--boundary\n",
            "\x01\x02\x07\x1B[2J\x7F",
            Repeated("A line of an ordinary length, and a dot behind it.\n.\n", 20000)};  // 1 MB
}

std::vector<std::string> NastySubjects() {
    return {"",
            "Pump 3: pressure low",
            "caf\xC3\xA9",
            "\xE2\x82\xAC",
            Repeated("\xF0\x9F\x9A\x80", 100),
            Repeated("word ", 40) + "end",
            std::string(200, 'x'),
            std::string(64, 'x'),
            std::string(65, 'x'),
            "x" + Repeated("\xC3\xBC", 150),
            "=?utf-8?B?QUJD?=",
            "=?utf-8?Q?a?= =?utf-8?Q?b?=",
            " blanks at the ends ",
            "   ",
            "two  blanks and a\ttab",
            "\"quoted\" (comment) <a@b> \\ ; , :",
            "From: somebody else",
            ".",
            Repeated("subject ", 1000) + "end"};
}

/// kvhost with a configuration, jobs and their mails, the n-th of which goes to "n@example.org".
class FidelityTest : public testing::Test {
protected:
    /// Sends the mails, each as a job, and expects each to be delivered.
    void Send(const std::string& carrier, const std::vector<Mail>& mails,
              const std::vector<std::string>& attachments = {}) const {
        std::string jobs;
        for (std::size_t i = 0; i < mails.size(); ++i) {
            jobs += json({{"id", std::to_string(i)},
                          {"carrier", "peer"},
                          {"recipient", std::to_string(i) + "@example.org"},
                          {"subject", mails[i].subject},
                          {"text", mails[i].text},
                          {"attachments", attachments}})
                        .dump() +
                    "\n";
        }
        const std::string config =
            m_files.write("kvhost.toml", "[carrier.peer]\nsender = \"ann@example.org\"\n" + carrier);
        ChildProcess kvhost({KV_BINARY_DIR "/kvhost", "send", "--driver", KV_BINARY_DIR "/libkvsmtpdriver.so",
                             "--config", config, "--json", m_files.write("jobs.jsonl", jobs)},
                            {});
        EXPECT_EQ(kvhost.Wait(), 0) << kvhost.Error() << kvhost.Output();
    }

    const TempDir m_files;
    const TempDir m_received;
};

/// aiosmtpd over TLS.
class AioSmtpdFidelityTest : public FidelityTest {
protected:
    AioSmtpdFidelityTest()
        : m_peer({"/usr/bin/python3", KV_SOURCE_DIR "/tests/interop/mail_server.py",
                  kvtest::TestCertificates::Shared().server().certificate,
                  kvtest::TestCertificates::Shared().server().key, "pager", "s3cret", m_received.path()}),
          m_port(m_peer.readLine()) {}

    void SetUp() override { ASSERT_FALSE(m_port.empty()) << "aiosmtpd did not start"; }

    std::string Carrier() const {
        return "server = \"127.0.0.1\"\nport = " + m_port + "\nsecurity = \"required\"\nuser = \"pager\"\n" +
               "password = \"s3cret\"\nca_file = \"" + kvtest::TestCertificates::Shared().caFile() + "\"\n";
    }

    /// What arrived for each number of a job.
    std::map<std::string, json> Received() const {
        std::map<std::string, json> mails;
        for (const auto& entry : std::filesystem::directory_iterator(m_received.path())) {
            const json mail = json::parse(Contents(entry.path()));
            const std::string recipient = mail.at("recipients").at(0);
            mails[recipient.substr(0, recipient.find('@'))] = mail;
        }
        return mails;
    }

    PeerProcess m_peer;
    const std::string m_port;
};

// The decoded content of the first part, byte for byte, with every line end of what was submitted as CR LF.
TEST_F(AioSmtpdFidelityTest, EveryTextArrivesByteForByte) {
    const std::vector<std::string> texts = NastyTexts();
    std::vector<Mail> mails;
    for (const std::string& text : texts) {
        mails.push_back({"Text", text});
    }
    Send(Carrier(), mails);
    const auto received = Received();
    ASSERT_EQ(received.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const json& mail = received.at(std::to_string(i));
        ASSERT_EQ(mail["parts"].size(), 1U) << texts[i].substr(0, 100);
        EXPECT_EQ(mail["parts"][0]["type"], "text/plain");
        EXPECT_EQ(mail["defects"], json::array());
        EXPECT_TRUE(FromBase64(mail["parts"][0]["content"]) == WithCrLf(texts[i])) << texts[i].substr(0, 100);
    }
}

// The decoded header, character for character.
TEST_F(AioSmtpdFidelityTest, EverySubjectArrivesCharacterForCharacter) {
    const std::vector<std::string> subjects = NastySubjects();
    std::vector<Mail> mails;
    for (const std::string& subject : subjects) {
        mails.push_back({subject, "text"});
    }
    Send(Carrier(), mails);
    const auto received = Received();
    ASSERT_EQ(received.size(), subjects.size());
    for (std::size_t i = 0; i < subjects.size(); ++i) {
        const json& subject = received.at(std::to_string(i))["subject"];
        EXPECT_EQ(subject.is_null() ? "" : subject.get<std::string>(), subjects[i]);
    }
}

// The decoded content and the file name, byte for byte, nothing left open.
TEST_F(AioSmtpdFidelityTest, EveryAttachmentArrivesByteForByteUnderItsName) {
    std::string everyByte;
    for (int i = 0; i < 10000; ++i) {
        everyByte += static_cast<char>(i * 7 % 256);
    }
    const std::map<std::string, std::string> contents{
        {"empty", ""},
        {"every byte.bin", everyByte},
        {".hidden", ".\r\n.\r\n"},
        {"line;ends,'=%41[x](y)<z>.txt", "a\rb\nc\r\nd"},
        {std::string(250, 'n'), "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n"},
        {"message.txt", std::string(5000, 'x') + "\n.\n"}};
    std::vector<std::string> paths;
    for (const auto& [name, content] : contents) {
        paths.push_back(m_files.write(name, content));
    }
    Send(Carrier(), {{"Files", "text"}}, paths);
    const json mail = Received().at("0");
    ASSERT_EQ(mail["parts"].size(), contents.size() + 1);
    EXPECT_EQ(mail["defects"], json::array());
    for (std::size_t i = 1; i < mail["parts"].size(); ++i) {
        const json& part = mail["parts"][i];
        ASSERT_EQ(contents.count(part["filename"]), 1U) << part["filename"];
        EXPECT_TRUE(FromBase64(part["content"]) == contents.at(part["filename"])) << part["filename"];
    }
}

/// Postfix's smtp-sink, found where ./dev unpacked it, or where the distribution installs it. It keeps each mail in a
/// file: lines of its own, then the message, with LF for CR LF and without the dots that were added for the way.
class SmtpSinkFidelityTest : public FidelityTest {
protected:
    void SetUp() override {
        // Another process may take the free port before smtp-sink does; it then ends at once.
        for (int attempt = 0; attempt < 5; ++attempt) {
            m_port = kvtest::FreePort();
            Start();
            if (kvtest::Eventually([this] { return kvtest::CanConnect(m_port) || !m_peer->isRunning(); }) &&
                m_peer->isRunning()) {
                return;
            }
        }
        FAIL() << "smtp-sink did not start";
    }

    void Start() {
        const char* const unpacked = std::getenv("KV_PEERS_DIR");
        const std::string root = unpacked != nullptr ? std::string(unpacked) + "/postfix" : "";
        std::vector<std::string> arguments{root + "/usr/sbin/smtp-sink"};
        if (::getuid() == 0) {
            arguments.insert(arguments.end(), {"-u", "root"});  // it insists on a user when started by root
        }
        arguments.insert(arguments.end(),
                         {"-d", m_received.file("mail."), "127.0.0.1:" + std::to_string(m_port), "10"});
        m_peer = std::make_unique<PeerProcess>(
            arguments, std::vector<std::string>{"LD_LIBRARY_PATH=" + root + "/usr/lib/postfix"});
    }

    std::vector<std::string> Mails() const {
        std::vector<std::string> mails;
        for (const auto& entry : std::filesystem::directory_iterator(m_received.path())) {
            mails.push_back(Contents(entry.path()));
        }
        return mails;
    }

    /// True when all these mails are complete: the last thing that is written is the end of the parts.
    bool HasReceived(std::size_t count) const {
        const std::vector<std::string> mails = Mails();
        return mails.size() == count && std::all_of(mails.begin(), mails.end(), [](const std::string& mail) {
                   return mail.find(kPartEnd) != std::string::npos;
               });
    }

    /// What stands between two marks of `mail`.
    static std::string Between(const std::string& mail, const std::string& begin, const std::string& end) {
        const std::size_t first = mail.find(begin) + begin.size();
        return mail.substr(first, mail.rfind(end) - first);
    }

    static constexpr const char* kPartEnd = "\n--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\n";
    std::unique_ptr<PeerProcess> m_peer;
    int m_port = 0;
};

// All bytes between the header of the text's part and the end of that part, with every line end as LF.
TEST_F(SmtpSinkFidelityTest, EveryTextArrivesByteForByte) {
    const std::vector<std::string> texts = NastyTexts();
    std::vector<Mail> mails;
    for (const std::string& text : texts) {
        mails.push_back({"Text", text});
    }
    Send("server = \"127.0.0.1\"\nport = " + std::to_string(m_port) + "\nsecurity = \"clear\"\n", mails);
    ASSERT_TRUE(kvtest::Eventually([&] { return HasReceived(texts.size()); }));
    std::map<std::string, std::string> received;
    for (const std::string& mail : Mails()) {
        received[Between(mail.substr(0, mail.find('@', mail.find("X-Rcpt-Args"))), "X-Rcpt-Args: <", "")] =
            Between(mail, "\nContent-Type: text/plain\n\n", kPartEnd);
    }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        std::string expected = WithCrLf(texts[i]);
        expected.erase(std::remove(expected.begin(), expected.end(), '\r'), expected.end());
        EXPECT_TRUE(received[std::to_string(i)] == expected) << texts[i].substr(0, 100);
    }
}

}  // namespace
}  // namespace kvhosttest
