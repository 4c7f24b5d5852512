#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Descriptors.h"
#include "ScriptedSmtpServer.h"
#include "endurance/EnduranceDriver.h"
#include "endurance/Interceptions.h"

// What the tests of the whole driver under faults share.

namespace kvtest {

/// A host with the real driver. Pauses of the driver are short. At the end every descriptor is given back and every
/// file is back exactly once.
class EnduranceTest : public testing::Test {
protected:
    EnduranceTest() : m_descriptors(OpenDescriptorCount()) {}

    void TearDown() override {
        m_driver.reset();
        EXPECT_EQ(m_host.queue.count(), static_cast<int>(m_files.size()));
        EXPECT_TRUE(m_host.queue.eachReturnedOnce());
        m_server.reset();
        EXPECT_EQ(OpenDescriptorCount(), m_descriptors);
    }

    void Start(Settings settings = {}, KvLogInterface* log = nullptr) {
        m_driver = std::make_unique<WatchedDriver>(m_host, log, std::move(settings));
    }
    ScriptedSmtpServer& Serve() {
        m_server = std::make_unique<ScriptedSmtpServer>(ServerWithEverything());
        return *m_server;
    }

    /// Hands a file over; it is kept for the length of the test.
    TestMessageFile& HandOver(const MessageBuilder& message) {
        m_files.push_back(message.build());
        EXPECT_TRUE(m_driver->HandOver(*m_files.back()));
        return *m_files.back();
    }
    TestMessageFile& HandOver(Wire wire) { return HandOver(MailOver(wire, m_server->address())); }

    bool WaitUntilAllAreBack() {
        return m_host.queue.waitFor(static_cast<int>(m_files.size())) && m_driver->WaitUntilConnectionsRest();
    }
    /// Hands a file over, ticks, and waits until it is back.
    TestMessageFile& Deliver(const MessageBuilder& message) {
        TestMessageFile& file = HandOver(message);
        m_driver->PeriodicEvent();
        EXPECT_TRUE(WaitUntilAllAreBack());
        return file;
    }
    TestMessageFile& Deliver(Wire wire) { return Deliver(MailOver(wire, m_server->address())); }

    /// A later job is delivered, over the server's connection number `connection`.
    void ExpectTheNextJobIsDeliveredOver(int connection, Wire wire) {
        const int accepted = m_server->acceptedTransactions();
        const TestMessageFile& file = Deliver(wire);
        EXPECT_EQ(file.m_eStatus, Reports::REPORT_COMPLETED) << file.failureReason();
        EXPECT_EQ(m_server->acceptedTransactions(), accepted + 1);
        EXPECT_EQ(m_server->transactions().back().connection, connection) << m_server->toText();
        EXPECT_EQ(m_server->transactions().back().insideTls, wire == Wire::Tls);
    }

    const int m_descriptors;
    const ShortPauses m_pauses;
    HostDoubles m_host;
    std::vector<std::unique_ptr<TestMessageFile>> m_files;
    std::unique_ptr<ScriptedSmtpServer> m_server;
    std::unique_ptr<WatchedDriver> m_driver;
};

inline void ExpectFailed(const TestMessageFile& file, const std::string& reason) {
    EXPECT_EQ(file.m_eStatus, Reports::REPORT_FAILED);
    EXPECT_EQ(file.failureReason(), reason);
}

inline void ExpectCompleted(const TestMessageFile& file) {
    EXPECT_EQ(file.m_eStatus, Reports::REPORT_COMPLETED) << file.failureReason();
    EXPECT_EQ(file.failureReason(), "");
}

}  // namespace kvtest
