#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

#include <fstream>
#include <memory>

#include "KvEndSignals.h"
#include "KvconThread.h"
#include "KvioClientSocket.h"
#include "KvioSSLClientSocket.h"
#include "TestCertificates.h"
#include "TestPorts.h"
#include "src/SocketDoubles.h"
#include "src/TlsPeer.h"

// What a signal does to the waits of the sockets that stand for a blocking call of the system.

namespace {

using kvtest::Bytes;
using kvtest::ComesTrue;
using kvtest::Latch;
using kvtest::LoopbackListener;
using kvtest::ReceiveText;
using kvtest::ScopedDescriptor;
using kvtest::SendText;
using kvtest::StreamPair;
using kvtest::TlsConnection;
using kvtest::TlsPeer;

constexpr int kInterruptions = 5;

std::atomic<int> g_handled{0};
std::atomic<pthread_t> g_handler{};

/// A handled signal, installed for a while.
class HandledSignal {
public:
    explicit HandledSignal(int number, int flags) : m_number(number) {
        struct sigaction action {};
        action.sa_handler = [](int) {
            g_handler = pthread_self();
            ++g_handled;
        };
        action.sa_flags = flags;
        sigaction(m_number, &action, &m_before);
        g_handled = 0;
    }
    ~HandledSignal() { sigaction(m_number, &m_before, nullptr); }
    HandledSignal(const HandledSignal&) = delete;
    HandledSignal& operator=(const HandledSignal&) = delete;

    int Number() const { return m_number; }

private:
    int m_number;
    struct sigaction m_before {};
};

/// A thread whose body waits for a peer; others look whether it still does.
class WaitingThread {
public:
    explicit WaitingThread(std::function<void()> body)
        : m_body(std::move(body)), m_thread([this] {
              m_task = static_cast<int>(syscall(SYS_gettid));
              m_body();
              m_ended = true;
          }) {}
    ~WaitingThread() { Join(); }
    WaitingThread(const WaitingThread&) = delete;
    WaitingThread& operator=(const WaitingThread&) = delete;

    void Join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    bool HasEnded() const { return m_ended; }
    pthread_t Id() { return m_thread.native_handle(); }

    /// True once the thread sleeps; false when its body ended, or never slept within the bound.
    bool Waits() const {
        return ComesTrue([this] { return m_ended || Sleeps(); }) && !m_ended;
    }
    /// Sends a signal and waits until its handler has run, or the body has ended.
    void Interrupt(int signal) {
        const int before = g_handled;
        pthread_kill(Id(), signal);
        ComesTrue([&] { return g_handled > before || m_ended; });
    }
    /// True when the thread waits, still, after several signals.
    bool WaitsThrough(const HandledSignal& signal) {
        for (int times = 0; times < kInterruptions && Waits(); ++times) {
            Interrupt(signal.Number());
        }
        return Waits();
    }

private:
    bool Sleeps() const {
        std::ifstream file("/proc/self/task/" + std::to_string(m_task) + "/stat");
        std::string text;
        std::getline(file, text);
        const std::size_t name = text.rfind(')');
        return name != std::string::npos && text.size() > name + 2 && text[name + 2] == 'S';
    }

    const std::function<void()> m_body;
    std::atomic<int> m_task{0};
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

class KvioInterruptedWaitTest : public ::testing::Test {
protected:
    KvioInterruptedWaitTest() {
        socket.Attach(pair.near.get());
        tls.m_strCAFile = kvtest::TestCertificates::Shared().caFile();
    }

    void StartTls(TlsPeer::Script script) {
        peer = std::make_unique<TlsPeer>(std::move(script));
        tls.Connect("127.0.0.1", peer->Port(), KvioSocket::SOCKET_TCP);
        tls.StartSSL();
    }

