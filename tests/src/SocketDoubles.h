#pragma once

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "KvEndSignals.h"
#include "KvThreadRegistry.h"
#include "KvioException.h"
#include "KvioSocket.h"
#include "LoopbackSocket.h"
#include "ScopedDescriptor.h"
#include "src/ThreadDoubles.h"

// What the tests of the socket layer share.

namespace kvtest {

/// A socket of the class `Base` that can be given a descriptor and an old activity time.
template <typename Base>
class Attachable : public Base {
public:
    using Base::Base;
    void Attach(int descriptor) { this->m_socket = descriptor; }
    void SetAddress(const std::string& address) { this->m_strRemoteAddress = address; }
    void ForgetActivity() { this->m_tLastActive = 0; }
};

/// Which slot of the virtual table a virtual operation has.
template <typename Operation>
std::size_t SlotOf(Operation operation) {
    std::ptrdiff_t words[2];
    static_assert(sizeof(words) == sizeof(operation));
    std::memcpy(words, &operation, sizeof(words));
    return static_cast<std::size_t>(words[0] - 1) / sizeof(void*);
}

inline unsigned char* Bytes(char* text) {
    return reinterpret_cast<unsigned char*>(text);
}
inline const unsigned char* Bytes(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

inline bool BecomesReady(int descriptor, short events, std::chrono::milliseconds bound = kBound) {
    pollfd entry{descriptor, events, 0};
    return poll(&entry, 1, static_cast<int>(bound.count())) == 1;
}

/// Sends everything; false when that failed or took longer than the bound.
inline bool SendText(int descriptor, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size() && BecomesReady(descriptor, POLLOUT)) {
        const ssize_t result =
            send(descriptor, text.data() + sent, text.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (result <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(result);
    }
    return sent == text.size();
}

/// Receives `size` bytes, fewer when the other side ends or the bound passes.
inline std::string ReceiveText(int descriptor, std::size_t size) {
    std::string text;
    std::array<char, 4096> buffer{};
    while (text.size() < size && BecomesReady(descriptor, POLLIN)) {
        const ssize_t result =
            recv(descriptor, buffer.data(), std::min(buffer.size(), size - text.size()), MSG_DONTWAIT);
        if (result <= 0) {
            break;
        }
        text.append(buffer.data(), static_cast<std::size_t>(result));
    }
    return text;
}

/// Fills the way to the peer of `descriptor`, so that the next send has to wait.
inline void FillSendBuffer(int descriptor) {
    const std::array<char, 65536> block{};
    while (send(descriptor, block.data(), block.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    }
    while (send(descriptor, block.data(), 1, MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    }
}

inline bool HasDescriptorFlag(int descriptor, int flag) {
    return (fcntl(descriptor, F_GETFD) & flag) != 0;
}
inline bool HasStatusFlag(int descriptor, int flag) {
    return (fcntl(descriptor, F_GETFL) & flag) != 0;
}
inline bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

/// Two connected descriptors of this process.
class StreamPair {
public:
    StreamPair() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("socketpair failed");
        }
        near = ScopedDescriptor(ends[0]);
        peer = ScopedDescriptor(ends[1]);
    }

    ScopedDescriptor near;
    ScopedDescriptor peer;
};

/// A listening TCP socket on a free port of the loopback address.
class LoopbackListener {
public:
    LoopbackListener() : m_socket(BoundSocket(0)) { Listen(m_socket, 16); }

    int Port() const { return PortOf(m_socket); }
    /// The path that exceptions of a socket connected to this listener bear.
    std::string Address() const { return "127.0.0.1:" + std::to_string(Port()); }

    /// The next connection; not valid when none came within the bound.
    ScopedDescriptor Accept() const {
        if (!BecomesReady(m_socket.get(), POLLIN)) {
            return ScopedDescriptor();
        }
        return ScopedDescriptor(accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

private:
    ScopedDescriptor m_socket;
};

/// Runs `action`, which must throw KvioException, and hands the exception's description back.
inline std::string IoFailureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (KvioException& exception) {
        return exception.ToString();
    }
    return "nothing was thrown";
}

/// True while SIGPIPE has its default action, is not blocked and is not pending.
inline bool SigPipeIsUntouched() {
    struct sigaction action {};
    sigaction(SIGPIPE, nullptr, &action);
    return action.sa_handler == SIG_DFL && !IsBlockedHere(SIGPIPE) && !IsPendingHere(SIGPIPE);
}

/// Runs `body` on a thread of its own and interrupts it with a handled signal, every millisecond, until it
/// ends or the bound has passed; then waits for its end.
inline void RunInterrupted(const std::function<void()>& body) {
    const int signal = SIGRTMIN + 2;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    sigaction(signal, &action, &before);
    std::atomic<bool> ended{false};
    std::thread thread([&] {
        body();
        ended = true;
    });
    ComesTrue([&] {
        pthread_kill(thread.native_handle(), signal);
        return ended.load();
    });
    thread.join();
    sigaction(signal, &before, nullptr);
}

/// A thread of the library that waits in a wait window, as the delegates of a pool do, and is ended there.
class EndableThread {
public:
    explicit EndableThread(std::function<void()> body) : m_body(std::move(body)) {
        if (KvThreadRegistry::Start(&m_id, nullptr, Run, this) != 0) {
            throw std::runtime_error("no thread");
        }
    }
    ~EndableThread() { Join(); }
    EndableThread(const EndableThread&) = delete;
    EndableThread& operator=(const EndableThread&) = delete;

    /// Sends the end signal. True when the thread was ended inside its body and unwound.
    bool End() {
        KvThreadRegistry::Signal(m_id, SIGQUIT);
        Join();
        return !m_returned;
    }

private:
    static void* Run(void* self) {
        auto& thread = *static_cast<EndableThread*>(self);
        const KvEndSignals::WaitWindow window;
        thread.m_body();
        thread.m_returned = true;
        return nullptr;
    }
    void Join() {
        if (!m_joined) {
            pthread_join(m_id, nullptr);
        }
        m_joined = true;
    }

    std::function<void()> m_body;
    pthread_t m_id{};
    bool m_joined = false;
    bool m_returned = false;  ///< read after the join only
};

}  // namespace kvtest
