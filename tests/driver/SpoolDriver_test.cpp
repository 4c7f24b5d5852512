#include "driver/SpoolDriver.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "Descriptors.h"
#include "TempDir.h"
#include "driver/FrameworkDoubles.h"

// A whole driver on the single-threaded variant, from intake to the hand-back.

namespace {

using kvtest::FileShelf;
using kvtest::HostDoubles;
using kvtest::MessageBuilder;
using kvtest::NotesFrom;
using kvtest::ReturnsOf;
using kvtest::SpoolDriver;
using kvtest::Strings;
using kvtest::TempDir;

std::string ContentOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

/// A driver between Setup and Cleanup whose spool files lie in a folder of their own.
class SpoolDriverTest : public testing::Test {
protected:
    SpoolDriverTest() {
        m_host.lendTo(m_driver);
        std::map<std::string, std::string> settings;
        EXPECT_TRUE(m_driver.Configure(settings));
        EXPECT_TRUE(m_driver.Setup(&m_host.instanceConf));
        m_host.log.clear();
    }
    ~SpoolDriverTest() override {
        m_driver.Cleanup();
        EXPECT_TRUE(m_host.queue.eachReturnedOnce());
    }

    void Send(const std::string& id, unsigned long carrier) {
        auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
        EXPECT_TRUE(m_driver.SendAMessage(
            m_files.add(MessageBuilder().id(id).jobId("job-" + id).text(id).carrier(carrier, "spool")),
            status));
        EXPECT_EQ(status, KvMessengerReportsMngrInterface::REPORT_ACCEPTED);
    }
    /// One tick; what came back by its end, which is all that the driver had.
    Strings Tick() {
        EXPECT_TRUE(m_driver.PeriodicEvent());
        return ReturnsOf(m_host.queue);
    }

    TempDir m_folder;
    HostDoubles m_host;
    FileShelf m_files;
    SpoolDriver m_driver{m_folder.path()};
};

TEST_F(SpoolDriverTest, ACycleDeliversEverySessionAndHandsEveryFileBackOnce) {
    Send("A_1", 1);
    Send("B_1", 2);
    Send("C_1", 1);
    Send("A_2", 1);
    EXPECT_EQ(m_host.queue.count(), 0);
    EXPECT_EQ(Tick(), (Strings{"A_1:3", "A_2:3", "C_1:3", "B_1:3"}));
    EXPECT_EQ(ContentOf(m_folder.file("1.spool")),
              "bob@example.org: A_1\nbob@example.org: A_2\nbob@example.org: C_1\n");
    EXPECT_EQ(ContentOf(m_folder.file("2.spool")), "bob@example.org: B_1\n");
    EXPECT_EQ(
        NotesFrom(m_host.log, kvtest::kSessionSource),
        (Strings{
            "debug:  >> Successfully processed carrier session: 1/spool of msg files: 2; remaining now: 0.",
            "debug:  >> Successfully processed carrier session: 2/spool of msg files: 1; remaining now: "
            "0."}));
}

TEST_F(SpoolDriverTest, ADeliveredSessionIsNotDeliveredAgain) {
    Send("A_1", 1);
    Tick();
    EXPECT_EQ(Tick(), Strings{});
    EXPECT_EQ(ContentOf(m_folder.file("1.spool")), "bob@example.org: A_1\n");
}

TEST_F(SpoolDriverTest, TheConnectionIsKeptForTheNextCycle) {
    const auto before = kvtest::OpenDescriptorCount();
    Send("A_1", 1);
    Tick();
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before + 1);
    Send("A_2", 1);
    EXPECT_EQ(Tick(), Strings{"A_2:3"});
    EXPECT_EQ(m_host.log.countEqual(" >> Creating connection."), 1);
    EXPECT_EQ(m_host.log.countEqual(" >> Testing connection ..."), 1);
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before + 1);
    EXPECT_EQ(ContentOf(m_folder.file("1.spool")), "bob@example.org: A_1\nbob@example.org: A_2\n");
}

TEST_F(SpoolDriverTest, ABrokenConnectionIsReplacedInTheNextCycle) {
    const auto before = kvtest::OpenDescriptorCount();
    Send("A_1", 1);
    Tick();
    ASSERT_EQ(unlink(m_folder.file("1.spool").c_str()), 0);
    Send("A_2", 1);
    EXPECT_EQ(Tick(), Strings{"A_2:3"});
    EXPECT_EQ(ContentOf(m_folder.file("1.spool")), "bob@example.org: A_2\n");
    EXPECT_EQ(m_host.log.countEqual(" >>>> Testing failed for connection."), 1);
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before + 1);
}

TEST_F(SpoolDriverTest, ASessionWithoutAConnectionIsFailedByTheCycle) {
    ASSERT_EQ(symlink("no/such/folder", m_folder.file("1.spool").c_str()), 0);
    Send("A_1", 1);
    Send("A_2", 1);
    Send("B_1", 2);
    EXPECT_EQ(Tick(),
              (Strings{"A_1:2 Spool file cannot be opened.", "A_2:2 Spool file cannot be opened.", "B_1:3"}));
    EXPECT_EQ(m_host.log.countEqual("Failing message job id: job-A_2. Reason: Spool file cannot be opened."),
              1);
}

TEST_F(SpoolDriverTest, AGroupThatCannotBeWrittenComesBackFailedAndTheOthersGoOn) {
    ASSERT_EQ(symlink("/dev/full", m_folder.file("1.spool").c_str()), 0);
    Send("A_1", 1);
    Send("B_1", 1);
    EXPECT_EQ(Tick(),
              (Strings{"A_1:2 Spool file cannot be written.", "B_1:2 Spool file cannot be written."}));
    EXPECT_EQ(m_host.log.countEqual(" >>>> Failed to dispatch message."), 2);
}

TEST_F(SpoolDriverTest, CleanupClosesWhatTheFrameworkLeavesOpen) {
    const auto before = kvtest::OpenDescriptorCount();
    Send("A_1", 1);
    Send("B_1", 2);
    Tick();
    m_driver.KvSmartAsynProtocolDriverSingleThreaded::CleanupExt();
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before + 2);
    EXPECT_TRUE(m_driver.Cleanup());
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before);
}

}  // namespace
