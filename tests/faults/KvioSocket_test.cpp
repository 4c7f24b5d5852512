#include "KvioSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <vector>

#include "faults/SystemCalls.h"
#include "src/SocketDoubles.h"

// Which waits the socket asks the system for.

namespace {

using kvtest::Bytes;
using kvtest::Interception;
using kvtest::SendText;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr long kNoLimit = -1;

/// A socket with a peer; every wait that it asks for is written down, and the first ones can be made to fail.
class KvioSocketFaultTest : public ::testing::Test {
protected:
    KvioSocketFaultTest()
        : m_selects(SystemCall::Select, [this](const SystemCallArguments& call) { return Answer(call); }) {
        socket.Attach(pair.near.get());
    }

    kvtest::StreamPair pair;
    kvtest::Attachable<KvioSocket> socket;
    KvioSocket::SocketStatus status{};
    char buffer[16] = {};
    std::vector<int> failures;  ///< error numbers of the first waits
    std::vector<long> waits;    ///< milliseconds

private:
    std::optional<int> Answer(const SystemCallArguments& call) {
        const bool limited = call.number == 1;
        const long milliseconds = static_cast<long>(call.deadline.tv_sec) * 1000 +
                                  static_cast<long>(call.deadline.tv_nsec) / 1000000;
        waits.push_back(limited ? milliseconds : kNoLimit);
        return waits.size() <= failures.size() ? std::optional<int>(failures[waits.size() - 1])
                                               : std::nullopt;
    }

    Interception m_selects;
};

TEST_F(KvioSocketFaultTest, EveryByteOfATimedLineWaitsTheWholeTimeoutAfresh) {
    SendText(pair.peer.get(), "AB\n");
    EXPECT_EQ(socket.ReadLine(1500, status), "AB\n");
    EXPECT_THAT(waits, ElementsAre(1500, 1500, 1500));
}

TEST_F(KvioSocketFaultTest, EveryByteUpToATerminatorWaitsTheWholeTimeoutAfresh) {
    SendText(pair.peer.get(), "A..");
    EXPECT_EQ(socket.ReadTill(Bytes(".."), 1500, status), "A..");
    EXPECT_THAT(waits, ElementsAre(1500, 1500, 1500));
}

TEST_F(KvioSocketFaultTest, AReadWithoutATimeoutDoesNotSelect) {
    SendText(pair.peer.get(), "A");
    EXPECT_EQ(socket.Read(Bytes(buffer), 1, -1, status), 1);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_THAT(waits, IsEmpty());
}

TEST_F(KvioSocketFaultTest, AnUntimedLineDoesNotSelect) {
    SendText(pair.peer.get(), "AB\n");
    EXPECT_EQ(socket.ReadLine(status, 80), "AB");
    EXPECT_THAT(waits, IsEmpty());
}

TEST_F(KvioSocketFaultTest, AWaitWithoutATimeoutHasNoLimit) {
    EXPECT_EQ(socket.Wait(false, true, -1), 34);
    EXPECT_THAT(waits, ElementsAre(kNoLimit));
}

TEST_F(KvioSocketFaultTest, AnInterruptedWaitIsNotRepeated) {
    failures = {EINTR};
    EXPECT_EQ(socket.Wait(false, true, 1500), 36);
    EXPECT_THAT(waits, ElementsAre(1500));
    waits.clear();
    EXPECT_EQ(socket.Wait(false, true, -1), 36);
    EXPECT_THAT(waits, ElementsAre(kNoLimit));
}

TEST_F(KvioSocketFaultTest, AWaitThatFailsOtherwiseIsRepeatedUntilItSucceeds) {
    failures = {EINVAL, EBADF, ENOMEM};
    EXPECT_EQ(socket.Wait(false, true, 1500), 34);
    EXPECT_THAT(waits, ElementsAre(1500, 1500, 1500, 1500));
    waits.clear();
    EXPECT_EQ(socket.Wait(false, true, -1), 34);
    EXPECT_THAT(waits, ElementsAre(kNoLimit, kNoLimit, kNoLimit, kNoLimit));
}

}  // namespace
