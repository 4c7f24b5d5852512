// The plug-in against mail servers that we did not write: aiosmtpd and Postfix's smtp-sink, both from Debian.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Eventually.h"
#include "KvsysCodec.h"
#include "LoadedDriver.h"
#include "PeerProcess.h"
#include "TestCertificates.h"
#include "TestMessageFile.h"
#include "TestPorts.h"

namespace {

using namespace kvtest;
using Files = std::vector<std::unique_ptr<TestMessageFile>>;
using Reports = KvMessengerReportsMngrInterface;

const std::string kPlugin = KV_BINARY_DIR "/libkvsmtpdriver.so";

/// Hands all files over, ticks, and waits until they are back.
void Deliver(const Files& files) {
    HostDoubles host;
    LoadedDriver driver(kPlugin);
    driver.start(host, {});
    for (const auto& file : files) {
        Reports::ReportsStatus status{};
        ASSERT_TRUE(driver->SendAMessage(file.get(), status));
    }
    driver->PeriodicEvent();
    ASSERT_TRUE(host.queue.waitFor(static_cast<int>(files.size()), std::chrono::seconds(30)));
    driver.stop();
    EXPECT_TRUE(host.queue.eachReturnedOnce());
}

std::string Contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string Base64(std::string bytes) {
    std::string text;
    KvsysCodec::EncodeBase64(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                             text, false);
    return text;
}

/// Every byte value, and a length that is no multiple of three.
std::string BinaryContent() {
    std::string bytes;
    for (int i = 0; i < 10000; ++i) {
        bytes += static_cast<char>(i * 7 % 256);
    }
    return bytes;
}

/// aiosmtpd, which demands STARTTLS and AUTH.
class AioSmtpdTest : public testing::Test {
protected:
    AioSmtpdTest()
        : m_peer({"/usr/bin/python3", KV_SOURCE_DIR "/tests/interop/mail_server.py",
                  TestCertificates::Shared().server().certificate, TestCertificates::Shared().server().key,
                  "pager", "s3cret word", m_received.path()}),
          m_port(m_peer.readLine()) {}

    void SetUp() override { ASSERT_FALSE(m_port.empty()) << "aiosmtpd did not start"; }

    MessageBuilder Message() const {
        return MessageBuilder()
            .server("127.0.0.1:" + m_port)
            .security(SMTP_SECURITY_REQUIRED)
            .caFile(TestCertificates::Shared().caFile())
            .account("pager", "s3cret word");
    }

    nlohmann::json Received(int number) const {
        return nlohmann::json::parse(Contents(m_received.file(std::to_string(number) + ".json")));
    }

