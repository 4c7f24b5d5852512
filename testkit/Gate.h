#pragma once

#include <memory>

namespace kvtest {

/// A door that a test opens once: what waits behind it goes on, and whoever comes later passes at once.
/// Thread-safe. A copy is the same door.
///
///     Gate gate;
///     server.on("DATA").reply(Reply("354 go ahead\r\n").heldBy(gate));
///     ... the client now waits for the server; look at things at leisure ...
///     gate.open();
class Gate {
public:
    /// A closed gate. Throws std::system_error when the process has no descriptor left.
    Gate();

    void open();
    bool isOpen() const;
    /// Readable for poll() once the gate is open. Owned by the gate.
    int descriptor() const;

private:
    class Door;
    std::shared_ptr<Door> m_door;
};

}  // namespace kvtest
