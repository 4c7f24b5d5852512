// Many jobs over many carriers from several host threads: every job comes back exactly once with a true status.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "HostDoubles.h"
#include "KvSmtpDriver.h"
#include "ScriptedSmtpServer.h"
#include "TestMessageFile.h"

namespace {

using namespace kvtest;
using Reports = KvMessengerReportsMngrInterface;

constexpr int kJobs = 5000;
constexpr int kCarriers = 20;
constexpr int kIntakeThreads = 2;
constexpr std::chrono::minutes kBound{2};

struct JobPlan {
    std::unique_ptr<TestMessageFile> file;
    bool refused;
};

using Group = std::vector<JobPlan>;

/// Random groups of one message each, all of whose recipients are accepted or all refused.
std::vector<Group> PlanGroups(const std::string& server) {
    std::mt19937 random(20240305);
    std::vector<Group> groups;
    for (int job = 0; job < kJobs;) {
        const bool refused = random() % 10 == 0;
        const unsigned long carrier = 1 + random() % kCarriers;
        const int size = std::min(kJobs - job, static_cast<int>(1 + random() % 15));
        Group& group = groups.emplace_back();
        for (int i = 0; i < size; ++i, ++job) {
            const std::string number = std::to_string(job);
            group.push_back({MessageBuilder()
                                 .id("G" + std::to_string(groups.size()) + "_" + number)
                                 .jobId(number)
                                 .recipient((refused ? "refused" : "taken") + number + "@example.org")
                                 .carrier(carrier, "carrier" + std::to_string(carrier))
                                 .server(server)
                                 .build(),
                             refused});
        }
    }
    return groups;
}

/// The host: two threads hand the groups over while a third one ticks, until everything is back.
class Host {
public:
    explicit Host(std::vector<Group>& groups) : m_groups(groups) {
        m_doubles.lendTo(m_driver);
        m_driver.m_pLog = nullptr;
        std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "4"},
                                                    {"smart_driver.same_carrier_connection_count", "3"},
                                                    {"smart_driver.diff_carrier_connection_count", "10"}};
        m_driver.Configure(settings);
        m_driver.Setup(&m_doubles.instanceConf);
    }
    ~Host() { m_driver.Cleanup(); }

    void Run() {
        std::vector<std::thread> threads;
        for (int i = 0; i < kIntakeThreads; ++i) {
            threads.emplace_back([this] { HandOver(); });
        }
        std::atomic<bool> done{false};
        std::thread ticking([this, &done] {
            while (!done) {
                m_driver.PeriodicEvent();
                std::this_thread::yield();
            }
        });
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(m_doubles.queue.waitFor(m_accepted, kBound));
        done = true;
        ticking.join();
    }

    int Accepted() const { return m_accepted; }
    ReturnQueue& Queue() { return m_doubles.queue; }

private:
    void HandOver() {
        for (std::size_t next = m_nextGroup++; next < m_groups.size(); next = m_nextGroup++) {
            for (const JobPlan& job : m_groups[next]) {
                Reports::ReportsStatus status{};
                m_accepted += m_driver.SendAMessage(job.file.get(), status) ? 1 : 0;
            }
        }
    }

    std::vector<Group>& m_groups;
    std::atomic<std::size_t> m_nextGroup{0};
    std::atomic<int> m_accepted{0};
    HostDoubles m_doubles;
    KvSMTPDriver m_driver;
};

/// How often each address was a recipient of an accepted transaction.
std::map<std::string, int> Deliveries(const ScriptedSmtpServer& server) {
    std::map<std::string, int> deliveries;
    for (const TransactionRecord& transaction : server.transactions()) {
        if (transaction.accepted()) {
            for (const std::string& address : transaction.recipientAddresses()) {
                ++deliveries[address];
            }
        }
    }
    return deliveries;
}

void RefuseTheRefused(ScriptedSmtpServer& server) {
    server.on("RCPT").answer([](const CommandContext& context) {
        return context.address.starts_with("refused") ? Reply("550 5.1.1 no such user\r\n")
                                                      : context.defaultReply;
    });
}

TEST(DriverUnderLoadTest, EveryJobComesBackOnceWithTheRightStatus) {
    ScriptedSmtpServer server;
    RefuseTheRefused(server);
    std::vector<Group> groups = PlanGroups(server.address());
    Host host(groups);
    host.Run();

    EXPECT_EQ(host.Accepted(), kJobs);
    EXPECT_EQ(host.Queue().count(), kJobs);
    EXPECT_TRUE(host.Queue().eachReturnedOnce());
    std::map<std::string, int> deliveries = Deliveries(server);
    for (const Group& group : groups) {
        for (const auto& [file, refused] : group) {
            EXPECT_EQ(file->m_eStatus, refused ? Reports::REPORT_FAILED : Reports::REPORT_COMPLETED);
            EXPECT_EQ(file->failureReason(), refused ? "5.1.1 no such user\r\n" : "");
            EXPECT_EQ(deliveries[file->m_strRecipient], refused ? 0 : 1);
        }
    }
}

/// Cuts every twentieth connection, by turns at the sender, at the first recipient and at the end of data.
void CutOneConnectionInTwenty(ScriptedSmtpServer& server) {
    static constexpr const char* kPhases[] = {"MAIL", "RCPT", step::EndOfData};
    server.on(step::Any).answer([](const CommandContext& context) {
        const bool cut = context.connection % 20 == 0 && context.step == kPhases[context.connection / 20 % 3];
        return cut ? Reply().thenClose() : context.defaultReply;
    });
}

TEST(DriverUnderLoadTest, NoJobIsLostOrUntrulyReportedWhenConnectionsAreCut) {
    ScriptedSmtpServer server;
    CutOneConnectionInTwenty(server);
    std::vector<Group> groups = PlanGroups(server.address());
    Host host(groups);
    host.Run();

    EXPECT_EQ(host.Accepted(), kJobs);
    EXPECT_EQ(host.Queue().count(), kJobs);
    EXPECT_TRUE(host.Queue().eachReturnedOnce());
    EXPECT_GE(server.acceptedConnections(), kCarriers);
    std::map<std::string, int> deliveries = Deliveries(server);
    int failed = 0;
    for (const Group& group : groups) {
        for (const auto& job : group) {
            const TestMessageFile& file = *job.file;
            const bool completed = file.m_eStatus == Reports::REPORT_COMPLETED;
            failed += completed ? 0 : 1;
            EXPECT_EQ(file.failureReason(), completed ? "" : "Socket is closed");
            EXPECT_LE(deliveries[file.m_strRecipient], 1);
            EXPECT_TRUE(!completed || deliveries[file.m_strRecipient] == 1) << file.m_strRecipient;
        }
    }
    EXPECT_GT(failed, 0);
}

}  // namespace
