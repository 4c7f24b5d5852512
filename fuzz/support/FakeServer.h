#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kvfuzz {

/// A mail server for the engine that needs no socket and no thread: the program is linked so that the engine's calls of
/// socket, connect, send, recv, pselect, close and so on arrive here. What it says is a script; it does not listen.
///
/// The script is a row of pieces that end at a byte of 0x1E; one read gets one piece, or as much of it as it has room
/// for. A piece of its own:
///  - nothing: the server closes; the next read is told so, and the one after that goes on with the script;
///  - a byte of 0x15: it is silent until the time-out;
///  - a byte of 0x18: it resets the connection.
/// At the end of the script every read is told that the server has closed.
///
/// While an object lives it answers the calls of the whole process; there is at most one. One thread at a time.
class FakeServer {
public:
    struct Event {
        enum Kind { Sent, Received, TimedOut, Closed, Reset, SendFailed, Secured, HandshakeFailed };
        Kind kind;
        std::string bytes;  ///< of Sent and Received
    };

    /// `handshakesWork`: StartSSL succeeds and changes nothing, else it throws. `mostSends`: every later send fails;
    /// negative for no limit.
    FakeServer(const std::string& script, bool handshakesWork, int mostSends);
    ~FakeServer();
    FakeServer(const FakeServer&) = delete;
    FakeServer& operator=(const FakeServer&) = delete;

    const std::vector<Event>& Events() const { return m_vecEvents; }
    /// Descriptors that were opened and not closed.
    int OpenDescriptors() const { return m_nOpened - m_nClosed; }

    // What arrives from the wrapped calls.
    bool Owns(int descriptor) const;
    int Open();
    int Close();
    long Send(const void* data, std::size_t size);
    long Receive(void* buffer, std::size_t size);
    bool IsReadable();
    bool Secure();

    /// The one that lives, or null.
    static FakeServer* Current();

private:
    bool IsPiece(char mark) const;
    void DropPiece();
    void Note(Event::Kind kind, const std::string& bytes = "");

    std::vector<std::string> m_vecPieces;
    std::size_t m_nPiece = 0;
    std::size_t m_nTaken = 0;  ///< bytes of the piece that were read
    const bool m_bHandshakesWork;
    int m_nSendsLeft;
    int m_nOpened = 0;
    int m_nClosed = 0;
    std::vector<Event> m_vecEvents;
};

/// True for a reply that the engine takes for a refusal: it begins with 4 or 5.
bool IsRefusal(const std::string& reply);

/// A reply as the engine sees it: up to its first NUL byte.
std::string Seen(const std::string& reply);

}  // namespace kvfuzz
