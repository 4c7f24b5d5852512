#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "RecordingReports.h"
#include "ReturnQueue.h"
#include "ScriptedSmtpServer.h"
#include "TestPorts.h"
#include "driver/LogListing.h"
#include "driver/SmtpDoubles.h"

namespace kvtest {

/// A recording log that stops one thread at chosen debug lines, so that a test decides what the other threads
/// have done by then. The pauses are set before use.
class PausingLog : public RecordingLog {
public:
    /// When the thread that made this log has written the line `text`, and all earlier pauses are over, it runs
    /// `action` before it goes on.
    void pauseAfter(const std::string& text, std::function<void()> action) {
        m_pauses.emplace_back(text, std::move(action));
    }
    bool allPausesTaken() const { return m_pauses.empty(); }

    void LogDebug(const std::string& text, int line, const char* file) override {
        RecordingLog::LogDebug(text, line, file);
        if (pthread_equal(pthread_self(), m_owner) != 0 && !m_pauses.empty() &&
            m_pauses.front().first == text) {
            const std::function<void()> action = std::move(m_pauses.front().second);
            m_pauses.pop_front();
            action();
        }
    }

private:
    const pthread_t m_owner = pthread_self();
    std::deque<std::pair<std::string, std::function<void()>>> m_pauses;  ///< the owner's alone
};

/// One run of the SMTP driver with one worker, one connection in all and three carriers, from Configure to
/// Cleanup, the same lines in every run:
///
/// 1. A group of 25 for north, whose thirteenth recipient is refused and whose connection breaks before the last
///    five. Meanwhile a message for south, to a recipient who is refused, waits for a connection.
/// 2. Another message for south while south's connection is in use; by the time it is free it is broken. And a
///    group of two for a carrier that cannot be reached.
/// 3. A two-way message and a query for north; nobody hands them back.
/// 4. A message and a group of two for north, whose connection breaks between them and cannot be replaced. Then a
///    message for south.
///
/// The servers hold a worker back where the host's thread has to find a connection in use, and the host's thread
/// pauses where it has to find one idle.
class LogContractScenario {
public:
    LogContractScenario() {
        m_driver.m_pLog = &m_log;
        m_driver.m_pReportsMngr = &m_reports;
        m_driver.m_pMsgFileQueue = &m_queue;
        scriptServers();
        setPauses();
    }

    /// Once only.
    void run() {
        std::map<std::string, std::string> settings{{"smart_driver.threadpool_size", "1"},
                                                    {"smart_driver.diff_carrier_connection_count", "1"},
                                                    {"smart_driver.same_carrier_connection_count", "1"},
                                                    {"smart_driver.max_pins_per_transaction", "10"}};
        EXPECT_TRUE(m_driver.Configure(settings));
        EXPECT_TRUE(m_driver.Setup(nullptr));
        runFirstCycle();
        runSecondCycle();
        runThirdCycle();
        runFourthCycle();
        EXPECT_TRUE(m_driver.Cleanup());
        EXPECT_TRUE(m_log.allPausesTaken());
        EXPECT_EQ(m_queue.count(), 33);
        EXPECT_TRUE(m_queue.eachReturnedOnce());
    }

    /// What the thread that asks has logged: the one that ran the scenario.
    Strings hostThreadLines() const { return LinesLogged(m_log, true, placeholders()); }
    /// What all others have logged. Only one worker is ever there; a second one would spoil the order.
    Strings workerLines() const { return LinesLogged(m_log, false, placeholders()); }

private:
    void scriptServers() {
        m_north.on("RCPT").recipient("to13@example.org").reply("550 5.1.1 no such user\r\n");
        m_north.on("RSET").connection(1).occurrence(1).reply(
            Reply("250 2.0.0 reset\r\n").heldBy(m_northGoesOn));
        m_north.on("RSET").connection(1).occurrence(3).reply("421 4.3.2 shutting down\r\n");
        m_north.on("RSET").connection(3).occurrence(5).reply("421 4.3.2 shutting down\r\n");
        m_north.on(step::Greeting).connection(4).reply("554 5.3.2 no service\r\n");
        m_south.on("RCPT").recipient("gone@example.org").reply("550 5.1.1 gone\r\n");
        m_south.on("RSET").connection(1).occurrence(1).reply(
            Reply("250 2.0.0 reset\r\n").heldBy(m_southGoesOn));
        m_south.on("RSET").connection(1).occurrence(2).reply("421 4.3.2 shutting down\r\n");
    }

