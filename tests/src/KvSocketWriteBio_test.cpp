#include "KvSocketWriteBio.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "src/SocketDoubles.h"

namespace {

struct BioDeleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

class KvSocketWriteBioTest : public testing::Test {
protected:
    /// Writes until the socket takes no more; the result of the last call.
    int Fill() {
        fcntl(m_pair.near.get(), F_SETFL, O_NONBLOCK);
        const std::vector<char> block(65536, 'x');
        int result = 1;
        while (result > 0) {
            result = BIO_write(m_bio.get(), block.data(), static_cast<int>(block.size()));
        }
        return result;
    }

    kvtest::StreamPair m_pair;
    std::unique_ptr<BIO, BioDeleter> m_bio{KvSocketWriteBio::New(m_pair.near.get())};
};

TEST_F(KvSocketWriteBioTest, WhatIsWrittenReachesThePeer) {
    EXPECT_EQ(BIO_write(m_bio.get(), "hello", 5), 5);
    std::array<char, 10> buffer{};
    EXPECT_EQ(recv(m_pair.peer.get(), buffer.data(), buffer.size(), 0), 5);
    EXPECT_STREQ(buffer.data(), "hello");
}

TEST_F(KvSocketWriteBioTest, AWriteToAPeerThatIsGoneFailsForGoodAndRaisesNoSignal) {
    m_pair.peer.reset();
    EXPECT_EQ(BIO_write(m_bio.get(), "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_FALSE(BIO_should_retry(m_bio.get()));
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST_F(KvSocketWriteBioTest, AWriteThatWouldWaitIsToBeTriedAgain) {
    EXPECT_EQ(Fill(), -1);
    EXPECT_TRUE(BIO_should_retry(m_bio.get()));
    EXPECT_TRUE(BIO_should_write(m_bio.get()));
}

TEST_F(KvSocketWriteBioTest, AWriteThatSucceedsIsNotToBeTriedAgain) {
    ASSERT_EQ(Fill(), -1);
    std::vector<char> taken(1 << 20);
    while (recv(m_pair.peer.get(), taken.data(), taken.size(), MSG_DONTWAIT) > 0) {
    }
    EXPECT_EQ(BIO_write(m_bio.get(), "x", 1), 1);
    EXPECT_FALSE(BIO_should_retry(m_bio.get()));
}

TEST_F(KvSocketWriteBioTest, TheDescriptorIsKnownAndStaysTheCallers) {
    EXPECT_EQ(BIO_get_fd(m_bio.get(), nullptr), m_pair.near.get());
    m_bio.reset();
    EXPECT_EQ(fcntl(m_pair.near.get(), F_GETFD), FD_CLOEXEC);
}

}  // namespace
