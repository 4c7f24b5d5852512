#include "src/KvioSocketFixture.h"

namespace kvsockettest {
namespace {

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

}  // namespace
}  // namespace kvsockettest
