#include "Monitoring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <spdlog/sinks/ostream_sink.h>

#include <sstream>

#include "Problem.h"
#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::Monitoring;
using testing::HasSubstr;

class MonitoringTest : public WebTest {
protected:
    MonitoringTest() {
        m_config.store = m_dir.path();
        m_config.deliveryLog.path = m_dir.file("delivery.log");
        m_config.http.isOn = true;
        m_config.http.port = 0;
    }

    static std::shared_ptr<spdlog::logger> MakeLogger(std::ostream& stream) {
        auto logger = std::make_shared<spdlog::logger>(
            "test", std::make_shared<spdlog::sinks::ostream_sink_mt>(stream));
        logger->set_pattern("%l %v");
        return logger;
    }
    Monitoring::Sources Sources() { return {m_status, m_connections, m_pSecrets, m_log}; }

    std::ostringstream m_stream;
    kvhost::LogSink m_log{MakeLogger(m_stream), m_pSecrets, {}};
    kvhost::HostConfig m_config;
};

TEST_F(MonitoringTest, AnAttemptIsSeenEverywhereWithoutSecrets) {
    Monitoring monitoring(m_config, Sources());
    monitoring.Serve(m_config.http, {});
    monitoring.Observer().AttemptEnded(FailedAttempt("535 hunter2 is wrong"));
    EXPECT_THAT(ReadFile(m_config.deliveryLog.path), HasSubstr("\"reason\":\"535 [masked] is wrong\""));
    httplib::Client client("127.0.0.1", monitoring.Port());
    EXPECT_THAT(client.Get("/metrics")->body,
                HasSubstr("kvhost_attempts_total{carrier=\"east\",outcome=\"failed\"} 1\n"));
    EXPECT_THAT(client.Get("/")->body, HasSubstr("<td class=\"text\">535 [masked] is wrong</td>"));
}

TEST_F(MonitoringTest, WhereItListensIsLogged) {
    Monitoring monitoring(m_config, Sources());
    monitoring.Serve(m_config.http, {});
    EXPECT_EQ(m_stream.str(),
              "info kvhost listening for HTTP at 127.0.0.1:" + std::to_string(monitoring.Port()) + "\n");
}

TEST_F(MonitoringTest, WhatIsNotWantedIsNotThere) {
    m_config.http.isOn = false;
    m_config.deliveryLog.path = "";
    Monitoring monitoring(m_config, Sources());
    monitoring.Serve(m_config.http, {});
    monitoring.Observer().AttemptEnded(DeliveredAttempt());
    EXPECT_EQ(monitoring.Port(), 0);
    EXPECT_EQ(m_stream.str(), "");
}

TEST_F(MonitoringTest, LostLinesAreWarnedOfAndCounted) {
    m_config.deliveryLog.path = "/dev/full";
    Monitoring monitoring(m_config, Sources());
    monitoring.Serve(m_config.http, {});
    monitoring.Observer().AttemptEnded(DeliveredAttempt());
    EXPECT_THAT(m_stream.str(), HasSubstr("warning kvhost The delivery log /dev/full cannot be written"));
    httplib::Client client("127.0.0.1", monitoring.Port());
    EXPECT_THAT(client.Get("/metrics")->body, HasSubstr("kvhost_delivery_log_lost_lines_total 1\n"));
}

TEST_F(MonitoringTest, ADeliveryLogThatCannotBeOpenedIsBadInput) {
    m_config.deliveryLog.path = m_dir.file("none/delivery.log");
    EXPECT_THROW(Monitoring(m_config, Sources()), kvhost::BadInput);
}

}  // namespace
}  // namespace kvhosttest
