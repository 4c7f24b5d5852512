#pragma once

#include <string>
#include <string_view>

#include "OpenSslPtr.h"
#include "TlsContext.h"

namespace kvsink {

/// The server's end of one TLS connection, from bytes to bytes: it touches no socket, so it never waits.
/// Externally synchronised. Each call may leave bytes for the peer, which takeOutput() hands over.
class TlsFilter {
public:
    enum class Status { open, closed, failed };

    /// Throws std::bad_alloc.
    explicit TlsFilter(const TlsContext& context);

    /// Takes bytes that came from the peer, goes on with the handshake, and appends what they decrypt to.
    /// Answers closed when the peer has ended the TLS connection, failed when it cannot go on.
    Status receive(std::string_view encrypted, std::string& plain);

    /// Encrypts bytes for the peer. Before the handshake is complete nothing can be sent: they are dropped.
    void send(std::string_view plain);

    /// Tells the peer that nothing follows.
    void close();

    /// Moves what is to be sent to the peer to the end of `encrypted`.
    void takeOutput(std::string& encrypted);

private:
    Status decrypt(std::string& plain);

    OpenSslPtr<SSL> m_ssl;
    BIO* m_fromPeer;  // owned by m_ssl
    BIO* m_toPeer;    // owned by m_ssl
};

}  // namespace kvsink
