#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Gate.h"

namespace kvtest {

/// What the scripted server does once the bytes of a reply are sent.
enum class Then {
    Keep,           ///< goes on with the conversation
    Close,          ///< closes: inside TLS the close notification first, then FIN
    CloseAbruptly,  ///< FIN without the TLS close notification
    Reset,          ///< RST
    HalfClose,      ///< FIN (in TLS without the close notification), and reads on until the client leaves
    Stall,          ///< reads nothing and says nothing until stopped, cut, or left by the client
    Vanish,    ///< as a host that has lost its power: not even acknowledges what comes, until stopped or cut
    StartTls,  ///< does the server side of the TLS handshake
    StartTlsGarbage  ///< sends bytes that are no TLS record where the handshake is due, then stalls
};

/// One answer of the scripted server: bytes sent verbatim, how they are cut up, and what follows. A value
/// type.
///
/// Any bytes will do: several replies in one, a malformed one, none at all (the server then says nothing).
/// A reply is sent with one write, in TLS with one record, unless it is split.
///
///     Reply("250-one\r\n250 two\r\n").split({3, 9}).thenClose()
///     Reply().thenStall()
struct Reply {
    /// Says nothing and keeps the connection.
    Reply() = default;
    Reply(const char* text) : bytes(text) {}
    Reply(std::string text) : bytes(std::move(text)) {}

    /// Sends the bytes in pieces that begin at the given offsets, with `between` before every further piece.
    /// Offsets at or behind the end, and ones that do not grow, are ignored.
    Reply& split(std::vector<std::size_t> at,
                 std::chrono::milliseconds between = std::chrono::milliseconds(5));
    /// Sends every byte for itself.
    Reply& byteByByte(std::chrono::milliseconds between = std::chrono::milliseconds(1));
    /// Waits before the first byte.
    Reply& delayed(std::chrono::milliseconds time);
    /// Holds back the whole reply until the gate is open.
    Reply& heldBy(Gate gate);
    /// Holds back everything behind the first piece until the gate is open.
    Reply& restHeldBy(Gate gate);

    Reply& thenClose() { return followedBy(Then::Close); }
    Reply& thenCloseAbruptly() { return followedBy(Then::CloseAbruptly); }
    Reply& thenReset() { return followedBy(Then::Reset); }
    Reply& thenHalfClose() { return followedBy(Then::HalfClose); }
    Reply& thenStall() { return followedBy(Then::Stall); }
    Reply& thenVanish() { return followedBy(Then::Vanish); }
    Reply& thenStartTls() { return followedBy(Then::StartTls); }
    Reply& thenStartTlsGarbage() { return followedBy(Then::StartTlsGarbage); }
    Reply& followedBy(Then action);

    /// True when the first byte is '4' or '5'.
    bool isRefusal() const;
    /// The bytes as they go out, piece by piece; empty for a reply that says nothing.
    std::vector<std::string> pieces() const;

    std::string bytes;
    std::vector<std::size_t> offsets;
    bool eachByte = false;
    std::chrono::milliseconds pause{0};
    std::chrono::milliseconds delay{0};
    std::optional<Gate> gate;
    std::optional<Gate> restGate;
    Then then = Then::Keep;
};

}  // namespace kvtest
