#include "Doorbell.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "StoreError.h"
#include "TempDir.h"

namespace kvhost {
namespace {

bool IsReadable(int fd, int timeoutMs) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, timeoutMs) == 1;
}

class DoorbellTest : public testing::Test {
protected:
    const kvtest::TempDir m_folder;
};

TEST_F(DoorbellTest, IsSilentUntilSomebodyRings) {
    Doorbell bell(m_folder.path());
    EXPECT_FALSE(IsReadable(bell.Descriptor(), 0));
    EXPECT_FALSE(bell.Answer());
}

TEST_F(DoorbellTest, ManyRingsAreAnsweredAtOnce) {
    Doorbell bell(m_folder.path());
    for (int i = 0; i < 1000; ++i) {
        Doorbell::Ring(m_folder.path());
    }
    EXPECT_TRUE(bell.Answer());
    EXPECT_FALSE(bell.Answer());
}

TEST_F(DoorbellTest, ARingOfAnotherProcessWakesTheListener) {
    Doorbell bell(m_folder.path());
    const pid_t child = ::fork();
    if (child == 0) {
        Doorbell::Ring(m_folder.path());
        ::_exit(0);
    }
    EXPECT_TRUE(IsReadable(bell.Descriptor(), 10000));
    ::waitpid(child, nullptr, 0);
    // The ringer has gone: the listener does not take that for an end.
    EXPECT_TRUE(bell.Answer());
    EXPECT_FALSE(IsReadable(bell.Descriptor(), 0));
}

TEST_F(DoorbellTest, RingingWhereNobodyListensDoesNothing) {
    Doorbell::Ring(m_folder.path());
    Doorbell::Ring(m_folder.file("no such folder"));
    { const Doorbell gone(m_folder.path()); }
    Doorbell::Ring(m_folder.path());
    Doorbell bell(m_folder.path());
    EXPECT_FALSE(bell.Answer());
}

TEST_F(DoorbellTest, MoreRingsThanThePipeHoldsDoNotWait) {
    Doorbell bell(m_folder.path());
    for (int i = 0; i < 70000; ++i) {
        Doorbell::Ring(m_folder.path());
    }
    EXPECT_TRUE(bell.Answer());
}

TEST_F(DoorbellTest, ARingerSurvivesListenersThatComeAndGo) {
    { const Doorbell first(m_folder.path()); }
    const pid_t child = ::fork();
    if (child == 0) {
        while (true) {
            Doorbell::Ring(m_folder.path());
        }
    }
    int status = 0;
    for (int i = 0; i < 20000 && ::waitpid(child, &status, WNOHANG) == 0; ++i) {
        const Doorbell bell(m_folder.path());
    }
    EXPECT_EQ(::kill(child, SIGKILL), 0) << "the ringer ended by itself";
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST_F(DoorbellTest, AFileInItsPlaceIsRefusedAndLeftAlone) {
    std::ofstream(m_folder.file("doorbell")) << "mine";
    try {
        const Doorbell bell(m_folder.path());
        FAIL() << "expected a StoreError";
    } catch (const StoreError& error) {
        EXPECT_EQ(std::string(error.what()).find(m_folder.file("doorbell") + ": cannot be opened as a FIFO"),
                  0U)
            << error.what();
    }
    Doorbell::Ring(m_folder.path());
    std::ifstream stream(m_folder.file("doorbell"));
    std::string content;
    stream >> content;
    EXPECT_EQ(content, "mine");
}

}  // namespace
}  // namespace kvhost