    const int restarting = SIGRTMIN + 3;
    const int ending = SIGRTMIN + 4;
    StreamPair pair;
    kvtest::Attachable<KvioSocket> socket;
    Latch latch;
    std::unique_ptr<TlsPeer> peer;
    KvioSSLClientSocket tls;
    KvioSocket::SocketStatus status{};
    char buffer[64] = {};
};

// --- the wait itself ---

TEST_F(KvioInterruptedWaitTest, AHandlerInstalledWithRestartLetsAWaitGoOn) {
    const HandledSignal signal(restarting, SA_RESTART);
    int result = 0;
    WaitingThread waiter([&] { result = KvEndSignals::Await(pair.near.get(), POLLIN, -1); });
    EXPECT_TRUE(waiter.WaitsThrough(signal));
    EXPECT_EQ(g_handled, kInterruptions);
    SendText(pair.peer.get(), "x");
    waiter.Join();
    EXPECT_EQ(result, 1);
}

TEST_F(KvioInterruptedWaitTest, AHandlerInstalledWithoutRestartEndsAWaitAndRunsOnce) {
    const HandledSignal signal(ending, 0);
    int result = 0;
    int error = 0;
    WaitingThread waiter([&] {
        result = KvEndSignals::Await(pair.near.get(), POLLIN, -1);
        error = errno;
    });
    ASSERT_TRUE(waiter.Waits());
    waiter.Interrupt(signal.Number());
    waiter.Join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EINTR);
    EXPECT_EQ(g_handled, 1);
}

TEST_F(KvioInterruptedWaitTest, TheHandlersOfTheLibraryAndThoseOfFaultsLetAnotherWithRestartPass) {
    const kvtest::SavedSignalHandlers handlers;
    KvconThread::InitializeLibrary();
    const HandledSignal fault(SIGBUS, 0);
    const HandledSignal signal(restarting, SA_RESTART);
    int result = 0;
    WaitingThread waiter([&] { result = KvEndSignals::Await(pair.near.get(), POLLIN, -1); });
    EXPECT_TRUE(waiter.WaitsThrough(signal));
    SendText(pair.peer.get(), "x");
    waiter.Join();
    EXPECT_EQ(result, 1);
}

TEST_F(KvioInterruptedWaitTest, TheHandlersOfTheLibraryEndAWait) {
    const kvtest::SavedSignalHandlers handlers;
    KvconThread::InitializeLibrary();
    int result = 0;
    int error = 0;
    WaitingThread waiter([&] {
        result = KvEndSignals::Await(pair.near.get(), POLLIN, -1);
        error = errno;
    });
    ASSERT_TRUE(waiter.Waits());
    pthread_kill(waiter.Id(), SIGUSR2);
    waiter.Join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EINTR);
}

TEST_F(KvioInterruptedWaitTest, AThreadThatWasSuspendedInItsWaitFindsItEnded) {
    const kvtest::SavedSignalHandlers handlers;
    KvconThread::InitializeLibrary();
    int result = 0;
    WaitingThread waiter([&] { result = KvEndSignals::Await(pair.near.get(), POLLIN, -1); });
    ASSERT_TRUE(waiter.Waits());
    pthread_kill(waiter.Id(), SIGUSR1);
    ASSERT_TRUE(ComesTrue([&] {  // resumed as often as it takes: the handler may not be suspended yet
        pthread_kill(waiter.Id(), SIGUSR2);
        return waiter.HasEnded();
    }));
    waiter.Join();
    EXPECT_EQ(result, -1);
}

TEST_F(KvioInterruptedWaitTest, WhereTheHostHasHandlersOfBothKindsEveryOneEndsAWait) {
    const HandledSignal other(ending, 0);
    const HandledSignal signal(restarting, SA_RESTART);
    int result = 0;
    WaitingThread waiter([&] { result = KvEndSignals::Await(pair.near.get(), POLLIN, -1); });
    ASSERT_TRUE(waiter.Waits());
    waiter.Interrupt(signal.Number());
    waiter.Join();
    EXPECT_EQ(result, -1);
}

TEST_F(KvioInterruptedWaitTest, AHandlerWithoutRestartOfASignalThatTheThreadBlocksDoesNotMatter) {
    const HandledSignal other(ending, 0);
    const HandledSignal signal(restarting, SA_RESTART);
    int result = 0;
    WaitingThread waiter([&] {
        const kvtest::BlockedSignals blocked({ending});
        result = KvEndSignals::Await(pair.near.get(), POLLIN, -1);
    });
    EXPECT_TRUE(waiter.WaitsThrough(signal));
    SendText(pair.peer.get(), "x");
    waiter.Join();
    EXPECT_EQ(result, 1);
}

