#include "src/KvioSSLClientSocketFixture.h"

namespace kvtlssockettest {
namespace {

// --- reading in TLS ---

TEST_F(KvioSSLClientSocketTest, ReadAnswersTheDecryptedBytesAndLogsThem) {
    StartTls([](TlsConnection& client) { client.Send("250 ok\r\n"); });
    socket.SetEventLog(&log);
    EXPECT_EQ(Read(20000), 8);
    EXPECT_EQ(TextOf(8), "250 ok\r\n");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_THAT(log.entries(),
                ElementsAre(IsTraffic("=> 250 ok<CR><LF>", 284, "../src/KvioSSLClientSocket")));
}

TEST_F(KvioSSLClientSocketTest, ReadWithoutATimeoutWaitsForData) {
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        client.Send("late");
    });
    auto reading = std::async(std::launch::async, [&] { return Read(-1); });
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    latch.Open();
    EXPECT_EQ(reading.get(), 4);
    EXPECT_EQ(TextOf(4), "late");
}

TEST_F(KvioSSLClientSocketTest, ReadTimesOutWhenTheServerSaysNothing) {
    StartTls(AwaitEnd, {.maxVersion = TLS1_2_VERSION});
    EXPECT_EQ(Read(20), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_EQ(Read(0), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_EQ(std::string(buffer), "");
}

// A server of TLS 1.3 sends session tickets after the handshake: the descriptor is readable without any data.
TEST_F(KvioSSLClientSocketTest, ReadTimesOutWhenOnlyRecordsWithoutDataCome) {
    StartTls(AwaitEnd);
    ASSERT_EQ(socket.Wait(true, false, 20000), 33);
    EXPECT_EQ(Read(50), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(KvioSSLClientSocketTest, ReadAfterATimeoutAnswersTheData) {
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        client.Send("late");
    });
    EXPECT_EQ(Read(20), -1);
    latch.Open();
    EXPECT_EQ(Read(20000), 4);
    EXPECT_EQ(TextOf(4), "late");
}

TEST_F(KvioSSLClientSocketTest, DecryptedBytesDoNotEndAWait) {
    StartTls([&](TlsConnection& client) {
        client.Send("abcdef");
        client.AwaitEnd();
    });
    ASSERT_EQ(socket.Read(Bytes(buffer), 3, 20000, status), 3);
    EXPECT_EQ(TextOf(3), "abc");
    EXPECT_EQ(socket.Read(Bytes(buffer), 3, 20, status), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_EQ(socket.Read(Bytes(buffer), 3, -1, status), 3);
    EXPECT_EQ(TextOf(3), "def");
}

TEST_F(KvioSSLClientSocketTest, ReadStampsTheActivityTime) {
    StartTls([](TlsConnection& client) { client.Send("x"); });
    socket.ForgetActivity();
    const std::time_t before = std::time(nullptr);
    Read(20000);
    EXPECT_GE(socket.GetLastActiveTime(), before);
}

TEST_F(KvioSSLClientSocketTest, ClosingAlertOfTheServerThrowsClosed) {
    StartTls([](TlsConnection& client) { client.SendClosingAlert(); });
    errno = 0;
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }), ReadFailure(273, "SSL Socket is closed", "Success"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
    EXPECT_EQ(socket.GetSSLErrorString(0),
              "SSL_ERROR_ZERO_RETURN. The TLS/SSL connection has been closed.  Error: "
              "error:00000006:lib(0)::reason(6)");
}

TEST_F(KvioSSLClientSocketTest, EndWithoutAClosingAlertThrows) {
    StartTls([](TlsConnection& client) { client.Send("x"); });
    ASSERT_EQ(Read(20000), 1);
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }), ReadFailure(273, "SSL Socket is closed", "Success"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSSLClientSocketTest, ResetByTheServerThrowsReadError) {
    StartTls([&](TlsConnection& client) {
        client.Send("x");
        const linger abort{1, 0};
        setsockopt(client.Descriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
        latch.Wait();
    });
    ASSERT_EQ(Read(20000), 1);
    latch.Open();
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }),
              ReadFailure(267, "SSL Socket Read Error", "Connection reset by peer"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
    EXPECT_EQ(socket.GetSSLErrorString(-1),
              "SSL_ERROR_SYSCALL. Some I/O error occurred.  Error: error:00000005:lib(0)::reason(5)");
}

TEST_F(KvioSSLClientSocketTest, GarbageInsteadOfARecordThrowsReadError) {
    StartTls([&](TlsConnection& client) {
        client.Send("x");
        SendText(client.Descriptor(), "this is no TLS record at all");
        client.AwaitEnd();
    });
    ASSERT_EQ(Read(20000), 1);
    errno = 0;
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }), ReadFailure(267, "SSL Socket Read Error", "Success"));
}

