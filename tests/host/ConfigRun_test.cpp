#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ConfigReader.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// The tables of a configuration file that say how the daemon works.
class ConfigRunTest : public testing::Test {
protected:
    HostConfig Read(const std::string& text) { return ReadConfig(m_folder.write("kvhost.toml", text)); }

    std::string FaultOf(const std::string& text) {
        try {
            Read(text);
        } catch (const BadInput& fault) {
            return fault.what();
        }
        return "no fault";
    }

    std::string InFolder(const std::string& name) const { return m_folder.path() + "/" + name; }

    const kvtest::TempDir m_folder;
};

TEST_F(ConfigRunTest, AnEmptyFileHasTheStandardSettings) {
    const HostConfig config = Read("");
    EXPECT_EQ(config.driver, "libkvsmtpdriver.so");
    EXPECT_EQ(config.store, "");
    EXPECT_EQ(config.run.tick, Milliseconds(200));
    EXPECT_EQ(config.run.maxUnderWay, 1000);
    EXPECT_EQ(config.run.slice, 100);
    EXPECT_EQ(config.deliveryLog.path, "");
    EXPECT_FALSE(config.http.isOn);
    EXPECT_EQ(config.logBytes, 0U);
}

TEST_F(ConfigRunTest, TheStoreIsSeenFromTheFolderOfTheFile) {
    EXPECT_EQ(Read("store = \"jobs\"").store, InFolder("jobs"));
    EXPECT_EQ(Read("store = \"/var/lib/kvhost\"").store, "/var/lib/kvhost");
}

TEST_F(ConfigRunTest, TheDriverLibraryCanBeNamed) {
    EXPECT_EQ(Read("[driver]\nplugin = \"libother.so\"").driver, "libother.so");
}

TEST_F(ConfigRunTest, TheRunSettingsAreRead) {
    const RunSettings run = Read(
                                "[run]\ntick = \"50ms\"\nmax_under_way = 7\nslice = 3\nstop_limit = \"1m\"\n"
                                "cleanup_limit = \"2m\"\nprobe_limit = \"1s\"\nkeep = \"1d\"\n")
                                .run;
    EXPECT_EQ(run.tick, Milliseconds(50));
    EXPECT_EQ(run.maxUnderWay, 7);
    EXPECT_EQ(run.slice, 3);
    EXPECT_EQ(run.stopLimit, Milliseconds(60000));
    EXPECT_EQ(run.cleanUpLimit, Milliseconds(120000));
    EXPECT_EQ(run.probeLimit, Milliseconds(1000));
    EXPECT_EQ(run.keep, Milliseconds(86400000));
}

TEST_F(ConfigRunTest, ALimitThatWouldNeverEndIsRefused) {
    EXPECT_THAT(FaultOf("[run]\nmax_under_way = 0\n"),
                HasSubstr(":2: run.max_under_way: expected an integer from 1 to 1000000, found 0"));
    EXPECT_THAT(FaultOf("[run]\ntick = 5\n"), HasSubstr(":2: run.tick: expected a duration such as"));
    EXPECT_THAT(FaultOf("[run]\ntick = \"0s\"\n"), HasSubstr(":2: run.tick: expected a duration such as"));
}

TEST_F(ConfigRunTest, AnUnknownFieldIsRefusedInEveryTable) {
    for (const char* table : {"run", "limits", "delivery_log", "http", "retry"}) {
        EXPECT_THAT(FaultOf("[" + std::string(table) + "]\ncolour = 1\n"),
                    HasSubstr(std::string(table) + ".colour: unknown field, expected"))
            << table;
    }
}

TEST_F(ConfigRunTest, TheLimitsOfSubmissionsAreRead) {
    const SubmissionLimits limits =
        Read("[limits]\nattachment_bytes = 10\nattachments = 2\ntext_bytes = 30\nrecipients = 4\n").limits;
    EXPECT_EQ(limits.attachmentBytes, 10U);
    EXPECT_EQ(limits.attachments, 2);
    EXPECT_EQ(limits.textBytes, 30U);
    EXPECT_EQ(limits.recipients, 4);
}

