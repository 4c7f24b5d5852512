#include "src/KvioSocketFixture.h"

namespace kvsockettest {
namespace {

// --- what hosts were compiled against ---

TEST_F(KvioSocketTest, StatusValuesAreFixed) {
    EXPECT_EQ(KvioSocket::SOCKET_DONE, 32);
    EXPECT_EQ(KvioSocket::SOCKET_READABLE, 33);
    EXPECT_EQ(KvioSocket::SOCKET_WRITABLE, 34);
    EXPECT_EQ(KvioSocket::SOCKET_TIMEOUT, 35);
    EXPECT_EQ(KvioSocket::SOCKET_ERROR, 36);
}

TEST_F(KvioSocketTest, TypeValuesAreFixed) {
    EXPECT_EQ(KvioSocket::SOCKET_TCP, 0);
    EXPECT_EQ(KvioSocket::SOCKET_UDP, 1);
    EXPECT_EQ(KvioSocket::SOCKET_ICMP, 2);
}

TEST_F(KvioSocketTest, CloseHasTheSlotAfterTheDestructor) {
    EXPECT_EQ(kvtest::SlotOf(&KvioSocket::Close), 2U);
}

TEST_F(KvioSocketTest, MembersFollowTheVirtualTableInTheirFixedOrder) {
    constexpr std::ptrdiff_t kWord = sizeof(void*);
    constexpr std::ptrdiff_t kText = sizeof(std::string);
    EXPECT_THAT(socket.MemberOffsets(),
                ElementsAre(kWord, 2 * kWord, 3 * kWord, 3 * kWord + kText, 4 * kWord + kText));
    EXPECT_EQ(sizeof(KvioSocket), static_cast<std::size_t>(5 * kWord + kText));
}

TEST(KvioSocketNewTest, HasNoDescriptorNoAddressAndNoHandler) {
    const KvioSocket socket;
    EXPECT_EQ(socket.GetSocket(), -1);
    EXPECT_EQ(socket.GetRemoteAddress(), "");
    EXPECT_EQ(socket.GetEventHandler(), nullptr);
}

TEST(KvioSocketNewTest, WasActiveWhenItWasMade) {
    const std::time_t before = std::time(nullptr);
    const KvioSocket socket;
    EXPECT_GE(socket.GetLastActiveTime(), before);
    EXPECT_LE(socket.GetLastActiveTime(), std::time(nullptr));
}

// --- Close and the owned parts ---

TEST_F(KvioSocketTest, DestructionLeavesTheDescriptorOpen) {
    {
        TestSocket other;
        other.Attach(pair.near.get());
    }
    EXPECT_TRUE(IsOpen(pair.near.get()));
}

TEST_F(KvioSocketTest, CloseAnswersZeroAndTheNumberStays) {
    const int number = dup(pair.near.get());
    socket.Attach(number);
    EXPECT_EQ(socket.Close(), 0);
    EXPECT_FALSE(IsOpen(number));
    EXPECT_EQ(socket.GetSocket(), number);
}

TEST_F(KvioSocketTest, CloseWithoutADescriptorFails) {
    KvioSocket fresh;
    EXPECT_EQ(fresh.Close(), -1);
    EXPECT_EQ(KvioSocket::GetErrorCode(), EBADF);
    EXPECT_EQ(fresh.GetSocket(), -1);
}

TEST_F(KvioSocketTest, SecondCloseLeavesTheNewOwnerOfTheDescriptorAlone) {
    const int number = dup(pair.near.get());
    socket.Attach(number);
    ASSERT_EQ(socket.Close(), 0);
    const ScopedDescriptor newOwner(dup2(pair.peer.get(), number));
    ASSERT_EQ(newOwner.get(), number);
    EXPECT_EQ(socket.Close(), -1);
    EXPECT_EQ(KvioSocket::GetErrorCode(), EBADF);
    EXPECT_TRUE(IsOpen(number));
    EXPECT_EQ(socket.GetSocket(), number);
}

TEST_F(KvioSocketTest, ReadOfAClosedSocketDoesNotReachTheNewOwnerOfTheDescriptor) {
    const int number = dup(pair.near.get());
    socket.Attach(number);
    ASSERT_EQ(socket.Close(), 0);
    const ScopedDescriptor newOwner(dup2(pair.near.get(), number));
    ASSERT_TRUE(SendText(pair.peer.get(), "secret"));
    EXPECT_EQ(IoFailureOf([&] { socket.Read(Bytes(buffer), 6, -1, status); }),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[209] "
              "Msg[Socket Read Error] SysMsg[Bad file descriptor]");
    EXPECT_EQ(std::string(buffer), "");
}

TEST_F(KvioSocketTest, FirstEventHandlerIsKept) {
    int deleted = 0;
    CountedHandler second(deleted);
    auto* const first = new CountedHandler(deleted);
    KvioSocket other;
    EXPECT_TRUE(other.SetEventHandler(first));
    EXPECT_FALSE(other.SetEventHandler(&second));
    EXPECT_EQ(other.GetEventHandler(), first);
}

TEST_F(KvioSocketTest, EventHandlerIsDeletedWithTheSocket) {
    int deleted = 0;
    {
        KvioSocket other;
        other.SetEventHandler(new CountedHandler(deleted));
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
}

// --- Wait ---

TEST_F(KvioSocketTest, WaitAnswersReadableWhenThereIsData) {
    SendText(pair.peer.get(), "x");
    EXPECT_EQ(socket.Wait(true, false, 20000), 33);
    EXPECT_EQ(socket.Wait(true, false, -1), 33);
}

TEST_F(KvioSocketTest, WaitAnswersReadableWhenThePeerHasClosed) {
    pair.peer.reset();
    EXPECT_EQ(socket.Wait(true, false, 20000), 33);
}

TEST_F(KvioSocketTest, WaitAnswersWritableWhenThereIsRoom) {
    EXPECT_EQ(socket.Wait(false, true, 20000), 34);
    EXPECT_EQ(socket.Wait(true, true, -1), 34);
}

TEST_F(KvioSocketTest, WaitAnswersReadableBeforeWritable) {
    SendText(pair.peer.get(), "x");
    EXPECT_EQ(socket.Wait(true, true, 20000), 33);
}

TEST_F(KvioSocketTest, WaitTimesOut) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(socket.Wait(true, false, 30), 35);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST_F(KvioSocketTest, WaitWithATimeoutOfZeroOnlyLooks) {
    EXPECT_EQ(socket.Wait(true, false, 0), 35);
    EXPECT_EQ(socket.Wait(false, true, 0), 34);
}

TEST_F(KvioSocketTest, WaitForNothingTimesOut) {
    SendText(pair.peer.get(), "x");
    EXPECT_EQ(socket.Wait(false, false, 10), 35);
}

TEST_F(KvioSocketTest, WaitWithoutADescriptorTimesOut) {
    KvioSocket fresh;
    EXPECT_EQ(fresh.Wait(true, true, 10), 35);
}

TEST_F(KvioSocketTest, WaitTimesOutWhenThereIsNoRoom) {
    kvtest::FillSendBuffer(pair.near.get());
    EXPECT_EQ(socket.Wait(false, true, 10), 35);
}

TEST_F(KvioSocketTest, InterruptedWaitAnswersError) {
    int result = 0;
    kvtest::RunInterrupted([&] { result = socket.Wait(true, false, 20000); });
    EXPECT_EQ(result, 36);
}

TEST_F(KvioSocketTest, InterruptedWaitWithoutATimeoutAnswersError) {
    int result = 0;
    kvtest::RunInterrupted([&] { result = socket.Wait(true, false, -1); });
    EXPECT_EQ(result, 36);
}

/// How long the thread has computed; a wait that retries without end computes.
std::chrono::nanoseconds ComputedBy(pthread_t thread) {
    clockid_t clock{};
    timespec time{};
    pthread_getcpuclockid(thread, &clock);
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(KvioSocketTest, WaitRetriesAfterAnErrorOtherThanAnInterruption) {
    const int number = dup(pair.near.get());
    close(number);  // select on it fails with EBADF
    socket.Attach(number);
    SendText(pair.peer.get(), "x");
    std::atomic<int> result{0};
    std::thread waiter([&] { result = socket.Wait(true, false, 20000); });
    EXPECT_TRUE(kvtest::ComesTrue(
        [&] { return ComputedBy(waiter.native_handle()) > std::chrono::milliseconds(10); }));
    EXPECT_EQ(result, 0);
    const ScopedDescriptor repaired(dup2(pair.near.get(), number));
    waiter.join();
    EXPECT_EQ(result, 33);
}

// --- descriptors that do not fit an fd_set ---

TEST(KvioSocketHighDescriptorTest, DescriptorsAbove1024AreWaitedForReadAndWritten) {
    const kvtest::OccupiedDescriptors occupied(1100);
    StreamPair pair;
    ASSERT_GE(pair.near.get(), 1100);
    TestSocket socket;
    socket.Attach(pair.near.get());
    EXPECT_EQ(socket.Wait(true, false, 0), 35);
    EXPECT_EQ(socket.Wait(true, true, 20000), 34);
    EXPECT_EQ(socket.Write("ping"), 4);
    EXPECT_EQ(ReceiveText(pair.peer.get(), 4), "ping");
    SendText(pair.peer.get(), "pong");
    char buffer[8] = {};
    KvioSocket::SocketStatus status{};
    EXPECT_EQ(socket.Read(Bytes(buffer), 8, 20000, status), 4);
    EXPECT_EQ(std::string(buffer), "pong");
}

// --- the rest ---

TEST_F(KvioSocketTest, NonBlockingModeReplacesAllStatusFlags) {
    ASSERT_EQ(fcntl(pair.near.get(), F_SETFL, O_APPEND), 0);
    ASSERT_TRUE(kvtest::HasStatusFlag(pair.near.get(), O_APPEND));
    EXPECT_EQ(socket.SetNonBlockingMode(), 0);
    EXPECT_TRUE(kvtest::HasStatusFlag(pair.near.get(), O_NONBLOCK));
    EXPECT_FALSE(kvtest::HasStatusFlag(pair.near.get(), O_APPEND));
}

TEST_F(KvioSocketTest, NonBlockingModeWithoutADescriptorFails) {
    KvioSocket fresh;
    EXPECT_EQ(fresh.SetNonBlockingMode(), -1);
}

/// What the system's services file says of smtp over TCP; -1 when it says nothing.
int ListedSmtpPort() {
    std::ifstream services("/etc/services");
    std::string line;
    while (std::getline(services, line)) {
        std::istringstream words(line);
        std::string name;
        int port = 0;
        std::string protocol;
        if (words >> name >> port >> protocol && name == "smtp" && protocol == "/tcp") {
            return port;
        }
    }
    return -1;
}

TEST_F(KvioSocketTest, PortOfAServiceIsTheOneThatTheSystemLists) {
    EXPECT_EQ(KvioSocket::KvAsciiToPort("smtp", "tcp"), ListedSmtpPort());
    if (ListedSmtpPort() != -1) {
        EXPECT_EQ(ListedSmtpPort(), 25);
    }
}

TEST_F(KvioSocketTest, PortOfAnUnknownServiceIsMinusOne) {
    EXPECT_EQ(KvioSocket::KvAsciiToPort("no-such-service", "tcp"), -1);
    EXPECT_EQ(KvioSocket::KvAsciiToPort("smtp", "no-such-protocol"), -1);
}

TEST_F(KvioSocketTest, ErrorCodeIsErrno) {
    errno = ENOENT;
    EXPECT_EQ(KvioSocket::GetErrorCode(), ENOENT);
}

TEST_F(KvioSocketTest, LibraryNeedsNoPreparation) {
    EXPECT_TRUE(KvioSocket::InitialLibrary());
    EXPECT_TRUE(KvioSocket::CloseLibrary());
}

// --- the end of a worker ---

class KvioSocketEndTest : public KvioSocketTest {
protected:
    KvioSocketEndTest() { KvconThread::InitializeLibrary(); }

private:
    kvtest::SavedSignalHandlers m_handlers;
};

TEST_F(KvioSocketEndTest, WorkerIsEndedInAWait) {
    kvtest::EndableThread worker([&] { socket.Wait(true, false, 20000); });
    EXPECT_TRUE(worker.End());
}

TEST_F(KvioSocketEndTest, WorkerIsEndedInAWaitThatRetries) {
    const int number = dup(pair.near.get());
    close(number);  // select on it fails with EBADF
    socket.Attach(number);
    kvtest::EndableThread worker([&] { socket.Wait(true, false, -1); });
    EXPECT_TRUE(worker.End());
}

TEST_F(KvioSocketEndTest, WorkerIsEndedInAReadWithoutATimeout) {
    kvtest::EndableThread worker([&] { socket.Read(Bytes(buffer), 1, -1, status); });
    EXPECT_TRUE(worker.End());
}

TEST_F(KvioSocketEndTest, WorkerIsEndedInAnUntimedReadLine) {
    kvtest::EndableThread worker([&] { socket.ReadLine(status, 80); });
    EXPECT_TRUE(worker.End());
}

TEST_F(KvioSocketEndTest, WorkerIsEndedInAWriteToAPeerThatDoesNotRead) {
    kvtest::EndableThread worker([&] { socket.Write(std::string(1 << 20, 'm')); });
    EXPECT_TRUE(worker.End());
}

}  // namespace
}  // namespace kvsockettest