    void setPauses() {
        const std::string done = " >> Successfully processed carrier session: ";
        const std::string one = " of msg files: 1; remaining now: ";
        m_log.pauseAfter(done + southKey() + "/south" + one + "1.", [this] {
            m_northGoesOn.open();
            waitForReleases(1);
        });
        m_log.pauseAfter(done + lostKey() + "/lost" + one + "1.", [this] {
            m_southGoesOn.open();
            waitForReleases(2);
        });
        m_log.pauseAfter(done + southKey() + "/south" + one + "0.", [this] { waitForReleases(3); });
        m_log.pauseAfter(done + northKey() + "/north of msg files: 2; remaining now: 0.",
                         [this] { waitForReleases(4); });
        m_log.pauseAfter(done + northKey() + "/north of msg files: 2; remaining now: 0.",
                         [this] { waitForReleases(5); });
    }

    void runFirstCycle() {
        for (int number = 1; number <= 25; ++number) {
            const std::string text = std::to_string(number);
            send(toNorth("101_" + text, "101-" + text).recipient("to" + text + "@example.org"));
        }
        send(toSouth("201_1", "201-1").recipient("gone@example.org"));
        EXPECT_TRUE(m_driver.PeriodicEvent());
    }

    void runSecondCycle() {
        send(toSouth("202_1", "202-1"));
        send(toLost("301_1", "301-1"));
        send(toLost("301_2", "301-2"));
        EXPECT_TRUE(m_driver.PeriodicEvent());
    }

    void runThirdCycle() {
        send(toNorth("103_1", "103-1").twoWay());
        auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
        EXPECT_TRUE(m_driver.Send2WayRespQuery(m_files.add(toNorth("104_1", "104-1").twoWayQuery()), status));
        EXPECT_TRUE(m_driver.PeriodicEvent());
    }

    void runFourthCycle() {
        send(toNorth("105_1", "105-1"));
        send(toNorth("106_1", "106-1"));
        send(toNorth("106_2", "106-2"));
        send(toSouth("107_1", "107-1"));
        EXPECT_TRUE(m_driver.PeriodicEvent());
        waitForReleases(6);
    }

    static MessageBuilder to(const std::string& fileId, const std::string& jobId) {
        return MessageBuilder().id(fileId).jobId(jobId);
    }
    MessageBuilder toNorth(const std::string& fileId, const std::string& jobId) const {
        return to(fileId, jobId).carrier(1, "north").server(m_north.address()).account("ann", "secret");
    }
    MessageBuilder toSouth(const std::string& fileId, const std::string& jobId) const {
        return to(fileId, jobId).carrier(2, "south").server(m_south.address()).account("bob", "hidden");
    }
    MessageBuilder toLost(const std::string& fileId, const std::string& jobId) const {
        return to(fileId, jobId).carrier(3, "lost").server(m_lost.address());
    }
    std::string northKey() const { return "{1}-{" + m_north.address() + "}-{1}-{ann}-{secret}"; }
    std::string southKey() const { return "{2}-{" + m_south.address() + "}-{1}-{bob}-{hidden}"; }
    std::string lostKey() const { return "{3}-{" + m_lost.address() + "}-{1}-{}-{}"; }

    void send(const MessageBuilder& builder) {
        auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
        EXPECT_TRUE(m_driver.SendAMessage(m_files.add(builder), status));
    }
    /// Until the worker is through with its n-th delegate: giving back the connection, or none, is the last line.
    void waitForReleases(int n) {
        EXPECT_TRUE(m_log.waitForContaining(
            "Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with ", n));
    }

    Placeholders placeholders() const {
        return {{m_north.address(), "$NORTH"}, {m_south.address(), "$SOUTH"}, {m_lost.address(), "$LOST"}};
    }

    static SmtpServerOptions Options(const std::string& name, const std::string& mechanism,
                                     const Account& account) {
        SmtpServerOptions options;
        options.hostName = name;
        options.extensions = {{"AUTH " + mechanism}};
        options.accounts = {account};
        return options;
    }

    Gate m_northGoesOn;
    Gate m_southGoesOn;
    ScriptedSmtpServer m_north{Options("north.example", "PLAIN", {"ann", "secret"})};
    ScriptedSmtpServer m_south{Options("south.example", "LOGIN", {"bob", "hidden"})};
    RefusingPort m_lost;
    PausingLog m_log;
    RecordingReports m_reports;
    ReturnQueue m_queue;
    FileShelf m_files;
    KvSMTPDriver m_driver;
};

}  // namespace kvtest
