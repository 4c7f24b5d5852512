#include "KvioSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <sstream>

#include "Descriptors.h"
#include "KvconThread.h"
#include "LoopbackSocket.h"
#include "RecordingLog.h"
#include "src/SocketDoubles.h"

namespace {

using kvtest::Bytes;
using kvtest::IoFailureOf;
using kvtest::IsOpen;
using kvtest::LogEntry;
using kvtest::LoopbackListener;
using kvtest::ReceiveText;
using kvtest::RecordingLog;
using kvtest::ScopedDescriptor;
using kvtest::SendText;
using kvtest::StreamPair;
using testing::ElementsAre;
using testing::IsEmpty;

class TestSocket : public kvtest::Attachable<KvioSocket> {
public:
    /// The members' distances from the beginning of the object, in bytes.
    std::vector<std::ptrdiff_t> MemberOffsets() const {
        const auto offset = [this](const void* member) {
            return static_cast<const char*>(member) - reinterpret_cast<const char*>(this);
        };
        return {offset(&m_socket), offset(&m_pEventHandler), offset(&m_strRemoteAddress),
                offset(&m_tLastActive), offset(&m_pEventLog)};
    }
};

/// A socket with a peer, and a log that is not switched on yet.
class KvioSocketTest : public ::testing::Test {
protected:
    KvioSocketTest() {
        socket.Attach(pair.near.get());
        socket.SetAddress("mail.example:25");
    }

    std::string TextOf(int count) const { return std::string(buffer, static_cast<std::size_t>(count)); }