TEST_F(KvioSSLClientSocketTest, FailedReadsAreNotLogged) {
    StartTls([](TlsConnection& client) { client.SendClosingAlert(); });
    socket.SetEventLog(&log);
    EXPECT_THROW(Read(20000), KvioException);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSSLClientSocketTest, ReadWhoseWaitIsInterruptedAnswersMinusOneAndError) {
    StartTls(AwaitEnd);
    int result = 0;
    kvtest::RunInterrupted([&] { result = Read(20000); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSSLClientSocketTest, InterruptedReadWithoutATimeoutThrowsReadError) {
    StartTls(AwaitEnd);
    std::string failure;
    kvtest::RunInterrupted([&] { failure = IoFailureOf([&] { Read(-1); }); });
    EXPECT_EQ(failure, ReadFailure(267, "SSL Socket Read Error", "Interrupted system call"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

// --- writing in TLS ---

TEST_F(KvioSSLClientSocketTest, WritesReachTheServerAndAreLoggedAfterwards) {
    std::string received;
    StartTls([&](TlsConnection& client) { received = client.Receive(15); });
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.Write(Bytes("EHLO x\r\n"), 8), 8);
    EXPECT_EQ(socket.Write(std::string("NOOP \0\n", 7)), 7);
    peer->Finish();
    EXPECT_EQ(received, std::string("EHLO x\r\nNOOP \0\n", 15));
    EXPECT_THAT(log.entries(),
                ElementsAre(IsTraffic("<= EHLO x<CR><LF>", 303, "../src/KvioSSLClientSocket"),
                            IsTraffic("<= NOOP <NUL><LF>", 326, "../src/KvioSSLClientSocket")));
}

TEST_F(KvioSSLClientSocketTest, WriteAsTwoReachesTheServerAndIsLoggedAsTwoWritesAfterwards) {
    std::string received;
    StartTls([&](TlsConnection& client) { received = client.Receive(9); });
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.WriteAsTwo("Text\r\n.\r\n", 6), 9);
    peer->Finish();
    EXPECT_EQ(received, "Text\r\n.\r\n");
    EXPECT_THAT(log.entries(), ElementsAre(IsTraffic("<= Text<CR><LF>", 326, "../src/KvioSSLClientSocket"),
                                           IsTraffic("<= .<CR><LF>", 303, "../src/KvioSSLClientSocket")));
}

TEST_F(KvioSSLClientSocketTest, WriteLeavesTheActivityTime) {
    StartTls(AwaitEnd);
    socket.ForgetActivity();
    socket.Write("x");
    EXPECT_EQ(socket.GetLastActiveTime(), 0);
}

TEST_F(KvioSSLClientSocketTest, EmptyWriteNeitherThrowsNorLogs) {
    StartTls(AwaitEnd);
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.Write(Bytes("x"), 0), 0);
    EXPECT_EQ(socket.Write(""), 0);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSSLClientSocketTest, WriteToAServerThatIsGoneThrowsRaisesNoSigPipeAndIsNotLogged) {
    StartTlsAndLoseTheServer();
    socket.SetEventLog(&log);
    EXPECT_EQ(IoFailureOf([&] { socket.Write("x"); }), Plain("SSL Write Error"));
    EXPECT_EQ(IoFailureOf([&] { socket.Write(Bytes("x"), 1); }), Plain("SSL Write Error"));
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST_F(KvioSSLClientSocketTest, WriteWaitsForASlowReader) {
    constexpr int kManyBytes = 16 << 20;  // more than the system keeps on the way
    const std::string text(kManyBytes, 'm');
    std::string received;
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        received = client.Receive(kManyBytes);
    });
    auto writing = std::async(std::launch::async, [&] { return socket.Write(text); });
    EXPECT_EQ(writing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    latch.Open();
    EXPECT_EQ(writing.get(), kManyBytes);
    peer->Finish();
    EXPECT_EQ(received, text);
}

TEST_F(KvioSSLClientSocketTest, InterruptedWriteThrowsWriteError) {
    StartTls([&](TlsConnection&) { latch.Wait(); });
    std::string failure;
    kvtest::RunInterrupted([&] { failure = IoFailureOf([&] { socket.Write(std::string(64 << 20, 'm')); }); });
    latch.Open();
    EXPECT_EQ(failure, Plain("SSL Write Error"));
}

TEST_F(KvioSSLClientSocketTest, DescriptorsAbove1024CarryTls) {
    const kvtest::OccupiedDescriptors occupied(1100);
    StartTls([](TlsConnection& client) { client.Send(client.Receive(4)); });
    EXPECT_GE(socket.GetSocket(), 1100);
    socket.Write("echo");
    EXPECT_EQ(Read(20000), 4);
    EXPECT_EQ(TextOf(4), "echo");
}

// --- the text operators ---

TEST_F(KvioSSLClientSocketTest, TextOperatorsWorkInTls) {
    StartTls([](TlsConnection& client) { client.Send(client.Receive(8)); });
    std::string text;
    socket << "ping"
           << "pong";
    ASSERT_EQ(socket >> text, 8);
    EXPECT_EQ(text, "pingpong");
}

TEST_F(KvioSSLClientSocketTest, ExtractionTakesAtMost1000Bytes) {
    const ScopedDescriptor server = ConnectPlain();
    SendText(server.get(), std::string(1500, 'x'));
    std::string text;
    EXPECT_EQ(socket >> text, 1000);
    EXPECT_EQ(text, std::string(1000, 'x'));
    EXPECT_EQ(socket >> text, 500);
    EXPECT_EQ(text, std::string(500, 'x'));
}

TEST_F(KvioSSLClientSocketTest, ExtractionStopsTheTextAtTheFirstNul) {
    const ScopedDescriptor server = ConnectPlain();
    SendText(server.get(), std::string("ab\0cd", 5));
    std::string text = "before";
    EXPECT_EQ(socket >> text, 5);
    EXPECT_EQ(text, "ab");
}

TEST_F(KvioSSLClientSocketTest, ExtractionThatFailsLeavesTheText) {
    const ScopedDescriptor server = ConnectPlain();
    std::string text = "before";
    int result = 0;
    kvtest::RunInterrupted([&] { result = socket >> text; });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(text, "before");
}

class RecordingSocket : public KvioSSLClientSocket {
public:
    using KvioSSLClientSocket::Write;
    int Write(const unsigned char* data, unsigned int size) override {
        written.assign(reinterpret_cast<const char*>(data), size);
        return static_cast<int>(size);
    }
    int Read(unsigned char* out, unsigned int size, int timeoutMs, SocketStatus&) override {
        requestedSize = size;
        requestedTimeout = timeoutMs;
        out[0] = 'r';
        return 1;
    }

    std::string written;
    unsigned int requestedSize = 0;
    int requestedTimeout = 0;
};

TEST_F(KvioSSLClientSocketTest, TextOperatorsUseTheVirtualReadAndWrite) {
    RecordingSocket recording;
    std::string text;
    recording << std::string("a\0b", 3);
    EXPECT_EQ(recording.written, std::string("a\0b", 3));
    EXPECT_EQ(recording >> text, 1);
    EXPECT_EQ(text, "r");
    EXPECT_EQ(recording.requestedSize, 1000U);
    EXPECT_EQ(recording.requestedTimeout, 60000);
}

}  // namespace
}  // namespace kvtlssockettest
