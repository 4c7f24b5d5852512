#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "AcceptedSocketKit.h"
#include "Descriptors.h"

namespace {

using acceptedsocket::ConnectedSocketTest;
using acceptedsocket::OpenSocket;
using kvtest::ScopedDescriptor;
using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;

class AcceptedSocketWait : public ConnectedSocketTest {};

TEST_F(AcceptedSocketWait, AnswersReadableWhenBytesHaveCome) {
    peer.Send("x");
    EXPECT_EQ(socket.Wait(true, false, 10000), 33);
}

TEST_F(AcceptedSocketWait, AnswersReadableWhenThePeerHasClosed) {
    peer.Close();
    EXPECT_EQ(socket.Wait(true, false, 10000), 33);
}

TEST_F(AcceptedSocketWait, AnswersWritableWhenThereIsRoom) {
    EXPECT_EQ(socket.Wait(false, true, 10000), 34);
}

TEST_F(AcceptedSocketWait, PrefersReadableWhenBothHold) {
    peer.Send("x");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(socket.Wait(true, true, 10000), 33);
}

TEST_F(AcceptedSocketWait, AnswersWritableForBothWhenNothingCanBeRead) {
    EXPECT_EQ(socket.Wait(true, true, 10000), 34);
}

TEST_F(AcceptedSocketWait, WithoutLimitAnswersWritable) {
    EXPECT_EQ(socket.Wait(false, true, -1), 34);
}

TEST_F(AcceptedSocketWait, WithoutLimitLastsUntilBytesCome) {
    std::future<int> result = std::async(std::launch::async, [&] { return socket.Wait(true, false, -1); });
    EXPECT_EQ(result.wait_for(200ms), std::future_status::timeout);
    peer.Send("x");
    EXPECT_EQ(result.get(), 33);
}

TEST_F(AcceptedSocketWait, TimesOutAfterTheGivenMilliseconds) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(socket.Wait(true, false, 150), 35);
    EXPECT_GE(Clock::now() - start, 150ms);
    EXPECT_LT(Clock::now() - start, 5s);
}

TEST_F(AcceptedSocketWait, CountsWholeSecondsOfTheTimeOut) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(socket.Wait(true, false, 1100), 35);
    EXPECT_GE(Clock::now() - start, 1100ms);
    EXPECT_LT(Clock::now() - start, 6s);
}

TEST_F(AcceptedSocketWait, OfZeroMillisecondsLooksOnce) {
    EXPECT_EQ(socket.Wait(true, false, 0), 35);
    EXPECT_EQ(socket.Wait(false, true, 0), 34);
}

TEST_F(AcceptedSocketWait, ForNothingTimesOut) {
    peer.Send("x");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(socket.Wait(false, false, 20), 35);
}

TEST_F(AcceptedSocketWait, TakesNoByte) {
    peer.Send("xy");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(Unread(), "xy");
}

TEST_F(AcceptedSocketWait, IsNoActivity) {
    socket.m_tLastActive = 1;
    socket.Wait(true, true, 100);
    EXPECT_EQ(socket.GetLastActiveTime(), 1);
}

TEST_F(AcceptedSocketWait, WritesNoLog) {
    peer.Send("x");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(log.count(), 0);
}

/// Sends a harmless signal to the thread that made it, every few milliseconds, until it is destroyed.
class Interruptions {
public:
    Interruptions() : m_target(pthread_self()) {
        struct sigaction ignoring = {};
        ignoring.sa_handler = [](int) {};
        sigaction(SIGVTALRM, &ignoring, &m_before);
        m_sender = std::thread([this] { SendUntilDone(); });
    }
    ~Interruptions() {
        m_done = true;
        m_sender.join();
        sigaction(SIGVTALRM, &m_before, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

private:
    void SendUntilDone() {
        while (!m_done) {
            // The pace of the interruptions: the thread has to get into its next wait between two of them.
            std::this_thread::sleep_for(5ms);
            pthread_kill(m_target, SIGVTALRM);
        }
    }

    pthread_t m_target;
    struct sigaction m_before = {};
    std::atomic<bool> m_done{false};
    std::thread m_sender;
};

TEST_F(AcceptedSocketWait, EndsWithAnErrorWhenItIsInterrupted) {
    const Interruptions interruptions;
    EXPECT_EQ(socket.Wait(true, false, 30000), 36);
}

TEST_F(AcceptedSocketWait, WithoutLimitEndsWithAnErrorWhenItIsInterrupted) {
    const Interruptions interruptions;
    EXPECT_EQ(socket.Wait(true, false, -1), 36);
}

TEST_F(AcceptedSocketWait, AnInterruptedReadAnswersMinusOneAndTheErrorStatus) {
    const Interruptions interruptions;
    unsigned char byte = 0;
    EXPECT_EQ(socket.Read(&byte, 1, 30000, status), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketWait, AnInterruptedTimedLineIsThePartWithTheErrorStatus) {
    peer.Send("part");
    ASSERT_TRUE(IsReadable());
    const Interruptions interruptions;
    EXPECT_EQ(socket.ReadLine(30000, status), "part");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketWait, AnInterruptedReadTillIsThePartWithTheErrorStatus) {
    peer.Send("part");
    ASSERT_TRUE(IsReadable());
    const Interruptions interruptions;
    EXPECT_EQ(socket.ReadTill(reinterpret_cast<const unsigned char*>("\n"), 30000, status), "part");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

/// A socket on a descriptor that is not open, and the means to open it.
class AcceptedSocketWaitRetry : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_ends), 0);
        // A number that nobody else in the process will get meanwhile.
        m_number = fcntl(m_ends[0], F_DUPFD_CLOEXEC, 700);
        ASSERT_GE(m_number, 700);
        close(m_number);
        socket.m_socket = m_number;
    }
    void TearDown() override {
        close(m_ends[0]);
        close(m_ends[1]);
        close(m_number);
    }

    OpenSocket socket;
    int m_ends[2] = {-1, -1};
    int m_number = -1;
};

TEST_P(AcceptedSocketWaitRetry, AnErrorOtherThanAnInterruptionIsTriedAgainUntilItIsGone) {
    std::future<int> result =
        std::async(std::launch::async, [&] { return socket.Wait(true, false, GetParam()); });
    EXPECT_EQ(result.wait_for(300ms), std::future_status::timeout);
    EXPECT_EQ(write(m_ends[1], "x", 1), 1);
    ASSERT_EQ(dup2(m_ends[0], m_number), m_number);
    EXPECT_EQ(result.get(), 33);
}

INSTANTIATE_TEST_SUITE_P(TimeOuts, AcceptedSocketWaitRetry, testing::Values(-1, 50, 20000),
                         [](const auto& test) {
                             return test.param < 0 ? std::string("None") : std::to_string(test.param);
                         });

TEST(AcceptedSocketWaitWide, WorksForDescriptorsThatDoNotFitAnFdSet) {
    const kvtest::OccupiedDescriptors occupied(1100);
    acceptedsocket::Peer peer;
    OpenSocket socket;
    socket.Connect("127.0.0.1", peer.port(), KvioSocket::SOCKET_TCP);
    peer.Accept();
    ASSERT_GE(socket.GetSocket(), 1100);
    EXPECT_EQ(socket.Wait(true, false, 20), 35);
    EXPECT_EQ(socket.Wait(true, true, 1000), 34);
    peer.Send("x");
    EXPECT_EQ(socket.Wait(true, false, 10000), 33);
    socket.Close();
}

}  // namespace
