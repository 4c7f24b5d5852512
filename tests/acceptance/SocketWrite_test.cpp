#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <ctime>
#include <future>
#include <string>
#include <vector>

#include "AcceptedSocketKit.h"

namespace {

using acceptedsocket::ConnectedSocketTest;
using acceptedsocket::ExpectFailure;
using acceptedsocket::ThrownBy;
using kvtest::LogEntry;
using kvtest::Severity;

constexpr const char* kSource = "../src/KvioSocket";

class AcceptedSocketWrite : public ConnectedSocketTest {
protected:
    int WriteBytes(const std::string& bytes) {
        return socket.Write(reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<unsigned int>(bytes.size()));
    }

    /// Closes the connection from afar and waits until this side knows.
    void LoseThePeer() {
        peer.Reset();
        ASSERT_TRUE(IsReadable());
    }
};

TEST_F(AcceptedSocketWrite, AnswersTheNumberOfBytes) {
    EXPECT_EQ(WriteBytes("hello"), 5);
    EXPECT_EQ(peer.Receive(5), "hello");
}

TEST_F(AcceptedSocketWrite, OfAStringSendsAllOfIt) {
    const std::string text("a\0b\r\n", 5);
    EXPECT_EQ(socket.Write(text), 5);
    EXPECT_EQ(peer.Receive(5), text);
}

TEST_F(AcceptedSocketWrite, GoesOnUntilEverythingIsSent) {
    std::string bytes(8 * 1024 * 1024, 'x');
    for (std::size_t i = 0; i < bytes.size(); i += 1000) {
        bytes[i] = static_cast<char>('a' + i / 1000 % 26);
    }
    std::future<std::string> received =
        std::async(std::launch::async, [&] { return peer.Receive(bytes.size()); });
    EXPECT_EQ(socket.Write(bytes), static_cast<int>(bytes.size()));
    EXPECT_TRUE(received.get() == bytes);
}

TEST_F(AcceptedSocketWrite, OfNothingSendsNothing) {
    EXPECT_EQ(WriteBytes(""), 0);
    EXPECT_EQ(socket.Write(std::string()), 0);
    socket.Close();
    EXPECT_EQ(peer.ReceiveToTheEnd(), "");
}

TEST_F(AcceptedSocketWrite, OfNothingWritesNoLog) {
    WriteBytes("");
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketWrite, IsActivity) {
    socket.m_tLastActive = 1;
    const std::time_t before = std::time(nullptr);
    socket.Write("x");
    EXPECT_GE(socket.GetLastActiveTime(), before);
    EXPECT_LE(socket.GetLastActiveTime(), std::time(nullptr));
}

TEST_F(AcceptedSocketWrite, OfNothingIsActivity) {
    socket.m_tLastActive = 1;
    WriteBytes("");
    EXPECT_GT(socket.GetLastActiveTime(), 1);
}

TEST_F(AcceptedSocketWrite, LogsTheBytesAsTrace) {
    WriteBytes("MAIL\r\n");
    ASSERT_EQ(log.count(), 1);
    const LogEntry entry = log.entries()[0];
    EXPECT_EQ(entry.severity, Severity::Trace);
    EXPECT_EQ(entry.text, "<= MAIL<CR><LF>");
    EXPECT_EQ(entry.line, 174);
    EXPECT_EQ(entry.file, kSource);
}

TEST_F(AcceptedSocketWrite, OfAStringIsLoggedTheSameWay) {
    socket.Write("100%s\n");
    ASSERT_EQ(log.count(), 1);
    EXPECT_EQ(log.entries()[0].text, "<= 100%s<LF>");
    EXPECT_EQ(log.entries()[0].line, 174);
}

TEST_F(AcceptedSocketWrite, LogsHighBytesAsTheFirstFourCharactersOfTheirSignExtendedValue) {
    socket.Write("\xe9x");
    EXPECT_EQ(log.texts(), std::vector<std::string>{"<= <FFFx"});
}

TEST_F(AcceptedSocketWrite, NeedsNoLog) {
    socket.SetEventLog(nullptr);
    EXPECT_EQ(socket.Write("x"), 1);
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketWrite, ToALostPeerThrows) {
    ASSERT_NO_FATAL_FAILURE(LoseThePeer());
    // The first write may still report the reset, which every later one answers with a broken pipe.
    ThrownBy([&] { socket.Write("x"); });
    KvioException failure = ThrownBy([&] { socket.Write("x"); });
    ExpectFailure(failure, peer.address(), kSource, 184, "Socket Write Error");
    EXPECT_EQ(failure.GetSysMsg(), "Broken pipe");
}

TEST_F(AcceptedSocketWrite, ThatThrowsHasLoggedTheBytes) {
    ASSERT_NO_FATAL_FAILURE(LoseThePeer());
    ThrownBy([&] { socket.Write("lost"); });
    EXPECT_EQ(log.texts(), std::vector<std::string>{"<= lost"});
}

TEST_F(AcceptedSocketWrite, ToALostPeerRaisesNoSignal) {
    ASSERT_NO_FATAL_FAILURE(LoseThePeer());
    struct sigaction before = {};
    struct sigaction deadly = {};
    deadly.sa_handler = SIG_DFL;
    sigaction(SIGPIPE, &deadly, &before);
    ThrownBy([&] { socket.Write("x"); });
    ThrownBy([&] { socket.Write("x"); });
    sigaction(SIGPIPE, &before, nullptr);
}

TEST(AcceptedSocketWriteFresh, WithoutADescriptorThrowsWithAnEmptyPath) {
    KvioSocket socket;
    KvioException failure = ThrownBy([&] { socket.Write("x"); });
    ExpectFailure(failure, "", kSource, 184, "Socket Write Error");
    EXPECT_EQ(failure.GetSysMsg(), "Bad file descriptor");
}

TEST(AcceptedSocketWriteFresh, OfNothingWithoutADescriptorAnswersZero) {
    KvioSocket socket;
    EXPECT_EQ(socket.Write(std::string()), 0);
}

// ---- formatted ----

TEST_F(AcceptedSocketWrite, OfAFormatSendsTheFormattedText) {
    EXPECT_EQ(socket.WriteFormat("RCPT TO:<%s> %d\r\n", "a@b", 7), 17);
    EXPECT_EQ(peer.Receive(17), "RCPT TO:<a@b> 7\r\n");
}

TEST_F(AcceptedSocketWrite, OfAFormatIsLogged) {
    socket.WriteFormat("%s\n", "QUIT");
    ASSERT_EQ(log.count(), 1);
    EXPECT_EQ(log.entries()[0].text, "<= QUIT<LF>");
    EXPECT_EQ(log.entries()[0].line, 174);
}

TEST_F(AcceptedSocketWrite, OfANullFormatAnswersZeroAndSendsNothing) {
    const char* none = nullptr;
    socket.m_tLastActive = 1;
    EXPECT_EQ(socket.WriteFormat(none, 0), 0);
    EXPECT_EQ(log.count(), 0);
    EXPECT_EQ(socket.GetLastActiveTime(), 1);
    socket.Close();
    EXPECT_EQ(peer.ReceiveToTheEnd(), "");
}

TEST_F(AcceptedSocketWrite, OfAnEmptyFormattedTextSendsNothing) {
    EXPECT_EQ(socket.WriteFormat("%s", ""), 0);
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketWrite, OfAFormatThatFitsTheBufferIsWhole) {
    const std::string text(4094, 'x');
    EXPECT_EQ(socket.WriteFormat("%s", text.c_str()), 4094);
    EXPECT_EQ(peer.Receive(4094), text);
}

TEST_F(AcceptedSocketWrite, OfALongFormattedTextSendsAsManyBytesAsItWouldHaveHad) {
    const std::string text(5000, 'x');
    EXPECT_EQ(socket.WriteFormat("%s", text.c_str()), 5000);
    const std::string received = peer.Receive(5000);
    ASSERT_EQ(received.size(), 5000U);
    EXPECT_EQ(received.substr(0, 4094), text.substr(0, 4094));
    EXPECT_EQ(received.substr(4095), std::string(905, '\0'));
}

TEST_F(AcceptedSocketWrite, OfAFormatToALostPeerThrows) {
    ASSERT_NO_FATAL_FAILURE(LoseThePeer());
    ExpectFailure(ThrownBy([&] { socket.WriteFormat("%d", 1); }), peer.address(), kSource, 184,
                  "Socket Write Error");
}

}  // namespace
