#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Gate.h"
#include "PeerProcess.h"
#include "ScriptedSmtpServer.h"
#include "TempDir.h"
#include "TestPorts.h"
#include "host/ChildProcess.h"

// The installed SDK and the minimal host that was built against it. The fixture of these tests installs and builds
// both: run them through ctest.

namespace {

namespace fs = std::filesystem;
using kvhosttest::ChildProcess;
using testing::ElementsAre;
using testing::HasSubstr;
using Files = std::set<std::string>;

const std::string kPrefix = KV_SDK_PREFIX;
const std::string kLibraries = KV_LIBRARY_FOLDER;
const std::string kUnreachable =
    "Failed to create connection. Bad carrier configuration or carrier unreachable.";
const std::string kPlugin = kPrefix + "/" + kLibraries + "/libkvsmtpdriver.so";

Files FilesBelow(const std::string& folder) {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_directory()) {
            files.insert(fs::relative(entry.path(), folder).string());
        }
    }
    return files;
}

std::string ContentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The embedded mail server as a process on a free port.
class Sink {
public:
    explicit Sink(const std::vector<std::string>& options = {}) : m_process(CommandWith(options)) {
        const std::string line = m_process.readLine();
        m_strAddress = line.substr(line.rfind(' ') + 1);
    }

    /// Such as "127.0.0.1:40213".
    const std::string& Address() const { return m_strAddress; }

    std::vector<std::string> Mails() const {
        std::vector<std::string> mails;
        for (const std::string& name : FilesBelow(m_folder.path())) {
            mails.push_back(ContentOf(m_folder.file(name)));
        }
        return mails;
    }

private:
    std::vector<std::string> CommandWith(const std::vector<std::string>& options) const {
        std::vector<std::string> command{KV_BINARY_DIR "/kvsink", "--maildir", m_folder.path()};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    kvtest::TempDir m_folder;
    kvtest::PeerProcess m_process;
    std::string m_strAddress;
};

struct Result {
    int status;
    std::string output;
    std::string error;
};

/// Libraries that are not installed in this system are found through the run path of the build, which installed files do
/// not have.
ChildProcess::Input WithLibrariesOfTheBuild() {
    const std::string path = KV_LIBRARY_PATH;
    return path.empty() ? ChildProcess::Input{} : ChildProcess::Input{"", {{"LD_LIBRARY_PATH", path}}};
}

Result RunProgram(const std::vector<std::string>& command) {
    ChildProcess program(command, WithLibrariesOfTheBuild());
    const int status = program.Wait();
    return {status, program.Output(), program.Error()};
}

Result RunMinimalHost(const std::string& server, const std::string& recipient) {
    return RunProgram({KV_MINIMAL_HOST, kPlugin, server, recipient});
}

/// What one component of the installation consists of.
Files FilesOfComponent(const std::string& component) {
    const kvtest::TempDir prefix;
    const Result run = RunProgram(
        {KV_CMAKE, "--install", KV_BUILD_FOLDER, "--prefix", prefix.path(), "--component", component});
    EXPECT_EQ(run.status, 0) << run.error;
    return FilesBelow(prefix.path());
}

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

TEST(MinimalHostTest, ADeliveredJobIsReportedAndTheMailIsAtTheServer) {
    const Sink sink;
    const Result run = RunMinimalHost(sink.Address(), "ops@example.org");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "delivered\n");
    EXPECT_EQ(run.error, "");
    const std::vector<std::string> mails = sink.Mails();
    ASSERT_EQ(mails.size(), 1U);
    EXPECT_THAT(mails[0],
                HasSubstr("Return-Path: <host@example.org>\r\nX-Envelope-To: <ops@example.org>\r\n"));
    EXPECT_THAT(mails[0], HasSubstr("Subject: Pump 3\r\n"));
    EXPECT_THAT(mails[0], HasSubstr("Pressure is low."));
}

TEST(MinimalHostTest, ARefusedRecipientIsAFailedJobWithTheServersWords) {
    const Sink sink({"--refuse", "ops@example.org"});
    const Result run = RunMinimalHost(sink.Address(), "ops@example.org");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "failed: 5.1.1 No such recipient\n");
    EXPECT_THAT(run.error, HasSubstr("KvSMTPMsgDispatcher.cpp"));
    EXPECT_THAT(sink.Mails(), ElementsAre());
}

TEST(MinimalHostTest, AnUnreachableServerIsAFailedJob) {
    const kvtest::RefusingPort port;
    const Result run = RunMinimalHost(port.address(), "ops@example.org");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "failed: " + kUnreachable + "\n");
}