    TempDir m_received;
    TempDir m_files;
    PeerProcess m_peer;
    std::string m_port;
};

TEST_F(AioSmtpdTest, ReceivesTextAndAttachmentsUnchangedOverTlsAndAuth) {
    const std::string binary = BinaryContent();
    const std::string pdf = "%PDF-1.4\r\n1 0 obj\n<<>>\nendobj\n%%EOF\n";
    Files files;
    files.push_back(Message()
                        .subject("Pump 3: pressure low")
                        .text("first line\nsecond line\r\nlast line")
                        .attachment(m_files.write("plan.pdf", pdf))
                        .attachment(m_files.write("data.bin", binary))
                        .build());
    Deliver(files);
    ASSERT_EQ(files[0]->m_eStatus, Reports::REPORT_COMPLETED) << files[0]->failureReason();

    const nlohmann::json mail = Received(1);
    EXPECT_EQ(mail["sender"], "ann@example.org");
    EXPECT_EQ(mail["recipients"], nlohmann::json({"bob@example.org"}));
    EXPECT_EQ(mail["tls"], true);
    EXPECT_EQ(mail["authenticated"], true);
    EXPECT_EQ(mail["type"], "multipart/mixed");
    EXPECT_EQ(mail["subject"], "Pump 3: pressure low");
    EXPECT_EQ(mail["from"], "ann@example.org");
    EXPECT_EQ(mail["defects"], nlohmann::json::array());
    ASSERT_EQ(mail["parts"].size(), 3U);
    EXPECT_EQ(mail["parts"][0]["type"], "text/plain");
    EXPECT_EQ(mail["parts"][0]["content"], Base64("first line\r\nsecond line\r\nlast line"));
    EXPECT_EQ(mail["parts"][1]["filename"], "plan.pdf");
    EXPECT_EQ(mail["parts"][1]["content"], Base64(pdf));
    EXPECT_EQ(mail["parts"][2]["filename"], "data.bin");
    EXPECT_EQ(mail["parts"][2]["content"], Base64(binary));
}

TEST_F(AioSmtpdTest, ReceivesAGroupAsOneMailToItsRecipientsInOrder) {
    Files files;
    for (const char* name : {"carol", "alice", "bob", "alice"}) {
        const std::string number = std::to_string(files.size());
        files.push_back(
            Message().id("G_" + number).jobId(number).recipient(std::string(name) + "@example.org").build());
    }
    Deliver(files);
    for (const auto& file : files) {
        EXPECT_EQ(file->m_eStatus, Reports::REPORT_COMPLETED) << file->failureReason();
    }
    EXPECT_EQ(Received(1)["recipients"], nlohmann::json({"carol@example.org", "alice@example.org",
                                                         "bob@example.org", "alice@example.org"}));
}

TEST_F(AioSmtpdTest, RefusesAWrongPassword) {
    Files files;
    files.push_back(Message().account("pager", "wrong").build());
    Deliver(files);
    EXPECT_EQ(files[0]->m_eStatus, Reports::REPORT_FAILED);
    EXPECT_EQ(files[0]->failureReason(),
              "Failed to create connection. Bad carrier configuration or carrier unreachable.");
}

TEST_F(AioSmtpdTest, DemandsStartTlsDuringTheTransactionAndGetsItInTheOnDemandMode) {
    Files files;
    files.push_back(Message().security(SMTP_SECURITY_ON_DEMAND).build());
    Deliver(files);
    EXPECT_EQ(files[0]->m_eStatus, Reports::REPORT_COMPLETED) << files[0]->failureReason();
    EXPECT_EQ(Received(1)["tls"], true);
}

/// Postfix's smtp-sink, found where ./dev unpacked it, or where the distribution installs it.
class SmtpSinkTest : public testing::Test {
protected:
    void SetUp() override {
        // Another process may take the free port before smtp-sink does; it then ends at once.
        for (int attempt = 0; attempt < 5; ++attempt) {
            m_port = FreePort();
            Start();
            if (Eventually([this] { return CanConnect(m_port) || !m_peer->isRunning(); }) &&
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
        if (getuid() == 0) {
            arguments.insert(arguments.end(), {"-u", "root"});  // it insists on a user when started by root
        }
        arguments.insert(arguments.end(),
                         {"-d", m_received.file("mail."), "127.0.0.1:" + std::to_string(m_port), "10"});
        m_peer = std::make_unique<PeerProcess>(
            arguments, std::vector<std::string>{"LD_LIBRARY_PATH=" + root + "/usr/lib/postfix"});
    }

    MessageBuilder Message() const {
        return MessageBuilder().server("127.0.0.1:" + std::to_string(m_port)).security(SMTP_SECURITY_CLEAR);
    }

    std::vector<std::string> Mails() const {
        std::vector<std::string> mails;
        for (const auto& entry : std::filesystem::directory_iterator(m_received.path())) {
            mails.push_back(Contents(entry.path()));
        }
        return mails;
    }

    TempDir m_received;
    std::unique_ptr<PeerProcess> m_peer;
    int m_port = 0;
};

TEST_F(SmtpSinkTest, ReceivesTheEnvelopeAndTheMessage) {
    Files files;
    for (const char* name : {"carol", "alice"}) {
        const std::string number = std::to_string(files.size());
        files.push_back(Message()
                            .id("G_" + number)
                            .jobId(number)
                            .recipient(std::string(name) + "@example.org")
                            .subject("Pump 3")
                            .text("pressure low")
                            .build());
    }
    Deliver(files);
    EXPECT_EQ(files[0]->m_eStatus, Reports::REPORT_COMPLETED) << files[0]->failureReason();
    EXPECT_EQ(files[1]->m_eStatus, Reports::REPORT_COMPLETED) << files[1]->failureReason();

    ASSERT_TRUE(
        Eventually([this] { return !Mails().empty() && Mails()[0].find("--\n") != std::string::npos; }));
    const std::vector<std::string> mails = Mails();
    ASSERT_EQ(mails.size(), 1U);
    EXPECT_NE(mails[0].find("X-Mail-Args: <ann@example.org>\n"
                            "X-Rcpt-Args: <carol@example.org>\n"
                            "X-Rcpt-Args: <alice@example.org>\n"),
              std::string::npos)
        << mails[0];
    EXPECT_NE(mails[0].find("Subject: Pump 3\n"), std::string::npos) << mails[0];
    EXPECT_NE(mails[0].find("\npressure low\n"), std::string::npos) << mails[0];
}

TEST_F(SmtpSinkTest, ReceivesManyMailsOverReusedConnections) {
    Files files;
    for (int i = 0; i < 200; ++i) {
        files.push_back(Message().id("J" + std::to_string(i) + "_1").jobId(std::to_string(i)).build());
    }
    Deliver(files);
    EXPECT_TRUE(std::all_of(files.begin(), files.end(),
                            [](const auto& file) { return file->m_eStatus == Reports::REPORT_COMPLETED; }));
    EXPECT_TRUE(Eventually([this] { return Mails().size() == 200; }));
}

}  // namespace
