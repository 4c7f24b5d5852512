#include "KvioSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "KvCoreHelpers.h"
#include "KvDescriptorSet.h"
#include "KvEndSignals.h"
#include "KvLog.h"
#include "KvNonBlockingMode.h"
#include "KvioException.h"

namespace {

constexpr const char* kSource = "../src/KvioSocket";
constexpr int kLineSent = 174;
constexpr int kLineWriteError = 184;
constexpr int kLineReadError = 209;
constexpr int kLineClosed = 215;
constexpr int kLineReceived = 226;

constexpr int kNoTimeout = -1;
constexpr unsigned char kNoByte = 255;
constexpr std::size_t kChunkLimit = 1022;
constexpr std::size_t kFormatLimit = 4095;

/// What m_socket holds after `descriptor` was closed, and the other way round.
constexpr int ClosedMark(int descriptor) {
    return -2 - descriptor;
}

bool WouldWait() {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

timespec ToTimespec(int timeoutMs) {
    return {timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
}

std::string SafeText(const void* data, std::size_t size) {
    return KvstringSafeByteString(static_cast<char*>(const_cast<void*>(data)), static_cast<int>(size));
}

/// The next length of the match of `terminator` when `matched` bytes of it are followed by `c`.
std::size_t NextMatch(const char* terminator, std::size_t matched, char c) {
    if (c == terminator[matched]) {
        return matched + 1;
    }
    return c == terminator[0] ? 1 : 0;
}

/// The bytes read by ReadTill, in chunks that end at their first NUL.
class ChunkedText {
public:
    void Add(char c) {
        m_chunk += c;
        if (m_chunk.size() == kChunkLimit) {
            CloseChunk();
        }
    }

    std::string Take() {
        CloseChunk();
        return std::move(m_text);
    }

private:
    void CloseChunk() {
        m_text += m_chunk.c_str();  // NOLINT(readability-redundant-string-cstr): up to the first NUL
        m_chunk.clear();
    }

    std::string m_text;
    std::string m_chunk;
};

}  // namespace

KvioSocket::KvioSocket()
    : m_socket(-1), m_pEventHandler(nullptr), m_tLastActive(std::time(nullptr)), m_pEventLog(nullptr) {}

KvioSocket::~KvioSocket() {
    delete m_pEventHandler;
}

int KvioSocket::Close() {
    const int result = close(m_socket);
    if (m_socket >= 0) {
        m_socket = ClosedMark(m_socket);
    }
    return result;
}

void KvioSocket::ShutDown() {
    shutdown(m_socket, SHUT_RDWR);
}

int KvioSocket::GetSocket() const {
    return m_socket < -1 ? ClosedMark(m_socket) : m_socket;
}

// A peer that is near answers while others run: what is there then costs no sleep and no waking.
int KvioSocket::Wait(bool read, bool write, int timeoutMs) {
    if (read && timeoutMs != 0) {
        sched_yield();
    }
    const int descriptor = GetSocket();
    const timespec timeout = ToTimespec(timeoutMs);
    KvDescriptorSet reads(descriptor);
    KvDescriptorSet writes(descriptor);
    int result = -1;
    while (result == -1) {
        reads.Set(read);
        writes.Set(write);
        result = KvEndSignals::Select(descriptor + 1, reads.Get(), writes.Get(),
                                      timeoutMs == kNoTimeout ? nullptr : &timeout);
        if (result == -1) {
            if (errno == EINTR) {
                return SOCKET_ERROR;
            }
            KvEndSignals::LetIn();
        }
    }
    if (result == 0) {
        return SOCKET_TIMEOUT;
    }
    if (reads.Contains()) {
        return SOCKET_READABLE;
    }
    return writes.Contains() ? SOCKET_WRITABLE : SOCKET_ERROR;
}

int KvioSocket::Read(unsigned char* buffer, unsigned int size, int timeoutMs, SocketStatus& status,
                     bool noLog) {
    status = SOCKET_READABLE;
    if (timeoutMs != kNoTimeout) {
        status = static_cast<SocketStatus>(Wait(true, false, timeoutMs));
        if (status != SOCKET_READABLE) {
            return -1;
        }
    }
    m_tLastActive = std::time(nullptr);
    const long received = Receive(buffer, size);
    if (received < 0) {
        status = SOCKET_ERROR;
        throw KvioException(m_strRemoteAddress, kSource, kLineReadError, "Socket Read Error",
                            KvgetLastError());
    }
    if (received == 0) {
        status = SOCKET_ERROR;
        throw KvioException(m_strRemoteAddress, kSource, kLineClosed, "Socket is closed", KvgetLastError());
    }
    status = SOCKET_DONE;
    if (!noLog) {
        LogReceived(buffer, static_cast<std::size_t>(received), kLineReceived, kSource);
    }
    return static_cast<int>(received);
}

int KvioSocket::ReadChar(int timeoutMs, SocketStatus& status, bool noLog) {
    unsigned char c = 0;
    return Read(&c, 1, timeoutMs, status, noLog) == 1 ? c : kNoByte;
}

std::string KvioSocket::ReadLine(SocketStatus& status, int initialSize) {
    std::string line;
    status = SOCKET_DONE;
    if (initialSize == 0) {
        return line;
    }
    if (initialSize > 0) {
        line.reserve(static_cast<std::size_t>(initialSize));
    }
    char c = 0;
    long received = 0;
    while ((received = Receive(&c, 1)) > 0 && c != '\n') {
        if (c != '\r' && c != '\0') {
            line += c;
        }
    }
    if (received < 0) {
        status = SOCKET_ERROR;
    }
    return line;
}

std::string KvioSocket::ReadLine(int timeoutMs, SocketStatus& status) {
    std::string line;
    char c = 0;
    while (c != '\n') {
        c = static_cast<char>(ReadChar(timeoutMs, status));
        if (status == SOCKET_TIMEOUT || status == SOCKET_ERROR) {
            break;
        }
        line += c;
    }
    return line;
}

std::string KvioSocket::ReadTill(const unsigned char* terminator, int timeoutMs, SocketStatus& status) {
    const char* const wanted = reinterpret_cast<const char*>(terminator);
    const std::size_t length = std::strlen(wanted);
    ChunkedText collected;
    status = SOCKET_DONE;
    for (std::size_t matched = 0; matched < length;) {
        const char c = static_cast<char>(ReadChar(timeoutMs, status, true));
        if (status == SOCKET_TIMEOUT || status == SOCKET_ERROR) {
            break;
        }
        collected.Add(c);
        matched = NextMatch(wanted, matched, c);
    }
    const std::string text = collected.Take();
    LogReceived(text.data(), text.size(), kLineReceived, kSource);
    return text;
}

int KvioSocket::Write(const unsigned char* data, unsigned int size) {
    LogSent(data, size, kLineSent, kSource);
    SendAll(data, size);
    return static_cast<int>(size);
}

void KvioSocket::SendAll(const unsigned char* data, std::size_t size) {
    m_tLastActive = std::time(nullptr);
    std::size_t sent = 0;
    while (sent < size) {
        const long result = Send(data + sent, size - sent);
        if (result < 0) {
            throw KvioException(m_strRemoteAddress, kSource, kLineWriteError, "Socket Write Error",
                                KvgetLastError());
        }
        sent += static_cast<std::size_t>(result);
    }
}

int KvioSocket::Write(const std::string& text) {
    return Write(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned int>(text.size()));
}

int KvioSocket::WriteAsTwo(const std::string& text, std::size_t first) {
    LogSent(text.data(), first, kLineSent, kSource);
    SendAll(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    LogSent(text.data() + first, text.size() - first, kLineSent, kSource);
    return static_cast<int>(text.size());
}

int KvioSocket::WriteFormat(const char* format, ...) {
    if (format == nullptr) {
        return 0;
    }
    std::string text(kFormatLimit + 1, '\0');
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text.data(), kFormatLimit, format, arguments);
    va_end(arguments);
    if (length < 0) {
        return -1;
    }
    text.resize(static_cast<std::size_t>(length));
    return Write(text);
}

int KvioSocket::SetNonBlockingMode() {
    return fcntl(m_socket, F_SETFL, O_NONBLOCK);
}

int KvioSocket::KvAsciiToPort(const char* service, const char* protocol) {
    std::vector<char> buffer(1024);
    servent entry{};
    servent* found = nullptr;
    while (getservbyname_r(service, protocol, &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(2 * buffer.size());
    }
    return found == nullptr ? -1 : ntohs(static_cast<in_port_t>(found->s_port));
}

int KvioSocket::GetErrorCode() {
    return errno;
}

bool KvioSocket::InitialLibrary() {
    return true;
}

bool KvioSocket::CloseLibrary() {
    return true;
}

bool KvioSocket::SetEventHandler(KvioSocketEventHandler* handler) {
    if (m_pEventHandler != nullptr) {
        return false;
    }
    m_pEventHandler = handler;
    return true;
}

void KvioSocket::LogReceived(const void* data, std::size_t size, int line, const char* source) {
    LogTraffic("=> ", data, size, line, source);
}

void KvioSocket::LogSent(const void* data, std::size_t size, int line, const char* source) {
    LogTraffic("<= ", data, size, line, source);
}

// A line for which there is no memory is left out: the bytes it tells of are on their way.
void KvioSocket::LogTraffic(const char* direction, const void* data, std::size_t size, int line,
                            const char* source) {
    if (m_pEventLog == nullptr || size == 0) {
        return;
    }
    try {
        KvWriteLog(*m_pEventLog, &KvLogInterface::LogTrace, direction + SafeText(data, size), line, source);
    } catch (const std::bad_alloc&) {
        return;
    }
}

long KvioSocket::Receive(void* buffer, std::size_t size) {
    const int errorBefore = errno;
    long received = 0;
    while ((received = recv(m_socket, buffer, size, MSG_DONTWAIT)) < 0 && AwaitPeer(POLLIN)) {
        errno = errorBefore;
    }
    return received;
}

long KvioSocket::Send(const void* data, std::size_t size) {
    long sent = 0;
    while ((sent = send(m_socket, data, size, MSG_DONTWAIT | MSG_NOSIGNAL)) < 0 && AwaitPeer(POLLOUT)) {
    }
    return sent;
}

// A descriptor that the caller has made non-blocking is not waited for.
bool KvioSocket::AwaitPeer(short events) {
    if (!WouldWait() || KvNonBlockingMode::IsOn(m_socket)) {
        return false;
    }
    return KvEndSignals::Await(m_socket, events, kNoTimeout) > 0;
}
