#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <future>
#include <string>
#include <vector>

#include "AcceptedSocketKit.h"

namespace {

using acceptedsocket::ConnectedSocketTest;
using acceptedsocket::ExpectFailure;
using acceptedsocket::OpenSocket;
using acceptedsocket::ThrownBy;
using kvtest::LogEntry;
using kvtest::Severity;
using namespace std::chrono_literals;

constexpr const char* kSource = "../src/KvioSocket";

class AcceptedSocketRead : public ConnectedSocketTest {
protected:
    int Read(unsigned int size, int timeoutMs, bool noLog = false) {
        return socket.Read(buffer, size, timeoutMs, status, noLog);
    }
    std::string Bytes(int count) const {
        return count < 0
                   ? ""
                   : std::string(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(count));
    }

    unsigned char buffer[256] = {};
};

TEST_F(AcceptedSocketRead, AnswersTheNumberOfBytesAndDone) {
    peer.Send("hello");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(Read(sizeof buffer, 1000), 5);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(Bytes(5), "hello");
}

TEST_F(AcceptedSocketRead, TakesAtMostTheSize) {
    peer.Send("hello");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(Read(2, 1000), 2);
    EXPECT_EQ(Bytes(2), "he");
    EXPECT_EQ(Unread(), "llo");
}

TEST_F(AcceptedSocketRead, AnswersWhatHasComeWithoutWaitingForMore) {
    peer.Send("abc");
    EXPECT_EQ(Read(100, 10000), 3);
}

TEST_F(AcceptedSocketRead, TimesOutWithMinusOneAndTheStatus) {
    EXPECT_EQ(Read(1, 60), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(AcceptedSocketRead, ThatTimesOutIsNoActivity) {
    socket.m_tLastActive = 1;
    Read(1, 60);
    EXPECT_EQ(socket.GetLastActiveTime(), 1);
}

TEST_F(AcceptedSocketRead, ThatTimesOutWritesNoLog) {
    Read(1, 60);
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketRead, ThatSucceedsIsActivity) {
    socket.m_tLastActive = 1;
    const std::time_t before = std::time(nullptr);
    peer.Send("x");
    Read(1, 10000);
    EXPECT_GE(socket.GetLastActiveTime(), before);
    EXPECT_LE(socket.GetLastActiveTime(), std::time(nullptr));
}

TEST_F(AcceptedSocketRead, OfAClosedConnectionIsActivity) {
    socket.m_tLastActive = 1;
    peer.Close();
    ThrownBy([&] { Read(1, 10000); });
    EXPECT_GT(socket.GetLastActiveTime(), 1);
}

TEST_F(AcceptedSocketRead, WithoutLimitBlocksUntilBytesCome) {
    std::future<int> result = std::async(std::launch::async, [&] { return Read(10, -1); });
    EXPECT_EQ(result.wait_for(200ms), std::future_status::timeout);
    peer.Send("late");
    EXPECT_EQ(result.get(), 4);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(AcceptedSocketRead, OfAClosedConnectionThrows) {
    peer.Close();
    ExpectFailure(ThrownBy([&] { Read(1, 10000); }), peer.address(), kSource, 215, "Socket is closed");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketRead, WithoutLimitOfAClosedConnectionThrows) {
    peer.Close();
    ExpectFailure(ThrownBy([&] { Read(1, -1); }), peer.address(), kSource, 215, "Socket is closed");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketRead, DeliversWhatCameBeforeTheClose) {
    peer.Send("bye");
    peer.Close();
    EXPECT_EQ(Read(10, 10000), 3);
    EXPECT_EQ(Bytes(3), "bye");
}

TEST_F(AcceptedSocketRead, OfAResetConnectionThrowsWithTheSystemMessage) {
    peer.Reset();
    KvioException failure = ThrownBy([&] { Read(1, 10000); });
    ExpectFailure(failure, peer.address(), kSource, 209, "Socket Read Error");
    EXPECT_EQ(failure.GetSysMsg(), "Connection reset by peer");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketRead, OfNoBytesThrowsAsAClosedConnectionDoes) {
    peer.Send("x");
    ASSERT_TRUE(IsReadable());
    ExpectFailure(ThrownBy([&] { Read(0, 1000); }), peer.address(), kSource, 215, "Socket is closed");
}

TEST(AcceptedSocketReadFresh, WithoutADescriptorThrowsWithAnEmptyPath) {
    KvioSocket socket;
    unsigned char byte = 0;
    KvioSocket::SocketStatus status = KvioSocket::SOCKET_DONE;
    KvioException failure = ThrownBy([&] { socket.Read(&byte, 1, -1, status); });
    ExpectFailure(failure, "", kSource, 209, "Socket Read Error");
    EXPECT_EQ(failure.GetSysMsg(), "Bad file descriptor");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketRead, LogsTheBytesAsTrace) {
    peer.Send("hello");
    ASSERT_TRUE(IsReadable());
    Read(5, 1000);
    ASSERT_EQ(log.count(), 1);
    const LogEntry entry = log.entries()[0];
    EXPECT_EQ(entry.severity, Severity::Trace);
    EXPECT_EQ(entry.text, "=> hello");
    EXPECT_EQ(entry.line, 226);
    EXPECT_EQ(entry.file, kSource);
}

TEST_F(AcceptedSocketRead, LogsOnlyTheBytesThatWereRead) {
    peer.Send("hello");
    ASSERT_TRUE(IsReadable());
    Read(2, 1000);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"=> he"});
}

TEST_F(AcceptedSocketRead, LogsControlCharactersByName) {
    const std::string bytes("a\r\n\t\0\x1b\x01%s", 9);
    peer.Send(bytes);
    ASSERT_TRUE(IsReadable());
    ASSERT_EQ(Read(9, 1000), 9);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"=> a<CR><LF><TAB><NUL><ESC><01>%s"});
}

