#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "KvString.h"
#include "KvioClientSocket.h"
#include "src/SocketDoubles.h"

// The C library answers some questions from one buffer for the whole process. A host may be reading its answer
// while this library asks the same question on another thread, so the library uses the re-entrant forms: each
// test holds an answer of its own and finds it unchanged.

namespace {

constexpr time_t kHeldTime = 86400L * 365 * 2;
constexpr long kOtherTime = 86400L * 365 * 30;

TEST(KvStaticBuffersTest, ConnectLeavesTheHostEntryThatTheProcessHolds) {
    const kvtest::LoopbackListener listener;
    const hostent* const held = gethostbyname("127.0.0.2");
    ASSERT_NE(held, nullptr);
    KvioClientSocket socket;
    EXPECT_EQ(socket.Connect("127.0.0.1", listener.Port(), KvioSocket::SOCKET_TCP), 0);
    socket.Close();
    EXPECT_STREQ(held->h_name, "127.0.0.2");
    EXPECT_EQ(std::memcmp(held->h_addr_list[0], "\x7f\0\0\x02", 4), 0);
}

TEST(KvStaticBuffersTest, LookingUpAPortLeavesTheServiceEntryThatTheProcessHolds) {
    if (KvioSocket::KvAsciiToPort("smtp", "tcp") == -1 || KvioSocket::KvAsciiToPort("domain", "tcp") == -1) {
        GTEST_SKIP() << "this system lists no services, so that there is nothing to hold";
    }
    const servent* const held = getservbyname("domain", "tcp");
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(KvioSocket::KvAsciiToPort("smtp", "tcp"), 25);
    EXPECT_STREQ(held->s_name, "domain");
    EXPECT_EQ(ntohs(static_cast<in_port_t>(held->s_port)), 53);
}

TEST(KvStaticBuffersTest, TimeTextsLeaveTheCalendarTimeThatTheProcessHolds) {
    const tm* const held = localtime(&kHeldTime);
    const tm before = *held;
    EXPECT_NE(KvstringSQLTime(kOtherTime), KvstringSQLTime(static_cast<long>(kHeldTime)));
    EXPECT_EQ(KvstringGetDate(kOtherTime, "%Y"), "1999");
    EXPECT_EQ(held->tm_year, before.tm_year);
    EXPECT_EQ(held->tm_mon, before.tm_mon);
    EXPECT_EQ(held->tm_mday, before.tm_mday);
}

TEST(KvStaticBuffersTest, TheCtimeTextLeavesTheTextThatTheProcessHolds) {
    const char* const held = ctime(&kHeldTime);
    const std::string before = held;
    EXPECT_NE(KvstringSQLCTime(kOtherTime), before.substr(0, 24));
    EXPECT_EQ(held, before);
}

TEST(KvStaticBuffersTest, TokenizeLeavesTheWalkThatTheProcessIsIn) {
    char text[] = "a,b,c";
    ASSERT_STREQ(strtok(text, ","), "a");
    std::vector<std::string> tokens;
    KvstringTokenize("x,y", ",", tokens);
    EXPECT_EQ(tokens, (std::vector<std::string>{"x", "y"}));
    EXPECT_STREQ(strtok(nullptr, ","), "b");
}

}  // namespace
