// The driver is stopped while its workers wait for a server that has fallen silent: the process lives, every file is
// back once, and nothing is left open.
#include <gtest/gtest.h>

#include "Descriptors.h"
#include "HostDoubles.h"
#include "ScriptedSmtpServer.h"
#include "StoppableDriver.h"
#include "TestCertificates.h"
#include "TestMessageFile.h"

namespace {

using namespace kvtest;
using Reports = KvMessengerReportsMngrInterface;

/// Where the server falls silent.
struct Silence {
    const char* name;
    const char* step;
    int occurrence;
    Reply reply;
};

std::ostream& operator<<(std::ostream& out, const Silence& silence) {
    return out << silence.name;
}

class StopWhileSendingTest : public testing::TestWithParam<std::tuple<Silence, bool>> {
protected:
    bool InsideTls() const { return std::get<bool>(GetParam()); }

    MessageBuilder Message(const ScriptedSmtpServer& server) const {
        MessageBuilder message;
        message.server(server.address()).text(std::string(20'000'000, 'x'));
        if (InsideTls()) {
            message.security(SMTP_SECURITY_REQUIRED).caFile(TestCertificates::Shared().caFile());
        }
        return message;
    }

    /// One connection with two files of its own, a group that is under way, and one that waits behind it.
    void StopWhileTheServerIsSilent() {
        const auto& [silence, tls] = GetParam();
        ScriptedSmtpServer server({.tls = TestCertificates::Shared().serverTls()});
        server.on(silence.step).occurrence(silence.occurrence).reply(silence.reply);
        HostDoubles host;
        StoppableDriver driver(host);
        std::vector<std::unique_ptr<TestMessageFile>> files;
        for (const char* id : {"A_1", "A_2", "B_1", "C_1"}) {
            files.push_back(Message(server).id(id).jobId(id).build());
            ASSERT_TRUE(driver.HandOver(*files.back()));
        }
        driver.PeriodicEvent();
        // Under a sanitizer 20 MB of text take their time; and the driver must not outlive the files, come what may.
        EXPECT_TRUE(server.waitForCommand(silence.step, silence.occurrence, std::chrono::minutes(1)));

        driver.StopAndCleanUp();
        EXPECT_EQ(host.queue.count(), 4);
        EXPECT_TRUE(host.queue.eachReturnedOnce());
        for (const auto& file : files) {
            EXPECT_EQ(file->m_eStatus, Reports::REPORT_FAILED);
            EXPECT_EQ(file->failureReason(), "Messenger internal error.");
        }
    }
};

TEST_P(StopWhileSendingTest, EveryFileIsBackOnceAndNothingIsLeftOpen) {
    const int descriptors = OpenDescriptorCount();
    StopWhileTheServerIsSilent();
    EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

std::string NameOf(const testing::TestParamInfo<std::tuple<Silence, bool>>& info) {
    return std::string(std::get<Silence>(info.param).name) +
           (std::get<bool>(info.param) ? "InsideTls" : "InClear");
}

INSTANTIATE_TEST_SUITE_P(
    Phases, StopWhileSendingTest,
    testing::Combine(
        testing::Values(Silence{"BeforeTheReplyToTheProbe", "RSET", 1, Reply().thenStall()},
                        Silence{"BeforeTheReplyToMail", "MAIL", 1, Reply().thenStall()},
                        Silence{"BeforeTheReplyToTheSecondRecipient", "RCPT", 2, Reply().thenStall()},
                        Silence{"BeforeTheReplyToData", "DATA", 1, Reply().thenStall()},
                        Silence{"WhileTheMessageIsWritten", "DATA", 1, Reply("354 go on\r\n").thenStall()},
                        Silence{"BeforeTheReplyToTheMessage", step::EndOfData, 1, Reply().thenStall()}),
        testing::Bool()),
    NameOf);

/// The worker loses its connection and opens another one, on which the server falls silent.
class StopWhileReconnectingTest : public testing::TestWithParam<Silence> {};

TEST_P(StopWhileReconnectingTest, EveryFileIsBackOnceAndNothingIsLeftOpen) {
    const int descriptors = OpenDescriptorCount();
    {
        ScriptedSmtpServer server({.tls = TestCertificates::Shared().serverTls()});
        server.on("RSET").connection(1).reply(Reply().thenClose());
        server.on(GetParam().step).connection(2).reply(GetParam().reply);
        HostDoubles host;
        StoppableDriver driver(host);
        const auto file = MessageBuilder()
                              .server(server.address())
                              .security(SMTP_SECURITY_REQUIRED)
                              .caFile(TestCertificates::Shared().caFile())
                              .build();
        ASSERT_TRUE(driver.HandOver(*file));
        driver.PeriodicEvent();
        ASSERT_TRUE(server.waitForConnections(2));
        ASSERT_TRUE(server.waitForCommand(GetParam().step, GetParam().occurrence));

        driver.StopAndCleanUp();
        EXPECT_EQ(host.queue.timesReturned(file.get()), 1);
        EXPECT_EQ(file->failureReason(), "Messenger internal error.");
    }
    EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(Phases, StopWhileReconnectingTest,
                         testing::Values(Silence{"BeforeTheGreeting", step::Greeting, 0, Reply().thenStall()},
                                         Silence{"BeforeTheReplyToEhlo", "EHLO", 3, Reply().thenStall()},
                                         Silence{"InTheHandshake", "STARTTLS", 2,
                                                 Reply("220 go ahead\r\n").thenStall()}),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