TEST(MinimalHostTest, AStopSignalDoesNotTearItAwayFromTheMessageUnderWay) {
    kvtest::Gate gate;
    kvtest::ScriptedSmtpServer server;
    server.on(kvtest::step::Greeting).reply(kvtest::Reply("554 closed\r\n").heldBy(gate));
    ChildProcess host({KV_MINIMAL_HOST, kPlugin, server.address(), "ops@example.org"},
                      WithLibrariesOfTheBuild());
    ASSERT_TRUE(server.waitForConnections(1));
    host.Signal(SIGTERM);
    gate.open();
    EXPECT_EQ(host.Wait(), 1) << host.Error();
    EXPECT_EQ(host.Output(), "failed: " + kUnreachable + "\n");
}

TEST(MinimalHostTest, ALibraryThatIsNoneEndsItWithStatus2) {
    const Result run = RunProgram({KV_MINIMAL_HOST, "/nowhere/libdriver.so", "127.0.0.1", "ops@example.org"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.error, HasSubstr("minimal_host: /nowhere/libdriver.so: cannot open shared object file"));
}

TEST(MinimalHostTest, ItHasLessThan150Lines) {
    const std::string text = ContentOf(KV_SOURCE_DIR "/examples/minimal_host/main.cpp");
    EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 150);
}

TEST(InstallationTest, TheDriverComponentIsThePluginAlone) {
    EXPECT_EQ(FilesOfComponent("driver"), Files{kLibraries + "/libkvsmtpdriver.so"});
}

TEST(InstallationTest, TheHostAndTheToolsAreOneProgramEach) {
    EXPECT_EQ(FilesOfComponent("host"), Files{"bin/kvhost"});
    EXPECT_EQ(FilesOfComponent("tools"), Files{"bin/kvsink"});
}

TEST(InstallationTest, TheSdkIsTheContractTheSystemLibraryAndThePackage) {
    Files expected{kLibraries + "/libkvsystem.a"};
    for (const char* header :
         {"KvDriverEntryPoints", "KvException", "KvLogInterface", "KvMessageFile", "KvMessageFileQueue",
          "KvMessengerInstConfBasic", "KvMessengerReportsMngrInterface", "KvProtocolDriverInterface",
          "KvconCriticalSection", "KvconException", "KvconLock", "Kvobject"}) {
        expected.insert("include/kvsmtp/" + std::string(header) + ".h");
    }
    Files found = FilesOfComponent("sdk");
    const std::string package = kLibraries + "/cmake/kvsmtp/";
    for (const char* file : {"kvsmtpConfig.cmake", "kvsmtpConfigVersion.cmake", "kvsmtpTargets.cmake"}) {
        expected.insert(package + file);
    }
    // One more, named after the kind of the build, such as kvsmtpTargets-release.cmake.
    std::erase_if(found,
                  [&](const std::string& file) { return file.starts_with(package + "kvsmtpTargets-"); });
    EXPECT_EQ(found, expected);
}

TEST(InstallationTest, EveryHeaderOfTheSdkCompilesByItselfAsCpp11) {
    for (const auto& header : fs::directory_iterator(kPrefix + "/include/kvsmtp")) {
        std::vector<std::string> command{KV_CXX};
        for (const std::string& flag : Words(KV_CXX_FLAGS)) {
            command.push_back(flag);
        }
        for (const char* flag :
             {"-std=c++11", "-pedantic-errors", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-x", "c++",
              "-include", header.path().c_str(), "/dev/null"}) {
            command.emplace_back(flag);
        }
        const Result run = RunProgram(command);
        EXPECT_EQ(run.status, 0) << header.path() << ": " << run.error;
    }
}

TEST(InstallationTest, TheInstalledKvhostFindsTheInstalledDriver) {
    if (std::string(KV_SANITIZER) != "") {
        GTEST_SKIP() << "the sanitizers' own dlopen looks libraries up without the run path of the program";
    }
    const Sink sink;
    const kvtest::TempDir folder;
    const std::string port = sink.Address().substr(sink.Address().find(':') + 1);
    const std::string config =
        folder.write("kvhost.toml", "[carrier.mail]\nserver = \"127.0.0.1\"\nport = " + port +
                                        "\nsecurity = \"clear\"\nsender = \"host@example.org\"\n");
    const std::string jobs = folder.write(
        "jobs.jsonl", R"({"id": "a", "carrier": "mail", "recipient": "ops@example.org", "text": "Hello"})"
                      "\n");
    const Result run = RunProgram({kPrefix + "/bin/kvhost", "send", "--config", config, jobs});
    EXPECT_EQ(run.status, 0) << run.error;
    EXPECT_EQ(sink.Mails().size(), 1U);
}

}  // namespace
