#include "FakeServer.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "Check.h"
#include "Input.h"
#include "KvioException.h"
#include "KvioSSLClientSocket.h"

namespace kvfuzz {

namespace {

constexpr int kFirstDescriptor = 700;  // below the limit of an fd_set, above what a fuzzer has open
constexpr int kMostDescriptors = 300;
constexpr char kTimeOut = '\x15';
constexpr char kReset = '\x18';

FakeServer* g_current = nullptr;

}  // namespace

FakeServer::FakeServer(const std::string& script, bool handshakesWork, int mostSends)
    : m_bHandshakesWork(handshakesWork), m_nSendsLeft(mostSends) {
    KV_FUZZ_CHECK(g_current == nullptr);
    Input pieces(reinterpret_cast<const std::uint8_t*>(script.data()), script.size());
    while (!pieces.IsEmpty()) {
        m_vecPieces.push_back(pieces.Piece());
    }
    g_current = this;
}

FakeServer::~FakeServer() {
    g_current = nullptr;
}

FakeServer* FakeServer::Current() {
    return g_current;
}

bool FakeServer::Owns(int descriptor) const {
    return descriptor >= kFirstDescriptor && descriptor < kFirstDescriptor + m_nOpened;
}

int FakeServer::Open() {
    if (m_nOpened == kMostDescriptors) {
        errno = EMFILE;
        return -1;
    }
    return kFirstDescriptor + m_nOpened++;
}

int FakeServer::Close() {
    KV_FUZZ_CHECK(m_nClosed < m_nOpened);
    ++m_nClosed;
    return 0;
}

long FakeServer::Send(const void* data, std::size_t size) {
    if (m_nSendsLeft == 0) {
        Note(Event::SendFailed);
        errno = EPIPE;
        return -1;
    }
    m_nSendsLeft -= m_nSendsLeft > 0 ? 1 : 0;
    Note(Event::Sent, std::string(static_cast<const char*>(data), size));
    return static_cast<long>(size);
}

long FakeServer::Receive(void* buffer, std::size_t size) {
    if (m_nPiece == m_vecPieces.size()) {
        Note(Event::Closed);
        return 0;
    }
    const std::string& piece = m_vecPieces[m_nPiece];
    if (piece.empty() || IsPiece(kReset)) {
        const bool isReset = !piece.empty();
        DropPiece();
        Note(isReset ? Event::Reset : Event::Closed);
        errno = ECONNRESET;
        return isReset ? -1 : 0;
    }
    const std::size_t count = std::min(size, piece.size() - m_nTaken);
    std::memcpy(buffer, piece.data() + m_nTaken, count);
    Note(Event::Received, piece.substr(m_nTaken, count));
    m_nTaken += count;
    if (m_nTaken == piece.size()) {
        DropPiece();
    }
    return static_cast<long>(count);
}

bool FakeServer::IsReadable() {
    if (!IsPiece(kTimeOut)) {
        return true;
    }
    DropPiece();
    Note(Event::TimedOut);
    return false;
}

bool FakeServer::Secure() {
    Note(m_bHandshakesWork ? Event::Secured : Event::HandshakeFailed);
    return m_bHandshakesWork;
}

bool FakeServer::IsPiece(char mark) const {
    return m_nPiece < m_vecPieces.size() && m_nTaken == 0 && m_vecPieces[m_nPiece] == std::string(1, mark);
}

void FakeServer::DropPiece() {
    ++m_nPiece;
    m_nTaken = 0;
}

void FakeServer::Note(Event::Kind kind, const std::string& bytes) {
    m_vecEvents.push_back({kind, bytes});
}

bool IsRefusal(const std::string& reply) {
    return !reply.empty() && (reply[0] == '4' || reply[0] == '5');
}

std::string Seen(const std::string& reply) {
    return reply.substr(0, reply.find('\0'));
}

}  // namespace kvfuzz

// The wrapped calls. Descriptors of others, and calls while no server lives, go where they would have gone.

using kvfuzz::FakeServer;

namespace {

FakeServer* ServerOf(int descriptor) {
    FakeServer* const server = FakeServer::Current();
    return server != nullptr && server->Owns(descriptor) ? server : nullptr;
}

}  // namespace

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_connect(int descriptor, const sockaddr* address, socklen_t size);
int __real_setsockopt(int descriptor, int level, int name, const void* value, socklen_t size);
int __real_fcntl(int descriptor, int command, ...);
int __real_close(int descriptor);
ssize_t __real_recv(int descriptor, void* buffer, size_t size, int flags);
ssize_t __real_send(int descriptor, const void* data, size_t size, int flags);
int __real_pselect(int limit, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* timeout,
                   const sigset_t* mask);
int __real_usleep(useconds_t microseconds);
void __real__ZN19KvioSSLClientSocket8StartSSLEv(KvioSSLClientSocket* socket);

int __wrap_socket(int domain, int type, int protocol) {
    FakeServer* const server = FakeServer::Current();
    return server == nullptr ? __real_socket(domain, type, protocol) : server->Open();
}

int __wrap_connect(int descriptor, const sockaddr* address, socklen_t size) {
    return ServerOf(descriptor) == nullptr ? __real_connect(descriptor, address, size) : 0;
}

int __wrap_setsockopt(int descriptor, int level, int name, const void* value, socklen_t size) {
    return ServerOf(descriptor) == nullptr ? __real_setsockopt(descriptor, level, name, value, size) : 0;
}

int __wrap_fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return ServerOf(descriptor) == nullptr ? __real_fcntl(descriptor, command, argument) : 0;
}

int __wrap_close(int descriptor) {
    FakeServer* const server = ServerOf(descriptor);
    return server == nullptr ? __real_close(descriptor) : server->Close();
}

ssize_t __wrap_recv(int descriptor, void* buffer, size_t size, int flags) {
    FakeServer* const server = ServerOf(descriptor);
    return server == nullptr ? __real_recv(descriptor, buffer, size, flags) : server->Receive(buffer, size);
}

ssize_t __wrap_send(int descriptor, const void* data, size_t size, int flags) {
    FakeServer* const server = ServerOf(descriptor);
    return server == nullptr ? __real_send(descriptor, data, size, flags) : server->Send(data, size);
}

int __wrap_pselect(int limit, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* timeout,
                   const sigset_t* mask) {
    FakeServer* const server = ServerOf(limit - 1);
    if (server == nullptr) {
        return __real_pselect(limit, reads, writes, errors, timeout, mask);
    }
    return server->IsReadable() ? 1 : 0;
}

/// The pause after a broken connection is no use here.
int __wrap_usleep(useconds_t microseconds) {
    return FakeServer::Current() == nullptr ? __real_usleep(microseconds) : 0;
}

void __wrap__ZN19KvioSSLClientSocket8StartSSLEv(KvioSSLClientSocket* socket) {
    FakeServer* const server = FakeServer::Current();
    if (server == nullptr) {
        __real__ZN19KvioSSLClientSocket8StartSSLEv(socket);
    } else if (!server->Secure()) {
        throw KvioException("the fake server", "SSL: SSL Connect Failed. Details: as the script says");
    }
}

}  // extern "C"
