#pragma once

#include "ScopedDescriptor.h"

namespace kvtest {

// Small steps with TCP sockets on 127.0.0.1. All descriptors are close-on-exec. Each throws std::system_error
// when the system refuses.

/// A socket bound to the port, or to a free one for 0; nobody listens on it yet. `flags` as for socket(2).
ScopedDescriptor BoundSocket(int port, int flags = 0);
void Listen(const ScopedDescriptor& socket, int backlog);
/// The port that a socket is bound to.
int PortOf(const ScopedDescriptor& socket);
/// Starts to connect; a socket with SOCK_NONBLOCK in `flags` may still be on its way afterwards.
ScopedDescriptor ConnectingSocket(int port, int flags = 0);
/// Closes with FIN; what is unread is dropped first, because the system would send RST instead. A socket that
/// is closed already is left alone.
void CloseWithFin(ScopedDescriptor& socket);
/// Closes with RST.
void CloseWithReset(ScopedDescriptor& socket);
/// From now on nothing that the peer sends gets in, not even an acknowledgement.
void DropWhatComes(const ScopedDescriptor& socket);
/// Small writes go out at once (TCP_NODELAY).
void SendAtOnce(const ScopedDescriptor& socket);

}  // namespace kvtest
