#include "src/KvioSocketFixture.h"

namespace kvsockettest {
namespace {

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

TEST_F(KvioSocketTest, WriteAsTwoSendsOnceAndLogsTwoWrites) {
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.WriteAsTwo("Text\r\n.\r\n", 6), 9);
    ASSERT_TRUE(kvtest::BecomesReady(pair.peer.get(), POLLIN));
    char received[64] = {};
    EXPECT_EQ(recv(pair.peer.get(), received, sizeof(received), 0), 9);
    EXPECT_STREQ(received, "Text\r\n.\r\n");
    EXPECT_THAT(log.entries(),
                ElementsAre(IsTraffic("<= Text<CR><LF>", 174), IsTraffic("<= .<CR><LF>", 174)));
}

TEST_F(KvioSocketTest, WriteAsTwoThatFailsLogsItsFirstPartOnly) {
    socket.SetEventLog(&log);
    pair.peer.reset();
    EXPECT_THROW(socket.WriteAsTwo("Text\r\n.\r\n", 6), KvioException);
    EXPECT_THAT(log.entries(), ElementsAre(IsTraffic("<= Text<CR><LF>", 174)));
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

}  // namespace
}  // namespace kvsockettest