TEST_F(KvioInterruptedWaitTest, ASignalOfTheProcessThatAnotherThreadTakesLetsAWaitGoOn) {
    const HandledSignal signal(ending, 0);
    int result = 0;
    WaitingThread waiter([&] { result = KvEndSignals::Await(pair.near.get(), POLLIN, -1); });
    for (int times = 1; times <= 20 && waiter.Waits(); ++times) {
        kill(getpid(), signal.Number());
        EXPECT_TRUE(ComesTrue([&] { return g_handled == times; }));
        EXPECT_EQ(g_handler, pthread_self());
    }
    EXPECT_TRUE(waiter.Waits());
    SendText(pair.peer.get(), "x");
    waiter.Join();
    EXPECT_EQ(result, 1);
}

TEST_F(KvioInterruptedWaitTest, ARestartedWaitKeepsItsTimeout) {
    const HandledSignal signal(restarting, SA_RESTART);
    const auto start = std::chrono::steady_clock::now();
    int result = -1;
    WaitingThread waiter([&] { result = KvEndSignals::Await(pair.near.get(), POLLIN, 100); });
    EXPECT_TRUE(ComesTrue([&] {
        pthread_kill(waiter.Id(), signal.Number());
        return waiter.HasEnded();
    }));
    waiter.Join();
    EXPECT_EQ(result, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(99));
}

TEST_F(KvioInterruptedWaitTest, AnEndSignalEndsAWorkerInItsWait) {
    const kvtest::SavedSignalHandlers handlers;
    KvconThread::InitializeLibrary();
    kvtest::EndableThread worker([&] { KvEndSignals::Await(pair.near.get(), POLLIN, -1); });
    EXPECT_TRUE(worker.End());
}

TEST_F(KvioInterruptedWaitTest, AnEndSignalEndsAThreadOfAnotherOwnerInItsWait) {
    const kvtest::SavedSignalHandlers handlers;
    KvconThread::InitializeLibrary();
    std::atomic<bool> unwound{false};
    struct Unwound {
        std::atomic<bool>& flag;
        ~Unwound() { flag = true; }
    };
    WaitingThread waiter([&] {
        const Unwound mark{unwound};
        KvEndSignals::Await(pair.near.get(), POLLIN, -1);
    });
    ASSERT_TRUE(waiter.Waits());
    pthread_kill(waiter.Id(), SIGQUIT);
    waiter.Join();
    EXPECT_TRUE(unwound);
    EXPECT_FALSE(waiter.HasEnded());
}

// --- plain sockets ---