TEST_F(ConfigRunTest, TheLogsCanRotate) {
    const HostConfig config = Read(
        "[log]\nfile = \"a.log\"\nbytes = 5000\nfiles = 3\n[delivery_log]\nfile = \"d.log\"\nbytes = 2000\n");
    EXPECT_EQ(config.logBytes, 5000U);
    EXPECT_EQ(config.logFiles, 3);
    EXPECT_EQ(config.deliveryLog.path, InFolder("d.log"));
    EXPECT_EQ(config.deliveryLog.bytes, 2000U);
    EXPECT_EQ(config.deliveryLog.files, 5);
    EXPECT_THAT(FaultOf("[delivery_log]\nfiles = 2\n"), HasSubstr("delivery_log.file: expected a string"));
}

TEST_F(ConfigRunTest, HttpIsOnWithItsTableAndTakesJobsOnlyWithAToken) {
    m_folder.write("token", "0123456789abcdef\n");
    const HttpSettings plain = Read("[http]\n").http;
    EXPECT_TRUE(plain.isOn);
    EXPECT_EQ(plain.address, "127.0.0.1");
    EXPECT_EQ(plain.port, 8025);
    EXPECT_FALSE(plain.takesJobs);
    const HttpSettings http = Read("[http]\nport = 0\nsubmit = true\ntoken_file = \"token\"\n").http;
    EXPECT_TRUE(http.takesJobs);
    EXPECT_EQ(http.token, "0123456789abcdef");
    EXPECT_THAT(FaultOf("[http]\nsubmit = true\n"),
                HasSubstr("http.token_file: expected the file of the token"));
}

TEST_F(ConfigRunTest, AShortTokenIsRefusedAndNotRepeated) {
    m_folder.write("token", "short\n");
    const std::string fault = FaultOf("[http]\nsubmit = true\ntoken_file = \"token\"\n");
    EXPECT_THAT(fault, HasSubstr("http.token_file: expected a file with one line of at least 16 characters"));
    EXPECT_EQ(fault.find("short"), std::string::npos);
}

constexpr const char* kCarrier =
    "[carrier.pager]\nserver = \"mx.example.org\"\nsecurity = \"clear\"\nsender = \"pager@example.org\"\n";

TEST_F(ConfigRunTest, ACarrierRetriesAsTheFileSaysAndThenAsItsOwnTableSays) {
    const HostConfig config =
        Read(std::string("[retry]\nfirst = \"5s\"\nfactor = 3\nlasting = [\"no such\"]\n") + kCarrier +
             "on_doubt = \"hold\"\n[carrier.pager.retry]\nfirst = \"1s\"\n" +
             "attempts = 4\nunclear_attempts = 2\njitter = 0.5\nlongest = \"10s\"\n"
             "lifetime = \"1h\"\npassing = [\"busy\"]\n");
    const Carrier& carrier = config.carriers.at("pager");
    EXPECT_EQ(carrier.onDoubt, DoubtPolicy::Hold);
    EXPECT_EQ(carrier.retry.first, Milliseconds(1000));
    EXPECT_EQ(carrier.retry.factor, 3);
    EXPECT_EQ(carrier.retry.longest, Milliseconds(10000));
    EXPECT_EQ(carrier.retry.jitter, 0.5);
    EXPECT_EQ(carrier.retry.lifetime, Milliseconds(3600000));
    EXPECT_EQ(carrier.retry.attempts, 4);
    EXPECT_EQ(carrier.retry.unclearAttempts, 2);
    EXPECT_THAT(carrier.retry.lasting, ElementsAre("no such"));
    EXPECT_THAT(carrier.retry.passing, ElementsAre("busy"));
}

TEST_F(ConfigRunTest, ACarrierWithAnImpossibleRetryIsRefusedAlone) {
    const HostConfig config =
        Read(std::string(kCarrier) +
             "on_doubt = \"maybe\"\n[carrier.pager.retry]\nfirst = \"2h\"\nfactor = 0.5\n");
    EXPECT_TRUE(config.carriers.empty());
    EXPECT_THAT(config.refusedCarriers.at("pager"), HasSubstr("expected \"retry\", \"hold\" or \"fail\""));
    EXPECT_THAT(config.refusedCarriers.at("pager"), HasSubstr("expected a number from 1 to 100"));
    EXPECT_THAT(config.refusedCarriers.at("pager"), HasSubstr("expected at least as long as \"first\", 2 h"));
}

}  // namespace
}  // namespace kvhost
