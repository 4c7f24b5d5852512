#include <httplib.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "RunFixture.h"
#include "ScriptedSmtpServer.h"

namespace kvruntest {
namespace {

using kvhost::JobState;
using kvhosttest::ChildProcess;
using testing::IsEmpty;

std::string Base64(const std::string& data) {
    std::string encoded((data.size() + 2) / 3 * 4 + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
                        reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
    encoded.resize(static_cast<std::size_t>(length));
    return encoded;
}

std::string Hex(const std::string& data) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string hex;
    for (const char c : data) {
        hex += kDigits[static_cast<unsigned char>(c) >> 4U];
        hex += kDigits[static_cast<unsigned char>(c) & 15U];
    }
    return hex;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The characters of base64 that hold bits of `secret` alone when `offset` other bytes stand before it.
std::string Base64Within(const std::string& secret, std::size_t offset) {
    const std::string encoded = Base64(std::string(offset, 'x') + secret);
    const std::size_t begin = (offset * 8 + 5) / 6;
    return encoded.substr(begin, (offset + secret.size()) * 8 / 6 - begin);
}

/// Names the form in which `secret` stands in `text`; empty when it does not.
std::string FormOf(const std::string& secret, const std::string& text) {
    if (text.find(secret) != std::string::npos) {
        return "as it is";
    }
    if (Lower(text).find(Hex(secret)) != std::string::npos) {
        return "in hex";
    }
    for (std::size_t offset = 0; offset < 3; ++offset) {
        if (text.find(Base64Within(secret, offset)) != std::string::npos) {
            return "in base64 behind " + std::to_string(offset) + " bytes";
        }
    }
    return "";
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

TEST(SecretFormsTest, EveryFormIsFound) {
    const std::string secret = "canary-one-7Zq";
    EXPECT_EQ(FormOf(secret, "say " + secret + "!"), "as it is");
    EXPECT_EQ(FormOf(secret, "0x" + Hex(secret)), "in hex");
    EXPECT_EQ(FormOf(secret, Base64(secret)), "in base64 behind 0 bytes");
    EXPECT_EQ(FormOf(secret, Base64("a" + secret + "zz")), "in base64 behind 1 bytes");
    EXPECT_EQ(FormOf(secret, Base64("ab" + secret)), "in base64 behind 2 bytes");
    EXPECT_EQ(FormOf(secret, "canary-one-7Z"), "");
}

/// Passwords of three lengths, so that base64 of the credentials aligns them in all ways.
class RunSecretsTest : public RunTest {
protected:
    RunSecretsTest() {
        m_strLogLevel = "trace";
        m_dir.write("token", kToken + std::string("\n"));
        Configure(
            "[driver]\nthreadpool_size = 3\n[log]\nfile = \"logs/kvhost.log\"\n[delivery_log]\nfile = "
            "\"logs/delivery\"\n"
            "[http]\nport = 0\nsubmit = true\ntoken_file = \"token\"\n"
            "[retry]\nfirst = \"10ms\"\nattempts = 2\nunclear_attempts = 2\n");
        std::filesystem::create_directory(m_dir.file("logs"));
        m_plain = MakeServer({"AUTH PLAIN"}, kPlain);
        m_login = MakeServer({"AUTH LOGIN"}, kLogin);
        m_other = MakeServer({"AUTH PLAIN LOGIN"}, "the server knows another");
        AddAccount("plain", *m_plain, kPlain);
        AddAccount("login", *m_login, kLogin);
        AddAccount("wrong", *m_other, kWrong);
    }

    static std::unique_ptr<kvtest::ScriptedSmtpServer> MakeServer(const std::vector<std::string>& extensions,
                                                                  const std::string& password) {
        kvtest::SmtpServerOptions options;
        options.extensions = extensions;
        options.accounts = {{"user", password}};
        return std::make_unique<kvtest::ScriptedSmtpServer>(options);
    }
    void AddAccount(const std::string& name, const kvtest::ScriptedSmtpServer& server,
                    const std::string& password) {
        m_dir.write(name + ".secret", password + "\n");
        AddCarrier(name, server.address(), "user = \"user\"\npassword_file = \"" + name + ".secret\"\n");
    }

    /// The port that the log tells.
    int HttpPort() const {
        const std::string log = ReadFile(m_dir.file("logs/kvhost.log"));
        const std::string mark = "listening for HTTP at 127.0.0.1:";
        const std::size_t at = log.find(mark);
        return at == std::string::npos ? 0 : std::atoi(log.c_str() + at + mark.size());
    }

    void Look(const std::string& what, const std::string& text) {
        ASSERT_NE(text, "") << what;
        for (const std::string& secret :
             {std::string(kPlain), std::string(kLogin), std::string(kWrong), kToken}) {
            if (const std::string form = FormOf(secret, text); !form.empty()) {
                m_vecFound.push_back(what + " has " + secret + " " + form);
            }
        }
    }
    void LookAtCommand(std::vector<std::string> arguments) {
        const std::string name = arguments.front();
        arguments.insert(arguments.begin(), KV_BINARY_DIR "/kvhost");
        arguments.insert(arguments.end(), {"--config", m_dir.file("kvhost.toml")});
        ChildProcess child(arguments, {});
        child.Wait();
        Look("kvhost " + name, child.Output() + child.Error());
    }
    void LookAtPage(const std::string& path, const httplib::Headers& headers = {}) {
        httplib::Client client("127.0.0.1", HttpPort());
        const auto response = client.Get(path.c_str(), headers);
        ASSERT_TRUE(response) << path;
        Look("GET " + path, response->body);
    }
    /// Everything that was written below the test's folder, but for what the test wrote itself.
    void LookAtFiles() {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_dir.path())) {
            const std::string name = entry.path().filename().string();
            const bool isOurs =
                name == "token" || name == "kvhost.toml" || name.find(".secret") != std::string::npos;
            if (entry.is_regular_file() && !isOurs && entry.file_size() > 0) {
                Look(name, ReadFile(entry.path()));
            }
        }
    }

    static constexpr const char* kPlain = "canary-plain-q7Zx";    // 17 bytes
    static constexpr const char* kLogin = "canary-login-q7Zxy";   // 18
    static constexpr const char* kWrong = "canary-wrong-q7Zxyz";  // 19
    const std::string kToken = "canary-token-of-submitters";
    std::unique_ptr<kvtest::ScriptedSmtpServer> m_plain, m_login, m_other;
    std::vector<std::string> m_vecFound;
};

TEST_F(RunSecretsTest, NoOutputHasASecretInAnyForm) {
    // Servers that say in their replies what they were told.
    m_plain->on("RCPT")
        .recipient("echo@example.org")
        .reply("550 5.7.1 refused for " + std::string(kPlain) + " and " +
               Base64("user" + std::string(kLogin)) + "\r\n");
    m_other->on(kvtest::step::AuthPlain).reply("535 5.7.8 not with " + std::string(kWrong) + "\r\n");
    StartLoggingTo(m_dir.file("logs/kvhost.log"));
    Submit({Mail("p", "plain"), Mail("l", "login"), Mail("echo", "plain"), Mail("w", "wrong")});
    EXPECT_TRUE(WaitForState("p", JobState::Delivered));
    EXPECT_TRUE(WaitForState("l", JobState::Delivered));
    EXPECT_TRUE(WaitForState("echo", JobState::Failed));
    EXPECT_TRUE(WaitForState("w", JobState::Failed)) << History("w").job.decision;
    ASSERT_NE(History("echo").job.reason.find("refused for"), std::string::npos);

    const httplib::Headers token{{"Authorization", "Bearer " + kToken}};
    for (const char* path : {"/", "/status.json", "/metrics", "/healthz", "/readyz"}) {
        LookAtPage(path);
    }
    LookAtPage("/v1/jobs/echo", token);
    LookAtPage("/v1/jobs/w", {{"Authorization", "Bearer wrong-" + kToken}});
    for (const char* command : {"list", "stats", "fsck"}) {
        LookAtCommand({command});
        LookAtCommand({command, "--json"});
    }
    LookAtCommand({"top", "--once"});
    LookAtCommand({"config", "check"});
    LookAtCommand({"config", "check", "--json"});
    for (const char* job : {"p", "l", "echo", "w"}) {
        LookAtCommand({"show", job});
        LookAtCommand({"show", job, "--json"});
    }
    for (const char* carrier : {"plain", "login", "wrong"}) {
        LookAtCommand({"carrier", "test", carrier});
        LookAtCommand({"carrier", "test", carrier, "--json"});
    }
    EXPECT_EQ(Stop(), 0);
    LookAtFiles();
    EXPECT_THAT(m_vecFound, IsEmpty());
    // The log did hold the exchanges: what is looked for was there to be found.
    const std::string log = ReadFile(m_dir.file("logs/kvhost.log"));
    EXPECT_NE(log.find("AUTH PLAIN"), std::string::npos);
    EXPECT_NE(log.find("[masked]"), std::string::npos);
}

}  // namespace
}  // namespace kvruntest
