// The figures of the daemon, held against what the driver and the mail servers really did.
#include <httplib.h>

#include <cstdlib>

#include "RunFixture.h"
#include "ScriptedSmtpServer.h"
#include "TestPorts.h"

namespace kvruntest {
namespace {

using kvhost::JobState;

class RunFiguresTest : public RunTest {
protected:
    RunFiguresTest() {
        Configure("[http]\nport = 0\n[retry]\nattempts = 1\n");
        AddCarrier("east", m_server.address());
        AddCarrier("down", m_closed.address());
    }

    std::string Metrics() {
        const std::string mark = "listening for HTTP at 127.0.0.1:";
        const std::string log = Host().Error();
        const std::size_t at = log.find(mark);
        if (at == std::string::npos) {
            return "the port was not told: " + log;
        }
        const auto answer =
            httplib::Client("127.0.0.1", std::atoi(log.c_str() + at + mark.size())).Get("/metrics");
        return answer ? std::to_string(answer->status) + "\n" + answer->body
                      : "no answer: " + httplib::to_string(answer.error());
    }
    /// The figure of a metric with its labels; -1 when there is none.
    double Figure(const std::string& metric) {
        const std::string text = "\n" + Metrics();
        const std::size_t at = text.find("\n" + metric + " ");
        if (at == std::string::npos) {
            ADD_FAILURE() << metric << " is not in: " << text;
            return -1;
        }
        return std::atof(text.c_str() + at + metric.size() + 2);
    }

    /// The driver's connections. Besides them the host looks once whether the server answers, and says no EHLO.
    int DriversConnections() const {
        int count = 0;
        for (int i = 1; i <= m_server.acceptedConnections(); ++i) {
            count += m_server.connection(i).clientBytes().find("EHLO") != std::string::npos ? 1 : 0;
        }
        return count;
    }

    kvtest::ScriptedSmtpServer m_server;
    const kvtest::RefusingPort m_closed;
};

TEST_F(RunFiguresTest, EveryHandOverAndEveryConnectionIsCounted) {
    m_server.on("RCPT").recipient("refused@example.org").reply("550 5.1.1 no such user\r\n");
    Start();
    ASSERT_TRUE(Host().WaitForError("listening for HTTP")) << Host().Error();
    for (const std::string id :
         {"one", "two", "refused"}) {  // one after another, so that a connection is idle
        Submit({Mail(id, "east")});
        const JobState expected = id == "refused" ? JobState::Failed : JobState::Delivered;
        ASSERT_TRUE(WaitForState(id, expected)) << Host().Error();
    }
    ASSERT_EQ(DriversConnections(), 1);
    EXPECT_EQ(Figure("kvhost_connection_attempts_total"), 1);
    EXPECT_EQ(Figure("kvhost_connection_failures_total"), 0);
    EXPECT_EQ(Figure("kvhost_connection_reuses_total"), 2);

    Submit({Mail("lost", "down")});
    ASSERT_TRUE(WaitForState("lost", JobState::Failed)) << Host().Error();
    EXPECT_GE(Figure("kvhost_connection_failures_total"), 1);
    EXPECT_EQ(Figure("kvhost_connection_attempts_total"),
              DriversConnections() + Figure("kvhost_connection_failures_total"));

    EXPECT_EQ(Figure("kvhost_queue_seconds_count{carrier=\"east\"}"), 3);
    EXPECT_EQ(Figure("kvhost_delivery_seconds_count{carrier=\"east\"}"), 3);
    EXPECT_EQ(Figure("kvhost_queue_seconds_count{carrier=\"down\"}"), 1);
    EXPECT_EQ(Figure("kvhost_attempts_total{carrier=\"east\",outcome=\"delivered\"}"), 2);
    EXPECT_EQ(Figure("kvhost_attempts_total{carrier=\"east\",outcome=\"failed\"}"), 1);
    EXPECT_GE(Figure("kvhost_store_write_seconds_count"), 4);
    EXPECT_EQ(Stop(), 0) << Host().Error();
}

}  // namespace
}  // namespace kvruntest
