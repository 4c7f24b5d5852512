#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "AcceptedSocketKit.h"

namespace {

using acceptedsocket::ConnectedSocketTest;
using acceptedsocket::ExpectFailure;
using acceptedsocket::ThrownBy;
using namespace std::chrono_literals;

const std::string kSixBytes("AB\r\0C\n", 6);

/// Milliseconds: longer than each pause of SendSlowly, shorter than all of them together.
constexpr int kLongerThanAPause = 1900;

/// Sends "abcd" and a line feed. The pauses are the subject of the tests: they are what the time-outs are set against.
void SendSlowly(acceptedsocket::Peer& peer) {
    for (const char* byte : {"a", "b", "c", "d", "\n"}) {
        std::this_thread::sleep_for(400ms);  // five of them make 2 s
        peer.Send(byte);
    }
}

// ---- the untimed reader ----

class AcceptedSocketLine : public ConnectedSocketTest {
protected:
    std::string ReadLine(int initialSize = 64) { return socket.ReadLine(status, initialSize); }
};

TEST_F(AcceptedSocketLine, EndsAtTheLineFeedWhichIsNotStored) {
    peer.Send("one\ntwo\n");
    EXPECT_EQ(ReadLine(), "one");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReadLine(), "two");
}

TEST_F(AcceptedSocketLine, DropsCarriageReturnsAndNulsEverywhere) {
    peer.Send(kSixBytes);
    EXPECT_EQ(ReadLine(), "ABC");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(AcceptedSocketLine, MayBeEmpty) {
    peer.Send("\r\nrest\n");
    EXPECT_EQ(ReadLine(), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReadLine(), "rest");
}

TEST_F(AcceptedSocketLine, KeepsEveryOtherByte) {
    std::string bytes;
    for (int c = 1; c < 256; ++c) {
        if (c != '\n' && c != '\r') {
            bytes.push_back(static_cast<char>(c));
        }
    }
    peer.Send(bytes + "\n");
    EXPECT_EQ(ReadLine(), bytes);
}

TEST_F(AcceptedSocketLine, WithInitialSizeZeroReadsNothing) {
    peer.Send("line\n");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(ReadLine(0), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(Unread(), "line\n");
}

class AcceptedSocketLineLength : public ConnectedSocketTest, public testing::WithParamInterface<int> {};

TEST_P(AcceptedSocketLineLength, HasNoMaximum) {
    const std::string line(static_cast<std::size_t>(GetParam()), 'x');
    peer.Send(line + "\n");
    EXPECT_EQ(socket.ReadLine(status, 1), line);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

INSTANTIATE_TEST_SUITE_P(Lengths, AcceptedSocketLineLength, testing::Values(1, 2, 512, 513, 1025, 20000));

TEST_F(AcceptedSocketLine, OfAPeerThatClosedIsThePartWithDone) {
    peer.Send("part");
    peer.Close();
    EXPECT_EQ(ReadLine(), "part");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReadLine(), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(AcceptedSocketLine, OfAFailedReadIsThePartWithTheErrorStatus) {
    peer.Send("part");
    ASSERT_TRUE(IsReadable());
    ASSERT_EQ(Unread(), "part");
    socket.SetNonBlockingMode();
    EXPECT_EQ(ReadLine(), "part");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketLine, OfAResetConnectionDoesNotThrow) {
    peer.Reset();
    EXPECT_EQ(ReadLine(), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketLine, WaitsWithoutLimit) {
    std::future<std::string> line = std::async(std::launch::async, [&] { return ReadLine(); });
    EXPECT_EQ(line.wait_for(200ms), std::future_status::timeout);
    peer.Send("late\n");
    EXPECT_EQ(line.get(), "late");
}

TEST_F(AcceptedSocketLine, IsNotLogged) {
    peer.Send("line\n");
    ReadLine();
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketLine, IsNoActivity) {
    socket.m_tLastActive = 1;
    peer.Send("line\n");
    ReadLine();
    EXPECT_EQ(socket.GetLastActiveTime(), 1);
}

// ---- the timed reader ----

class AcceptedSocketTimedLine : public ConnectedSocketTest {
protected:
    std::string ReadLine(int timeoutMs = 10000) { return socket.ReadLine(timeoutMs, status); }
};

TEST_F(AcceptedSocketTimedLine, EndsWithItsLineEnd) {
    peer.Send("220 hello\r\n250 next\r\n");
    EXPECT_EQ(ReadLine(), "220 hello\r\n");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(ReadLine(), "250 next\r\n");
}

TEST_F(AcceptedSocketTimedLine, KeepsAllBytes) {
    peer.Send(kSixBytes);
    EXPECT_EQ(ReadLine(), kSixBytes);
}

TEST_F(AcceptedSocketTimedLine, KeepsABlankOf255) {
    peer.Send("\xff\n");
    EXPECT_EQ(ReadLine(), "\xff\n");
}

TEST_F(AcceptedSocketTimedLine, OfATimeOutIsThePartWithTheStatus) {
    peer.Send("part");
    ASSERT_TRUE(IsReadable());
    EXPECT_EQ(ReadLine(100), "part");
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(AcceptedSocketTimedLine, MayWaitWithoutLimit) {
    std::future<std::string> line = std::async(std::launch::async, [&] { return ReadLine(-1); });
    EXPECT_EQ(line.wait_for(200ms), std::future_status::timeout);
    peer.Send("late\r\n");
    EXPECT_EQ(line.get(), "late\r\n");
}

TEST_F(AcceptedSocketTimedLine, OfSilenceIsEmpty) {
    EXPECT_EQ(ReadLine(60), "");
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(AcceptedSocketTimedLine, WaitsForEveryByteAfresh) {
    std::thread sender([this] { SendSlowly(peer); });
    EXPECT_EQ(ReadLine(kLongerThanAPause), "abcd\n");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    sender.join();
}

TEST_F(AcceptedSocketTimedLine, LogsEveryByteAsALineOfItsOwn) {
    peer.Send("ok\r\n");
    ReadLine();
    EXPECT_EQ(log.texts(), (std::vector<std::string>{"=> o", "=> k", "=> <CR>", "=> <LF>"}));
    for (const kvtest::LogEntry& entry : log.entries()) {
        EXPECT_EQ(entry.line, 226);
        EXPECT_EQ(entry.file, "../src/KvioSocket");
    }
}

TEST_F(AcceptedSocketTimedLine, IsActivity) {
    socket.m_tLastActive = 1;
    peer.Send("\n");
    ReadLine();
    EXPECT_GT(socket.GetLastActiveTime(), 1);
}

TEST_F(AcceptedSocketTimedLine, OfAPeerThatClosedThrows) {
    peer.Send("part");
    peer.Close();
    ExpectFailure(ThrownBy([&] { ReadLine(); }), peer.address(), "../src/KvioSocket", 215,
                  "Socket is closed");
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(AcceptedSocketTimedLine, HasNoMaximum) {
    const std::string line = std::string(3000, 'y') + "\r\n";
    peer.Send(line);
    EXPECT_EQ(ReadLine(), line);
}

// ---- up to a terminator ----

class AcceptedSocketTill : public ConnectedSocketTest {
protected:
    std::string ReadTill(const std::string& terminator, int timeoutMs = 10000) {
        return socket.ReadTill(reinterpret_cast<const unsigned char*>(terminator.c_str()), timeoutMs, status);
    }
};

struct Till {
    const char* name;
    std::string terminator;
    std::string sent;
    std::string result;
};

class AcceptedSocketTillFound : public AcceptedSocketTill, public testing::WithParamInterface<Till> {};

TEST_P(AcceptedSocketTillFound, StopsBehindTheTerminator) {
    peer.Send(GetParam().sent + "rest");
    EXPECT_EQ(ReadTill(GetParam().terminator), GetParam().result);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_EQ(socket.ReadChar(10000, status), 'r');
}

std::string Times(std::size_t count, char c) {
    return std::string(count, c);
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, AcceptedSocketTillFound,
    testing::Values(Till{"Whole", "\r\n.\r\n", "x\r\n.\r\n", "x\r\n.\r\n"},
                    Till{"RestartAtTheFirstByte", "\r\n.\r\n", "\r\r\n.\r\n", "\r\r\n.\r\n"},
                    Till{"TerminatorOnly", "\r\n.\r\n", "\r\n.\r\n", "\r\n.\r\n"},
                    Till{"OneByte", ">", "ab>", "ab>"}, Till{"PartsOfItBefore", "END", "EEND", "EEND"},
                    Till{"AcrossTheChunk", "\r\n", Times(1021, 'a') + "\r\n", Times(1021, 'a') + "\r\n"},
                    Till{"AtTheChunksEnd", "\r\n", Times(1020, 'a') + "\r\n", Times(1020, 'a') + "\r\n"},
                    Till{"SeveralChunks", "\r\n", Times(5000, 'a') + "\r\n", Times(5000, 'a') + "\r\n"},
                    Till{"ANulCutsItsChunk", "\r\n", std::string("ab\0cd\r\n", 7), "ab"},
                    Till{"ANulCutsNoOtherChunk", "\r\n",
                         Times(10, 'a') + Times(1, '\0') + Times(1011, 'b') + "cc\r\n",
                         Times(10, 'a') + "cc\r\n"},
                    Till{"ANulCutsNoEarlierChunk", "\r\n", Times(1022, 'a') + Times(1, '\0') + "cc\r\n",
                         Times(1022, 'a')}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(AcceptedSocketTill, MissesATerminatorThatBeginsInsideAPartialMatch) {
    peer.Send("aaab");
    EXPECT_EQ(ReadTill("aab", 100), "aaab");
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(AcceptedSocketTill, OfATimeOutIsThePartWithoutAByteForTheFailedRead) {
    peer.Send("part");
    EXPECT_EQ(ReadTill("\n", 100), "part");
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(AcceptedSocketTill, LogsTheWholeTextAsOneLine) {
    peer.Send("a\r\nb\r\n.\r\n");
    ReadTill("\r\n.\r\n");
    EXPECT_EQ(log.texts(), std::vector<std::string>{"=> a<CR><LF>b<CR><LF>.<CR><LF>"});
    EXPECT_EQ(log.entries()[0].severity, kvtest::Severity::Trace);
    EXPECT_EQ(log.entries()[0].file, "../src/KvioSocket");
}

TEST_F(AcceptedSocketTill, LogsThePartOfATimeOut) {
    peer.Send("part");
    ReadTill("\n", 100);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"=> part"});
}

TEST_F(AcceptedSocketTill, LogsNothingForAnEmptyResult) {
    EXPECT_EQ(ReadTill("\n", 60), "");
    EXPECT_EQ(log.count(), 0);
}

TEST_F(AcceptedSocketTill, MayWaitWithoutLimit) {
    std::future<std::string> text = std::async(std::launch::async, [&] { return ReadTill("\n", -1); });
    EXPECT_EQ(text.wait_for(200ms), std::future_status::timeout);
    peer.Send("late\n");
    EXPECT_EQ(text.get(), "late\n");
}

TEST_F(AcceptedSocketTill, NeedsNoLog) {
    socket.SetEventLog(nullptr);
    peer.Send("x\n");
    EXPECT_EQ(ReadTill("\n"), "x\n");
}

TEST_F(AcceptedSocketTill, WaitsForEveryByteAfresh) {
    std::thread sender([this] { SendSlowly(peer); });
    EXPECT_EQ(ReadTill("\n", kLongerThanAPause), "abcd\n");
    sender.join();
}

TEST_F(AcceptedSocketTill, OfAPeerThatClosedThrows) {
    peer.Send("part");
    peer.Close();
    ExpectFailure(ThrownBy([&] { ReadTill("\n"); }), peer.address(), "../src/KvioSocket", 215,
                  "Socket is closed");
}

}  // namespace
