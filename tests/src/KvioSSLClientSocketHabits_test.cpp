#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "KvioSSLClientSocket.h"
#include "TempDir.h"
#include "TestCertificates.h"
#include "src/SocketDoubles.h"
#include "src/TlsPeer.h"

// Habits of the TLS socket that hosts know it by: what StartSSL does to the process's random numbers, which names
// it compares, and what the operations without a TLS form do.

namespace {

using kvtest::ReceiveText;
using kvtest::TestCertificates;
using kvtest::TlsConnection;
using kvtest::TlsPeer;

class KvioSSLClientSocketHabitsTest : public ::testing::Test {
protected:
    KvioSSLClientSocketHabitsTest() { socket.m_strCAFile = certificates.caFile(); }

    /// Connects to a server that runs `script` and starts TLS.
    void StartTls(TlsPeer::Script script, const TlsPeer::Options& options = {}) {
        peer.emplace(options, std::move(script));
        socket.Connect("127.0.0.1", peer->Port(), KvioSocket::SOCKET_TCP);
        ASSERT_NO_THROW(socket.StartSSL());
    }

    const TestCertificates& certificates = TestCertificates::Shared();
    KvioSocket::SocketStatus status{};
    std::optional<TlsPeer> peer;
    KvioSSLClientSocket socket;
};

// --- random numbers ---

/// The number behind the first hundred that rand() gives from `seed`.
int NumberBehindAHundred(std::time_t seed) {
    std::srand(static_cast<unsigned int>(seed));
    for (int i = 0; i < 100; ++i) {
        std::rand();
    }
    return std::rand();
}

TEST_F(KvioSSLClientSocketHabitsTest, StartSeedsRandWithTheTimeAndTakesAHundredNumbers) {
    const std::time_t before = std::time(nullptr);
    EXPECT_THROW(socket.StartSSL(), KvioException);  // without a connection it fails in the handshake, later
    const int next = std::rand();
    const std::time_t after = std::time(nullptr);
    bool found = false;
    for (std::time_t seed = before; seed <= after; ++seed) {
        found = found || NumberBehindAHundred(seed) == next;
    }
    EXPECT_TRUE(found);
}

// The interface through which a generator is watched is marked as deprecated by OpenSSL 3.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

/// While it lives, OpenSSL's generator is its own one, but seeds of callers are only measured.
class MeasuredSeeds {
public:
    MeasuredSeeds() : m_method(*RAND_OpenSSL()) {
        s_sizes.clear();
        m_method.seed = [](const void*, int size) {
            s_sizes.push_back(size);
            return 1;
        };
        RAND_set_rand_method(&m_method);
    }
    ~MeasuredSeeds() { RAND_set_rand_method(RAND_OpenSSL()); }
    MeasuredSeeds(const MeasuredSeeds&) = delete;
    MeasuredSeeds& operator=(const MeasuredSeeds&) = delete;

    /// In bytes, one for each seed.
    const std::vector<int>& Sizes() const { return s_sizes; }

private:
    inline static std::vector<int> s_sizes;
    RAND_METHOD m_method;
};

#pragma GCC diagnostic pop

TEST_F(KvioSSLClientSocketHabitsTest, OnlyFourBytesOfTheHundredNumbersReachOpenSsl) {
    const MeasuredSeeds seeds;
    EXPECT_THROW(socket.StartSSL(), KvioException);
    EXPECT_EQ(seeds.Sizes(), std::vector<int>{4});
}

// --- the server's name ---

TEST_F(KvioSSLClientSocketHabitsTest, NameOfTheServersCertificateIsNotComparedWithTheHost) {
    StartTls([](TlsConnection& client) { client.AwaitEnd(); }, {.certificate = certificates.client()});
}

// --- the floor of the versions ---

class ShowingSocket : public KvioSSLClientSocket {
public:
    long Floor() const { return m_pSSL == nullptr ? -1 : SSL_get_min_proto_version(m_pSSL); }
};

/// Ends this process: with 0 when a socket that was started has that floor.
[[noreturn]] void ExitIfFloorIs(long expected, const std::string& caFile) {
    ShowingSocket socket;
    socket.m_strCAFile = caFile;
    EXPECT_THROW(socket.StartSSL(), KvioException);  // in the handshake, behind the settings
    std::exit(socket.Floor() == expected ? 0 : 1);
}

/// What OpenSSL reads as the system's configuration in processes that are started meanwhile.
class SystemPolicy {
public:
    explicit SystemPolicy(const std::string& file) {
        if (const char* const before = std::getenv(kName)) {
            m_before = before;
        }
        setenv(kName, file.c_str(), 1);
    }
    ~SystemPolicy() {
        if (m_before) {
            setenv(kName, m_before->c_str(), 1);
        } else {
            unsetenv(kName);
        }
    }
    SystemPolicy(const SystemPolicy&) = delete;
    SystemPolicy& operator=(const SystemPolicy&) = delete;

private:
    static constexpr const char* kName = "OPENSSL_CONF";
    std::optional<std::string> m_before;
};

/// A configuration that allows nothing below TLS 1.2; removed at the end of the process.
std::string PolicyOfTls12() {
    static const kvtest::TempDir dir;
    return dir.write("openssl.cnf",
                     "openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\nsystem_default = floor\n"
                     "[floor]\nMinProtocol = TLSv1.2\n");
}

using KvioSSLClientSocketHabitsDeathTest = KvioSSLClientSocketHabitsTest;

TEST_F(KvioSSLClientSocketHabitsDeathTest, FloorIsTls10WhereTheSystemSetsNone) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const SystemPolicy none("/dev/null");
    EXPECT_EXIT(ExitIfFloorIs(TLS1_VERSION, certificates.caFile()), testing::ExitedWithCode(0), "");
}

TEST_F(KvioSSLClientSocketHabitsDeathTest, FloorOfTheSystemIsNotLowered) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const SystemPolicy tls12(PolicyOfTls12());
    EXPECT_EXIT(ExitIfFloorIs(TLS1_2_VERSION, certificates.caFile()), testing::ExitedWithCode(0), "");
}

// --- operations without a TLS form ---

// Version 1.2, where no session tickets follow the handshake: the next record is the one that the script sends.

TEST_F(KvioSSLClientSocketHabitsTest, ReadersOfThePlainSocketReadTheRecordsOfTls) {
    constexpr int kApplicationDataRecord = 23;
    StartTls(
        [](TlsConnection& client) {
            client.Send("x");
            client.AwaitEnd();
        },
        {.maxVersion = TLS1_2_VERSION});
    EXPECT_EQ(socket.ReadChar(20000, status), kApplicationDataRecord);
}

TEST_F(KvioSSLClientSocketHabitsTest, WriteFormatWritesInClearInsideTls) {
    std::string received;
    StartTls([&](TlsConnection& client) { received = ReceiveText(client.Descriptor(), 7); },
             {.maxVersion = TLS1_2_VERSION});
    EXPECT_EQ(socket.WriteFormat("QUIT%d\r\n", 1), 7);
    peer->Finish();
    EXPECT_EQ(received, "QUIT1\r\n");
}

}  // namespace
