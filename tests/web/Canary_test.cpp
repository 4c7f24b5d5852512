// A password that is found in what the daemon shows has leaked, in whatever form.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <spdlog/sinks/ostream_sink.h>

#include <sstream>

#include "DeliveryLog.h"
#include "LogSink.h"
#include "ObserverList.h"
#include "StatusJson.h"
#include "StatusPage.h"
#include "WebFixture.h"

namespace kvhosttest {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kUser = "kv";
constexpr const char* kPassword = "c4nary-Pa55<&\"word";
constexpr const char* kToken = "t0ken-of-submitters";

std::string Base64(const std::string& data) {
    std::string encoded((data.size() + 2) / 3 * 4 + 1, '\0');
    encoded.resize(static_cast<std::size_t>(::EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(encoded.data()), reinterpret_cast<const unsigned char*>(data.data()),
        static_cast<int>(data.size()))));
    return encoded;
}

std::string Hex(const std::string& data) {
    std::ostringstream hex;
    for (const char c : data) {
        hex << std::hex << (static_cast<unsigned>(c) >> 4U & 15U) << (static_cast<unsigned>(c) & 15U);
    }
    return hex.str();
}

std::string PlainCredentials() {
    return Base64(std::string(1, '\0') + kUser + std::string(1, '\0') + kPassword);
}

/// The secret in every form in which it must not be seen, one behind the other.
std::string Leak(const std::string& secret) {
    return "raw " + secret + " at0 " + Base64(secret) + " at1 " + Base64("x" + secret + "y") + " at2 " +
           Base64("xx" + secret + "yy") + " hex " + Hex(secret) + " plain " + PlainCredentials() +
           " key {1}-{mx}-{3}-{" + kUser + "}-{" + kPassword + "} end";
}

/// Pieces that only stand in an output when a form of the secret is in it.
std::vector<std::string> Traces(const std::string& secret) {
    return {secret.substr(0, 8),
            Base64(secret).substr(0, 10),
            Base64("x" + secret + "y").substr(2, 10),
            Base64("xx" + secret + "yy").substr(3, 10),
            Hex(secret).substr(0, 12),
            PlainCredentials().substr(8, 10)};
}

class CanaryTest : public WebTest {
protected:
    CanaryTest() {
        kvhost::HostConfig config;
        config.carriers["east"].user = kUser;
        config.carriers["east"].password = kPassword;
        config.http.token = kToken;
        m_pSecrets->Learn(kvhost::SecretsOf(config));
    }

    static void ExpectClean(const std::string& output) {
        for (const char* secret : {kPassword, kToken}) {
            for (const std::string& trace : Traces(secret)) {
                EXPECT_THAT(output, Not(HasSubstr(trace)));
            }
        }
        EXPECT_THAT(output, HasSubstr("[masked]"));
        EXPECT_THAT(output, HasSubstr("end"));
    }
    static std::string AllLeaks() { return Leak(kPassword) + " " + Leak(kToken); }
};

TEST_F(CanaryTest, TheTracesAreInWhatIsNotMasked) {
    for (const char* secret : {kPassword, kToken}) {
        for (const std::string& trace : Traces(secret)) {
            EXPECT_THAT(Leak(secret), HasSubstr(trace));
        }
    }
}

TEST_F(CanaryTest, NothingIsInTheDeliveryLogThePageTheJsonAndTheMetrics) {
    const std::string path = m_dir.file("delivery.log");
    kvhost::DeliveryLog log({path, 100000, 2}, [](const std::string&) {});
    kvhost::ObserverList observers(m_pSecrets, {&log, &m_metrics, &m_recent}, [](const std::string&) {});
    kvhost::AttemptReport report = FailedAttempt(AllLeaks().substr(0, 900) + " end");
    report.decision = AllLeaks();
    observers.JobHandedOver(report.job, kvhost::Milliseconds(1));
    observers.AttemptEnded(report);
    ExpectClean(ReadFile(path));
    const kvhost::StatusReport status = m_reporter.Report(kvhost::StoreNow());
    ExpectClean(kvhost::StatusPage(status));
    ExpectClean(kvhost::StatusJson(status));
    ExpectClean(m_metrics.Text() + "[masked]");
}

TEST_F(CanaryTest, NothingOfStoreAndBoardIsInThePageAndTheJson) {
    kvhost::Submission submission = Mail("a");
    submission.subject = AllLeaks();
    Submit(submission);
    kvhost::JobLedger ledger(m_store);
    Start(ledger);
    ledger.BeginAttempts({KeyOf("a")}, Now());
    kvhost::AttemptEnd end = RetryAt(KeyOf("a"), Now());
    end.reason = AllLeaks();
    end.decision = AllLeaks();
    ledger.EndAttempts({end}, Now());
    kvhost::RunSnapshot run = RunningSnapshot();
    run.driver = AllLeaks();
    run.storeTrouble = AllLeaks();
    run.carriers["east"].isInTrouble = true;
    run.carriers["east"].trouble = AllLeaks();
    m_status.Set(run);
    const kvhost::StatusReport status = m_reporter.Report(kvhost::StoreNow());
    ExpectClean(kvhost::StatusPage(status));
    ExpectClean(kvhost::StatusJson(status));
    ExpectClean(m_reporter.HealthAt(kvhost::StoreNow()).why);
}

TEST_F(CanaryTest, NothingIsInTheLogAtItsFinestLevel) {
    std::ostringstream stream;
    auto logger =
        std::make_shared<spdlog::logger>("test", std::make_shared<spdlog::sinks::ostream_sink_mt>(stream));
    logger->set_level(spdlog::level::trace);
    kvhost::LogSink sink(logger, m_pSecrets, {});
    sink.LogTrace(AllLeaks(), 1, "K.cpp");
    sink.LogError(AllLeaks(), 1, "K.cpp");
    sink.Warn(AllLeaks());
    ExpectClean(stream.str());
}

}  // namespace
}  // namespace kvhosttest
