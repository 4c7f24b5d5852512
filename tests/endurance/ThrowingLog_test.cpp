// A host whose log sink throws: the lines are lost, the jobs are not.
#include <atomic>
#include <optional>
#include <stdexcept>

#include "TestPorts.h"
#include "endurance/EnduranceHost.h"

namespace {

using namespace kvtest;

/// Throws from one severity, or from all.
class ThrowingLog : public KvLogInterface {
public:
    explicit ThrowingLog(std::optional<Severity> severity) : m_severity(severity) {}

    void LogTrace(const std::string&, int, const char*) override { Refuse(Severity::Trace); }
    void LogDebug(const std::string&, int, const char*) override { Refuse(Severity::Debug); }
    void LogInfo(const std::string&, int, const char*) override { Refuse(Severity::Info); }
    void LogWarning(const std::string&, int, const char*) override { Refuse(Severity::Warning); }
    void LogError(const std::string&, int, const char*) override { Refuse(Severity::Error); }

    int thrown() const { return m_thrown; }

private:
    void Refuse(Severity severity) {
        if (!m_severity || *m_severity == severity) {
            ++m_thrown;
            throw std::runtime_error("disk full");
        }
    }

    const std::optional<Severity> m_severity;
    std::atomic<int> m_thrown{0};
};

struct Thrower {
    const char* name;
    std::optional<Severity> severity;
};

std::ostream& operator<<(std::ostream& out, const Thrower& thrower) {
    return out << thrower.name;
}

class ThrowingLogTest : public EnduranceTest, public testing::WithParamInterface<Thrower> {
protected:
    MessageBuilder Mail(unsigned long carrier, Wire wire = Wire::Clear) const {
        return MailOver(wire, m_server->address()).carrier(carrier, "mail");
    }
    bool Throws(Severity severity) const { return !GetParam().severity || *GetParam().severity == severity; }

    ThrowingLog m_log{GetParam().severity};
};

TEST_P(ThrowingLogTest, EveryJobComesBackOnceWithTheStatusThatItHasWithoutALog) {
    const RefusingPort nobody;
    Serve().on("RCPT").recipient("eve@example.org").reply("550 5.1.1 no such user\r\n");
    // One connection in all: another carrier makes room first, which is a warning, or waits, which is an error.
    Start({{"smart_driver.diff_carrier_connection_count", "1"}}, &m_log);
    TestMessageFile& sent = HandOver(Mail(1));
    TestMessageFile& refused = HandOver(Mail(1).recipient("eve@example.org").neverGrouped());
    TestMessageFile& inTls = HandOver(Mail(2, Wire::Tls));
    TestMessageFile& lost = HandOver(MailOver(Wire::Clear, nobody.address()).carrier(3, "lost"));
    EXPECT_NO_THROW(m_driver->PeriodicEvent());
    ASSERT_TRUE(WaitUntilAllAreBack());
    EXPECT_NO_THROW(m_driver->CleanUpOnce());
    ExpectCompleted(sent);
    ExpectFailed(refused, "5.1.1 no such user\r\n");
    ExpectCompleted(inTls);
    ExpectFailed(lost, kNoConnection);
    EXPECT_GT(m_log.thrown(), 0);
}

TEST_P(ThrowingLogTest, JobsUnderWayAtTheStopComeBackOnce) {
    Serve().on(step::EndOfData).reply(Reply().thenStall());
    Start({}, &m_log);
    const TestMessageFile& first = HandOver(Mail(1).id("A_1"));
    const TestMessageFile& second = HandOver(Mail(1).id("B_1"));
    EXPECT_NO_THROW(m_driver->PeriodicEvent());
    ASSERT_TRUE(m_server->waitForCommand(step::EndOfData));
    EXPECT_NO_THROW(m_driver->CleanUpOnce());
    ExpectFailed(first, kInternalError);
    ExpectFailed(second, kInternalError);
    EXPECT_EQ(m_log.thrown() > 0, !GetParam().severity || *GetParam().severity != Severity::Warning);
}

INSTANTIATE_TEST_SUITE_P(
    Severities, ThrowingLogTest,
    testing::Values(Thrower{"FromTraces", Severity::Trace}, Thrower{"FromDebugLines", Severity::Debug},
                    Thrower{"FromNotableSteps", Severity::Info}, Thrower{"FromWarnings", Severity::Warning},
                    Thrower{"FromErrors", Severity::Error}, Thrower{"FromEveryLine", std::nullopt}),
    testing::PrintToStringParamName());

}  // namespace