    StreamPair pair;
    TestSocket socket;
    RecordingLog log;
    KvioSocket::SocketStatus status{};
    char buffer[64] = {};
};

class CountedHandler : public KvioSocketEventHandler {
public:
    explicit CountedHandler(int& deleted) : m_deleted(deleted) {}
    ~CountedHandler() override { ++m_deleted; }

private:
    int& m_deleted;
};

MATCHER_P2(IsTraffic, text, line, "") {
    return arg.severity == kvtest::Severity::Trace && arg.text == text && arg.line == line &&
           arg.file == "../src/KvioSocket";
}

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

// --- Read ---

TEST_F(KvioSocketTest, ReadAnswersWhatIsThere) {
    SendText(pair.peer.get(), "220 ready\r\n");
    EXPECT_EQ(socket.Read(Bytes(buffer), sizeof(buffer), 20000, status), 11);
    EXPECT_EQ(TextOf(11), "220 ready\r\n");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(KvioSocketTest, ReadTakesNoMoreThanTheSize) {
    SendText(pair.peer.get(), "abcdef");
    EXPECT_EQ(socket.Read(Bytes(buffer), 4, 20000, status), 4);
    EXPECT_EQ(TextOf(4), "abcd");
    EXPECT_EQ(socket.Read(Bytes(buffer), 4, -1, status), 2);
    EXPECT_EQ(TextOf(2), "ef");
}

TEST_F(KvioSocketTest, ReadThatTimesOutAnswersMinusOneAndStoresNothing) {
    EXPECT_EQ(socket.Read(Bytes(buffer), sizeof(buffer), 10, status), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_TRUE(std::all_of(std::begin(buffer), std::end(buffer), [](char c) { return c == '\0'; }));
}

TEST_F(KvioSocketTest, ReadWithATimeoutOfZeroOnlyLooks) {
    EXPECT_EQ(socket.Read(Bytes(buffer), 1, 0, status), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    SendText(pair.peer.get(), "x");
    EXPECT_EQ(socket.Read(Bytes(buffer), 1, 0, status), 1);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(KvioSocketTest, ReadWhoseWaitIsInterruptedAnswersMinusOneAndError) {
    int result = 0;
    kvtest::RunInterrupted([&] { result = socket.Read(Bytes(buffer), 1, 20000, status); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSocketTest, InterruptedReadWithoutATimeoutThrowsReadError) {
    std::string failure;
    kvtest::RunInterrupted(
        [&] { failure = IoFailureOf([&] { socket.Read(Bytes(buffer), 1, -1, status); }); });
    EXPECT_EQ(failure,
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[209] "
              "Msg[Socket Read Error] SysMsg[Interrupted system call]");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSocketTest, ReadWithoutATimeoutWaitsForData) {
    auto reading = std::async(std::launch::async,
                              [&] { return socket.Read(Bytes(buffer), sizeof(buffer), -1, status); });
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    SendText(pair.peer.get(), "late");
    EXPECT_EQ(reading.get(), 4);
    EXPECT_EQ(TextOf(4), "late");
}

TEST_F(KvioSocketTest, ReadThrowsWhenThePeerHasClosed) {
    pair.peer.reset();
    errno = 0;
    EXPECT_EQ(IoFailureOf([&] { socket.Read(Bytes(buffer), 1, 20000, status); }),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[215] "
              "Msg[Socket is closed] SysMsg[Success]");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSocketTest, ReadOfAClosedConnectionReportsTheErrnoFromBefore) {
    pair.peer.reset();
    errno = EACCES;
    EXPECT_EQ(IoFailureOf([&] { socket.Read(Bytes(buffer), 1, 20000, status); }),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[215] "
              "Msg[Socket is closed] SysMsg[Permission denied]");
}

TEST_F(KvioSocketTest, ReadThatHadToWaitForTheEndReportsNoSystemError) {
    auto reading = std::async(std::launch::async, [&] {
        errno = 0;
        return IoFailureOf([&] { socket.Read(Bytes(buffer), 1, -1, status); });
    });
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    shutdown(pair.peer.get(), SHUT_RDWR);
    EXPECT_EQ(reading.get(),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[215] "
              "Msg[Socket is closed] SysMsg[Success]");
}

TEST_F(KvioSocketTest, ReadThrowsWhenThePeerHasReset) {
    LoopbackListener listener;
    const ScopedDescriptor near = kvtest::ConnectingSocket(listener.Port());
    ScopedDescriptor peer = listener.Accept();
    kvtest::CloseWithReset(peer);
    socket.Attach(near.get());
    EXPECT_EQ(IoFailureOf([&] { socket.Read(Bytes(buffer), 1, 20000, status); }),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[209] "
              "Msg[Socket Read Error] SysMsg[Connection reset by peer]");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSocketTest, ReadIsLoggedOnceInSafeForm) {
    socket.SetEventLog(&log);
    SendText(pair.peer.get(), "250 ok\r\n\t");
    socket.Read(Bytes(buffer), sizeof(buffer), 20000, status);
    EXPECT_THAT(log.entries(), ElementsAre(IsTraffic("=> 250 ok<CR><LF><TAB>", 226)));
}

TEST_F(KvioSocketTest, LongTrafficIsCutInTheLog) {
    socket.SetEventLog(&log);
    socket.Write(std::string(5000, 'a'));
    EXPECT_THAT(log.texts(), ElementsAre("<= " + std::string(4091, 'a')));
}

TEST_F(KvioSocketTest, ReadWithNoLogIsNotLogged) {
    socket.SetEventLog(&log);
    SendText(pair.peer.get(), "secret");
    EXPECT_EQ(socket.Read(Bytes(buffer), sizeof(buffer), 20000, status, true), 6);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSocketTest, FailedReadsAreNotLogged) {
    socket.SetEventLog(&log);
    socket.Read(Bytes(buffer), 1, 0, status);
    pair.peer.reset();
    IoFailureOf([&] { socket.Read(Bytes(buffer), 1, -1, status); });
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSocketTest, NullLogSwitchesLoggingOff) {
    socket.SetEventLog(&log);
    socket.SetEventLog(nullptr);
    EXPECT_EQ(socket.Write("x"), 1);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSocketTest, ReadStampsTheActivityTime) {
    socket.ForgetActivity();
    SendText(pair.peer.get(), "x");
    const std::time_t before = std::time(nullptr);
    socket.Read(Bytes(buffer), 1, 20000, status);
    EXPECT_GE(socket.GetLastActiveTime(), before);
}

TEST_F(KvioSocketTest, ReadThatTimesOutLeavesTheActivityTime) {
    socket.ForgetActivity();
    socket.Read(Bytes(buffer), 1, 0, status);
    EXPECT_EQ(socket.GetLastActiveTime(), 0);
}

TEST_F(KvioSocketTest, ReadOfANonBlockingSocketDoesNotWait) {
    ASSERT_EQ(socket.SetNonBlockingMode(), 0);
    EXPECT_EQ(IoFailureOf([&] { socket.Read(Bytes(buffer), 1, -1, status); }),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[209] "
              "Msg[Socket Read Error] SysMsg[Resource temporarily unavailable]");
}

// --- ReadChar ---

TEST_F(KvioSocketTest, ReadCharAnswersTheByte) {
    SendText(pair.peer.get(), std::string("A\0\xfe\xff", 4));
    EXPECT_EQ(socket.ReadChar(20000, status), 65);
    EXPECT_EQ(socket.ReadChar(20000, status), 0);
    EXPECT_EQ(socket.ReadChar(-1, status), 254);
    EXPECT_EQ(socket.ReadChar(-1, status), 255);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(KvioSocketTest, ReadCharThatTimesOutAnswers255) {
    EXPECT_EQ(socket.ReadChar(5, status), 255);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(KvioSocketTest, ReadCharIsLoggedUnlessToldOtherwise) {
    socket.SetEventLog(&log);
    SendText(pair.peer.get(), "ab");
    socket.ReadChar(20000, status, true);
    socket.ReadChar(20000, status);
    EXPECT_THAT(log.texts(), ElementsAre("=> b"));
}

// --- ReadLine without a time-out ---

TEST_F(KvioSocketTest, UntimedReadLineDropsCrNulAndTheLf) {
    SendText(pair.peer.get(), std::string("AB\r\0C\nnext", 10));
    EXPECT_EQ(socket.ReadLine(status, 80), "ABC");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReceiveText(pair.near.get(), 4), "next");
}

TEST_F(KvioSocketTest, UntimedReadLineAnswersThePartialLineWhenThePeerCloses) {
    SendText(pair.peer.get(), "par");
    pair.peer.reset();
    EXPECT_EQ(socket.ReadLine(status, 80), "par");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(KvioSocketTest, UntimedReadLineAnswersThePartialLineWhenReadingFails) {
    SendText(pair.peer.get(), "par");
    socket.SetNonBlockingMode();
    EXPECT_EQ(socket.ReadLine(status, 80), "par");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSocketTest, UntimedReadLineOfSizeZeroReadsNothing) {
    SendText(pair.peer.get(), "line\n");
    EXPECT_EQ(socket.ReadLine(status, 0), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReceiveText(pair.near.get(), 5), "line\n");
}

TEST_F(KvioSocketTest, UntimedReadLineHasNoMaximum) {
    const std::string line(20000, 'x');
    std::thread sender([&] { SendText(pair.peer.get(), line + "\n"); });
    EXPECT_EQ(socket.ReadLine(status, 1), line);
    sender.join();
}

TEST_F(KvioSocketTest, UntimedReadLineWaitsForTheRest) {
    SendText(pair.peer.get(), "fir");
    auto reading = std::async(std::launch::async, [&] { return socket.ReadLine(status, 80); });
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    SendText(pair.peer.get(), "st\n");
    EXPECT_EQ(reading.get(), "first");
}

TEST_F(KvioSocketTest, UntimedReadLineNeitherLogsNorStamps) {
    socket.SetEventLog(&log);
    socket.ForgetActivity();
    SendText(pair.peer.get(), "line\n");
    socket.ReadLine(status, 80);
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_EQ(socket.GetLastActiveTime(), 0);
}

// --- ReadLine with a time-out ---

TEST_F(KvioSocketTest, TimedReadLineKeepsEveryByte) {
    const std::string line("AB\r\0C\n", 6);
    SendText(pair.peer.get(), line + "next");
    EXPECT_EQ(socket.ReadLine(20000, status), line);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReceiveText(pair.near.get(), 4), "next");
}

TEST_F(KvioSocketTest, TimedReadLineLogsEachByteAlone) {
    socket.SetEventLog(&log);
    SendText(pair.peer.get(), "A\r\n");
    socket.ReadLine(20000, status);
    EXPECT_THAT(log.entries(),
                ElementsAre(IsTraffic("=> A", 226), IsTraffic("=> <CR>", 226), IsTraffic("=> <LF>", 226)));
}

TEST_F(KvioSocketTest, TimedReadLineAnswersThePartialLineOnATimeout) {
    SendText(pair.peer.get(), "par");
    EXPECT_EQ(socket.ReadLine(10, status), "par");
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(KvioSocketTest, TimedReadLineThrowsWhenThePeerCloses) {
    SendText(pair.peer.get(), "par");
    pair.peer.reset();
    EXPECT_THROW(socket.ReadLine(20000, status), KvioException);
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSocketTest, TimedReadLineKeepsAByteOf255) {
    SendText(pair.peer.get(), "\xff\n");
    EXPECT_EQ(socket.ReadLine(20000, status), "\xff\n");
}

// --- ReadTill ---

TEST_F(KvioSocketTest, ReadTillAnswersTheTextWithItsTerminator) {
    SendText(pair.peer.get(), "x\r\n.\r\nrest");
    EXPECT_EQ(socket.ReadTill(Bytes("\r\n.\r\n"), 20000, status), "x\r\n.\r\n");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReceiveText(pair.near.get(), 4), "rest");
}

TEST_F(KvioSocketTest, ReadTillFindsATerminatorAfterARepeatedFirstByte) {
    SendText(pair.peer.get(), "\r\r\n.\r\n");
    EXPECT_EQ(socket.ReadTill(Bytes("\r\n.\r\n"), 20000, status), "\r\r\n.\r\n");
}

TEST_F(KvioSocketTest, ReadTillMissesATerminatorThatBeginsInsideAPartialMatch) {
    SendText(pair.peer.get(), "aaab");
    EXPECT_EQ(socket.ReadTill(Bytes("aab"), 10, status), "aaab");
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(KvioSocketTest, ReadTillKeepsBytesOf255ThatWereReceived) {
    SendText(pair.peer.get(), "a\xff.");
    EXPECT_EQ(socket.ReadTill(Bytes("."), 20000, status), "a\xff.");
}

TEST_F(KvioSocketTest, ReadTillDropsTheRestOfAChunkAfterANul) {
    std::string sent(2000, 'x');
    sent[1000] = '\0';
    SendText(pair.peer.get(), sent + ".");
    EXPECT_EQ(socket.ReadTill(Bytes("."), 20000, status),
              std::string(1000, 'x') + std::string(2000 - 1022, 'x') + ".");
}

TEST_F(KvioSocketTest, ReadTillHasNoMaximum) {
    const std::string sent(5000, 'x');
    SendText(pair.peer.get(), sent + ".");
    EXPECT_EQ(socket.ReadTill(Bytes("."), 20000, status), sent + ".");
}

TEST_F(KvioSocketTest, ReadTillLogsTheWholeTextOnce) {
    socket.SetEventLog(&log);
    SendText(pair.peer.get(), "ab\r\n");
    socket.ReadTill(Bytes("\r\n"), 20000, status);
    EXPECT_THAT(log.entries(), ElementsAre(IsTraffic("=> ab<CR><LF>", 226)));
}

TEST_F(KvioSocketTest, ReadTillWithoutAByteLogsNothing) {
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.ReadTill(Bytes("\r\n"), 5, status), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSocketTest, ReadTillAnEmptyTerminatorReadsNothing) {
    SendText(pair.peer.get(), "x");
    EXPECT_EQ(socket.ReadTill(Bytes(""), 20000, status), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReceiveText(pair.near.get(), 1), "x");
}

TEST_F(KvioSocketTest, ReadTillThrowsWhenThePeerCloses) {
    SendText(pair.peer.get(), "par");
    pair.peer.reset();
    EXPECT_THROW(socket.ReadTill(Bytes("."), 20000, status), KvioException);
}

// --- Write ---

TEST_F(KvioSocketTest, WriteSendsTheBytes) {
    EXPECT_EQ(socket.Write(Bytes("EHLO x\r\n"), 8), 8);
    EXPECT_EQ(ReceiveText(pair.peer.get(), 8), "EHLO x\r\n");
}

TEST_F(KvioSocketTest, WriteSendsTheWholeTextWithItsNuls) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(socket.Write(text), 3);
    EXPECT_EQ(ReceiveText(pair.peer.get(), 3), text);
}

TEST_F(KvioSocketTest, WritesAreLoggedInSafeForm) {
    socket.SetEventLog(&log);
    socket.Write(Bytes("QUIT\r\n"), 6);
    socket.Write(std::string("RSET\r\n"));
    EXPECT_THAT(log.entries(),
                ElementsAre(IsTraffic("<= QUIT<CR><LF>", 174), IsTraffic("<= RSET<CR><LF>", 174)));
}

TEST_F(KvioSocketTest, WriteIsLoggedEvenWhenItFails) {
    socket.SetEventLog(&log);
    pair.peer.reset();
    EXPECT_THROW(socket.Write("QUIT"), KvioException);
    EXPECT_THAT(log.entries(), ElementsAre(IsTraffic("<= QUIT", 174)));
}

TEST_F(KvioSocketTest, EmptyWriteSendsAndLogsNothing) {
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.Write(Bytes("x"), 0), 0);
    EXPECT_EQ(socket.Write(""), 0);
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_FALSE(kvtest::BecomesReady(pair.peer.get(), POLLIN, std::chrono::milliseconds(0)));
}

TEST_F(KvioSocketTest, WriteStampsTheActivityTime) {
    socket.ForgetActivity();
    const std::time_t before = std::time(nullptr);
    socket.Write("x");
    EXPECT_GE(socket.GetLastActiveTime(), before);
}

TEST_F(KvioSocketTest, WriteToAPeerThatClosedThrowsAndRaisesNoSigPipe) {
    pair.peer.reset();
    EXPECT_EQ(IoFailureOf([&] { socket.Write("x"); }),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[184] "
              "Msg[Socket Write Error] SysMsg[Broken pipe]");
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST_F(KvioSocketTest, WriteWaitsForASlowReader) {
    const std::string text(1 << 20, 'm');
    auto writing = std::async(std::launch::async, [&] { return socket.Write(text); });
    EXPECT_EQ(writing.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    EXPECT_EQ(ReceiveText(pair.peer.get(), text.size()), text);
    EXPECT_EQ(writing.get(), 1 << 20);
}

TEST_F(KvioSocketTest, InterruptedWriteThrowsWriteError) {
    kvtest::FillSendBuffer(pair.near.get());
    std::string failure;
    kvtest::RunInterrupted([&] { failure = IoFailureOf([&] { socket.Write("x"); }); });
    EXPECT_EQ(failure,
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[184] "
              "Msg[Socket Write Error] SysMsg[Interrupted system call]");
}

TEST_F(KvioSocketTest, WriteToANonBlockingSocketDoesNotWait) {
    socket.SetNonBlockingMode();
    kvtest::FillSendBuffer(pair.near.get());
    EXPECT_EQ(IoFailureOf([&] { socket.Write("x"); }),
              "Exception raised! IO path[mail.example:25] File[../src/KvioSocket] Line[184] "
              "Msg[Socket Write Error] SysMsg[Resource temporarily unavailable]");
}

// --- WriteFormat ---

TEST_F(KvioSocketTest, WriteFormatSendsTheFormattedText) {
    EXPECT_EQ(socket.WriteFormat("%s %d\r\n", "SIZE", 10), 9);
    EXPECT_EQ(ReceiveText(pair.peer.get(), 9), "SIZE 10\r\n");
}

TEST_F(KvioSocketTest, WriteFormatOfANullFormatAnswersZero) {
    const char* const none = nullptr;
    EXPECT_EQ(socket.WriteFormat(none), 0);
}

TEST_F(KvioSocketTest, WriteFormatSendsTheUntruncatedLengthOfALongText) {
    const std::string text(5000, 'x');
    EXPECT_EQ(socket.WriteFormat("%s", text.c_str()), 5000);
    EXPECT_EQ(ReceiveText(pair.peer.get(), 5000), std::string(4094, 'x') + std::string(906, '\0'));
}

TEST_F(KvioSocketTest, WriteFormatKeepsATextOf4094Characters) {
    const std::string text(4094, 'x');
    EXPECT_EQ(socket.WriteFormat("%s", text.c_str()), 4094);
    EXPECT_EQ(ReceiveText(pair.peer.get(), 4094), text);
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
