#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AttachmentStore.h"
#include "Doorbell.h"
#include "Eventually.h"
#include "JobIntake.h"
#include "JobOperations.h"
#include "JobViews.h"
#include "StoreCheck.h"
#include "TempDir.h"
#include "host/ChildProcess.h"

namespace kvruntest {

inline constexpr const char* kRealDriver = KV_BINARY_DIR "/libkvsmtpdriver.so";
inline constexpr const char* kFakeDriver = KV_BINARY_DIR "/libkvhost_fake_driver.so";

/// A store and a configuration in a folder of its own, and `kvhost run` on them as a child process. The test submits
/// and looks beside the host, as other processes do.
class RunTest : public testing::Test {
protected:
    /// What the configuration says besides carriers.
    void Configure(const std::string& text) { m_strSettings = text; }
    /// A carrier without TLS and without authentication; `more` are further lines of its table.
    void AddCarrier(const std::string& name, const std::string& address, const std::string& more = "") {
        const std::size_t colon = address.find(':');
        m_mapCarriers[name] = "[carrier." + name + "]\nserver = \"" + address.substr(0, colon) +
                              "\"\nport = " + address.substr(colon + 1) +
                              "\nsecurity = \"clear\"\nsender = \"host@example.org\"\n" + more;
    }
    void RemoveCarrier(const std::string& name) { m_mapCarriers.erase(name); }

    std::string WriteConfig() {
        std::string text = "store = \"store\"\n" + m_strSettings;
        for (const auto& [name, table] : m_mapCarriers) {
            text += table;
        }
        return m_dir.write("kvhost.toml", text);
    }

    std::unique_ptr<kvhosttest::ChildProcess> Spawn(
        const std::string& driver, const std::map<std::string, std::string>& environment = {}) {
        const std::vector<std::string> command = {KV_BINARY_DIR "/kvhost", "run",        "--config",
                                                  WriteConfig(),           "--driver",   driver,
                                                  "--log-level",           m_strLogLevel};
        return std::make_unique<kvhosttest::ChildProcess>(command,
                                                          kvhosttest::ChildProcess::Input{"", environment});
    }

    /// Starts the host and waits until it runs.
    void Start(const std::string& driver = kRealDriver,
               const std::map<std::string, std::string>& environment = {}) {
        m_host = Spawn(driver, environment);
        ASSERT_TRUE(m_host->WaitForError("kvhost running")) << m_host->Error();
    }
    /// The same for a host that logs to `logFile`.
    void StartLoggingTo(const std::string& logFile) {
        m_host = Spawn(kRealDriver);
        ASSERT_TRUE(kvtest::Eventually([&] {
            std::ifstream stream(logFile);
            const std::string log((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
            return log.find("kvhost running") != std::string::npos;
        }));
    }
    kvhosttest::ChildProcess& Host() { return *m_host; }
    /// Asks the host to stop and answers its exit status.
    int Stop() {
        m_host->Signal(SIGTERM);
        return m_host->Wait();
    }

    static kvhost::Submission Mail(const std::string& id, const std::string& carrier,
                                   const std::string& text = "The boiler is cold.") {
        kvhost::Submission mail;
        mail.id = id;
        mail.carrier = carrier;
        mail.recipients = {id + "@example.org"};
        mail.subject = "Boiler";
        mail.text = text;
        return mail;
    }
    void Submit(const std::vector<kvhost::Submission>& mails) {
        kvhost::JobIntake(Store()).Submit(mails, kvhost::StoreNow());
        kvhost::Doorbell::Ring(StoreFolder());
    }

    std::string StoreFolder() const { return m_dir.file("store"); }
    kvhost::StoreDatabase& Store() {
        if (!m_pStore) {
            m_pStore =
                std::make_unique<kvhost::StoreDatabase>(StoreFolder(), kvhost::StoreDatabase::Access::Create);
        }
        return *m_pStore;
    }
    kvhost::JobHistory History(const std::string& id) {
        const std::vector<kvhost::JobHistory> found = kvhost::JobViews(Store()).Show(id);
        return found.empty() ? kvhost::JobHistory() : found.front();
    }
    kvhost::JobState StateOf(const std::string& id) { return History(id).job.state; }
    bool WaitForState(const std::string& id, kvhost::JobState state) {
        return kvtest::Eventually([&] { return StateOf(id) == state; });
    }
    bool WaitForCount(kvhost::JobState state, std::int64_t count,
                      std::chrono::milliseconds bound = std::chrono::seconds(20)) {
        kvhost::JobViews views(Store());
        return kvtest::Eventually([&] { return views.Count()[state] == count; }, bound);
    }
    void ExpectSound() {
        const kvhost::StoreCheckResult result = kvhost::CheckStore(Store());
        EXPECT_THAT(result.faults, testing::IsEmpty());
    }

    const kvtest::TempDir m_dir;
    std::string m_strLogLevel = "info";

private:
    std::string m_strSettings;
    std::map<std::string, std::string> m_mapCarriers;
    std::unique_ptr<kvhost::StoreDatabase> m_pStore;
    std::unique_ptr<kvhosttest::ChildProcess> m_host;
};

}  // namespace kvruntest