TEST_F(AcceptedSocketRead, LogsNothingWhenAskedNotTo) {
    peer.Send("secret");
    Read(6, 10000, true);
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketRead, LogsNothingWithoutALog) {
    socket.SetEventLog(nullptr);
    peer.Send("hello");
    EXPECT_GT(Read(5, 10000), 0);
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketRead, ThatThrowsWritesNoLog) {
    peer.Close();
    ThrownBy([&] { Read(1, 10000); });
    EXPECT_EQ(log.count(), 0);
}

// ---- one byte ----

TEST_F(AcceptedSocketRead, OfACharAnswersTheByte) {
    peer.Send(std::string("A\0\xff", 3));
    EXPECT_EQ(socket.ReadChar(10000, status), 'A');
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(socket.ReadChar(10000, status), 0);
    EXPECT_EQ(socket.ReadChar(10000, status), 255);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(AcceptedSocketRead, OfACharAnswers255AtATimeOut) {
    EXPECT_EQ(socket.ReadChar(60, status), 255);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(AcceptedSocketRead, OfACharTakesOneByteOnly) {
    peer.Send("xyz");
    ASSERT_TRUE(IsReadable());
    socket.ReadChar(1000, status);
    EXPECT_EQ(Unread(), "yz");
}

TEST_F(AcceptedSocketRead, OfACharIsLogged) {
    peer.Send("x");
    socket.ReadChar(10000, status);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"=> x"});
}

TEST_F(AcceptedSocketRead, OfACharIsNotLoggedWhenAskedNotTo) {
    peer.Send("x");
    socket.ReadChar(10000, status, true);
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketRead, OfACharThrowsForAClosedConnection) {
    peer.Close();
    ExpectFailure(ThrownBy([&] { socket.ReadChar(10000, status); }), peer.address(), kSource, 215,
                  "Socket is closed");
}

}  // namespace