TEST_F(KvioInterruptedWaitTest, AReadGoesOnAfterAHandlerInstalledWithRestart) {
    const HandledSignal signal(restarting, SA_RESTART);
    int result = 0;
    WaitingThread reader([&] { result = socket.Read(Bytes(buffer), sizeof(buffer), -1, status); });
    EXPECT_TRUE(reader.WaitsThrough(signal));
    SendText(pair.peer.get(), "220 ready\r\n");
    reader.Join();
    EXPECT_EQ(result, 11);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(KvioInterruptedWaitTest, AnUntimedLineGoesOnAfterAHandlerInstalledWithRestart) {
    const HandledSignal signal(restarting, SA_RESTART);
    std::string line;
    WaitingThread reader([&] { line = socket.ReadLine(status, 100); });
    SendText(pair.peer.get(), "220 ");
    EXPECT_TRUE(reader.WaitsThrough(signal));
    SendText(pair.peer.get(), "ready\r\n");
    reader.Join();
    EXPECT_EQ(line, "220 ready");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

TEST_F(KvioInterruptedWaitTest, AReadWithATimeoutIsEndedByEveryHandler) {
    const HandledSignal signal(restarting, SA_RESTART);
    int result = 0;
    WaitingThread reader([&] { result = socket.Read(Bytes(buffer), sizeof(buffer), 20000, status); });
    ASSERT_TRUE(reader.Waits());
    reader.Interrupt(signal.Number());
    reader.Join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioInterruptedWaitTest, AWriteGoesOnAfterAHandlerInstalledWithRestart) {
    const HandledSignal signal(restarting, SA_RESTART);
    constexpr int kManyBytes = 4 << 20;  // more than the system keeps on the way
    const std::string text(kManyBytes, 'm');
    int written = 0;
    WaitingThread writer([&] { written = socket.Write(text); });
    EXPECT_TRUE(writer.WaitsThrough(signal));
    const std::string received = ReceiveText(pair.peer.get(), kManyBytes);
    writer.Join();
    EXPECT_EQ(written, kManyBytes);
    EXPECT_EQ(received, text);
}

TEST_F(KvioInterruptedWaitTest, AConnectGoesOnAfterAHandlerInstalledWithRestart) {
    const HandledSignal signal(restarting, SA_RESTART);
    auto unanswering = std::make_unique<kvtest::UnansweringPort>();
    KvioClientSocket client;
    const int port = unanswering->port();
    std::string failure;
    WaitingThread connecting([&] {
        failure = kvtest::IoFailureOf([&] { client.Connect("127.0.0.1", port, KvioSocket::SOCKET_TCP); });
    });
    EXPECT_TRUE(connecting.WaitsThrough(signal));
    unanswering.reset();  // from now on the system refuses
    connecting.Join();
    client.Close();
    EXPECT_NE(failure.find("Msg[Socket Connecting Failed]"), std::string::npos);
}

// --- TLS ---

TEST_F(KvioInterruptedWaitTest, AHandshakeGoesOnAfterAHandlerInstalledWithRestart) {
    const HandledSignal signal(restarting, SA_RESTART);
    const LoopbackListener listener;
    tls.Connect("127.0.0.1", listener.Port(), KvioSocket::SOCKET_TCP);
    ScopedDescriptor server = listener.Accept();
    std::string failure;
    WaitingThread handshake([&] { failure = kvtest::IoFailureOf([&] { tls.StartSSL(); }); });
    EXPECT_TRUE(handshake.WaitsThrough(signal));
    SendText(server.get(), "220 this is no TLS\r\n");
    handshake.Join();
    EXPECT_NE(failure.find("SSL_ERROR_SSL. "), std::string::npos) << failure;
}

TEST_F(KvioInterruptedWaitTest, AReadInTlsGoesOnAfterAHandlerInstalledWithRestart) {
    const HandledSignal signal(restarting, SA_RESTART);
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        client.Send("220 ready\r\n");
        client.AwaitEnd();
    });
    int result = 0;
    WaitingThread reader([&] { result = tls.Read(Bytes(buffer), sizeof(buffer), -1, status); });
    EXPECT_TRUE(reader.WaitsThrough(signal));
    latch.Open();
    reader.Join();
    EXPECT_EQ(result, 11);
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
}

int UnreadBytes(int descriptor) {
    int count = -1;
    ioctl(descriptor, FIONREAD, &count);
    return count;
}

TEST_F(KvioInterruptedWaitTest, AReadWithATimeoutGoesOnWaitingForTheRestOfARecord) {
    const HandledSignal signal(restarting, SA_RESTART);
    Latch sent;
    StartTls([&](TlsConnection& client) {
        SendText(client.Descriptor(), "\x17\x03\x03");  // the beginning of a record
        sent.Open();
        latch.Wait();
    });
    ASSERT_TRUE(sent.Wait());
    std::string failure;
    WaitingThread reader([&] {
        failure = kvtest::IoFailureOf([&] { tls.Read(Bytes(buffer), sizeof(buffer), 20000, status); });
    });
    // Past the wait for the first byte, which every handler ends.
    ASSERT_TRUE(ComesTrue([&] { return UnreadBytes(tls.GetSocket()) == 0; }));
    EXPECT_TRUE(reader.WaitsThrough(signal));
    latch.Open();
    reader.Join();
    EXPECT_NE(failure.find("Msg[SSL Socket"), std::string::npos) << failure;
}

TEST_F(KvioInterruptedWaitTest, AWriteInTlsGoesOnAfterAHandlerInstalledWithRestart) {
    const HandledSignal signal(restarting, SA_RESTART);
    constexpr int kManyBytes = 16 << 20;  // more than the system keeps on the way
    const std::string text(kManyBytes, 'm');
    std::string received;
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        received = client.Receive(kManyBytes);
    });
    int written = 0;
    WaitingThread writer([&] { written = tls.Write(text); });
    EXPECT_TRUE(writer.WaitsThrough(signal));
    latch.Open();
    writer.Join();
    peer->Finish();
    EXPECT_EQ(written, kManyBytes);
    EXPECT_TRUE(received == text);
}

}  // namespace
