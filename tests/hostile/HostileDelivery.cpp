#include "hostile/HostileDelivery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>
#include <thread>

#include "Eventually.h"
#include "KvSmtpDriver.h"
#include "TestCertificates.h"
#include "hostile/VirtualTime.h"

namespace kvtest {

namespace {

using Reports = KvMessengerReportsMngrInterface;

constexpr const char* kReleased = "Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with";
constexpr const char* kNoConnection =
    "Failed to create connection. Bad carrier configuration or carrier unreachable.";

class CountingDriver : public KvSMTPDriver {
public:
    ~CountingDriver() override { delete m_pLock; }

    bool HasConnection() const { return m_nTotalConnections > 0; }
};

bool IsRefusal(const std::string& received) {
    return received.starts_with("=> 4") || received.starts_with("=> 5");
}

/// The end of data was answered with success as the driver reads it.
void ExpectAcceptedMessage(const std::vector<std::string>& log, int expiredWaits) {
    const auto end = std::find(log.rbegin(), log.rend(), "<= .<CR><LF>").base();
    ASSERT_TRUE(end != log.begin()) << "completed, but the end of data was not sent";
    const auto received =
        std::find_if(end, log.end(), [](const std::string& line) { return line.starts_with("=> "); });
    if (received == log.end()) {
        EXPECT_GT(expiredWaits, 0) << "completed without a reply, and no time-out was over";
    } else {
        EXPECT_FALSE(IsRefusal(*received)) << "completed after " << *received;
    }
}

/// How many descriptors are open but for those of events, some of which the server keeps until its next connection.
long OpenDescriptors() {
    namespace fs = std::filesystem;
    const fs::directory_iterator all("/proc/self/fd");
    return std::count_if(begin(all), end(all), [](const fs::directory_entry& entry) {
        std::error_code gone;
        return fs::read_symlink(entry.path(), gone).string().find("[eventfd]") == std::string::npos;
    });
}

/// One cycle on a thread of its own, so that the time of the driver's waits is not the test's.
void Cycle(KvSMTPDriver& driver) {
    std::jthread([&driver] { EXPECT_TRUE(driver.PeriodicEvent()); });
}

void SetUp(KvSMTPDriver& driver, HostDoubles& host) {
    host.lendTo(driver);
    std::map<std::string, std::string> settings;
    EXPECT_TRUE(driver.Configure(settings));
    EXPECT_TRUE(driver.Setup(&host.instanceConf));
}

void HandOver(KvSMTPDriver& driver, TestMessageFile& file) {
    auto status = Reports::REPORT_NONE;
    EXPECT_TRUE(driver.SendAMessage(&file, status));
}

Outcome RunOnce(HostDoubles& host, TestMessageFile& file) {
    CountingDriver driver;
    SetUp(driver, host);
    HandOver(driver, file);
    Cycle(driver);
    EXPECT_TRUE(host.queue.waitFor(1));
    if (host.log.contains("Adding delegate the thread pool queue ...")) {
        EXPECT_TRUE(host.log.waitForContaining(kReleased));
    }
    const bool kept = driver.HasConnection();
    EXPECT_TRUE(driver.Cleanup());
    return {file.m_eStatus, file.failureReason(), kept};
}

}  // namespace

bool operator==(const Outcome& one, const Outcome& other) {
    return one.status == other.status && one.reason == other.reason && one.kept == other.kept;
}

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << "status " << outcome.status << ", reason " << testing::PrintToString(outcome.reason)
               << (outcome.kept ? ", connection kept" : ", connection closed");
}

Outcome Completed() {
    return {Reports::REPORT_COMPLETED, "", true};
}

Outcome Failed(const std::string& reason) {
    return {Reports::REPORT_FAILED, reason, true};
}

Outcome NotConnected() {
    return {Reports::REPORT_FAILED, kNoConnection, false};
}

Outcome Deliver(ScriptedSmtpServer& server, const MessageBuilder& message, HostDoubles& host) {
    EXPECT_TRUE(server.waitForOpenConnections(0));
    const long descriptors = OpenDescriptors();
    const int expired = VirtualTime::ExpiredWaits();
    const auto file = message.build();
    const Outcome outcome = RunOnce(host, *file);
    EXPECT_EQ(host.queue.count(), 1);
    EXPECT_EQ(host.queue.timesReturned(file.get()), 1);
    if (outcome.status == Reports::REPORT_COMPLETED) {
        ExpectAcceptedMessage(host.log.texts(), VirtualTime::ExpiredWaits() - expired);
    }
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors() == descriptors; }));
    return outcome;
}

Outcome Deliver(ScriptedSmtpServer& server, const MessageBuilder& message) {
    HostDoubles host;
    return Deliver(server, message, host);
}

MessageBuilder JobFor(const ScriptedSmtpServer& server, bool insideTls) {
    return MessageBuilder()
        .server(server.address())
        .security(insideTls ? SMTP_SECURITY_REQUIRED : SMTP_SECURITY_CLEAR)
        .caFile(TestCertificates::Shared().caFile());
}

SmtpServerOptions OfferingAccount(bool insideTls, const std::string& mechanisms) {
    SmtpServerOptions options;
    options.accounts = {{"ann", "secret"}};
    options.extensions = {{"AUTH " + mechanisms}};
    if (insideTls) {
        options.extensionsInsideTls = options.extensions;
        options.extensions = {{"STARTTLS"}};
        options.tls = TestCertificates::Shared().serverTls();
    }
    return options;
}

MessageBuilder WithAccount(MessageBuilder message) {
    return message.account("ann", "secret");
}

Reply SilentFor(std::chrono::milliseconds length) {
    EXPECT_TRUE(VirtualTime::Pass(length)) << "the driver did not wait";
    return {};
}

}  // namespace kvtest
