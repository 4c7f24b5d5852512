#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Clock.h"
#include "FileDescriptor.h"
#include "Session.h"
#include "TlsFilter.h"

namespace kvsink {

/// One client's connection: carries bytes between a socket that does not block, TLS if it was started, and
/// the session. Externally synchronised; no call waits.
///
/// Life: talking, until the session or the peer ends it; draining, until what is left is sent; lingering,
/// until the peer closes too (a close with unread input would destroy replies that are still on their way);
/// over. Input is not read while a reply is held back or while the peer leaves too much output unread.
class Connection {
public:
    /// `service` must outlive the connection.
    Connection(FileDescriptor socket, const Service& service, std::string clientAddress);

    int fd() const { return m_socket.get(); }

    // What happened. `now` is the present time; `buffer` of `size` bytes is borrowed for the call.
    void onAccepted(TimePoint now);
    void onReadable(TimePoint now, char* buffer, std::size_t size);
    void onWritable(TimePoint now);
    void onBroken() { m_phase = Phase::over; }
    void onTimer(TimePoint now);
    /// Ends the connection as soon as no mail is under way and all replies are sent.
    void onStopping(TimePoint now);

    // What the owner has to do after each of these.
    /// The connection is to be destroyed.
    bool isOver() const { return m_phase == Phase::over; }
    /// The epoll events to wait for.
    std::uint32_t interest() const;
    /// When onTimer() is due at the latest.
    TimePoint nextTimer() const { return m_holding ? std::min(m_releaseAt, m_expiry) : m_expiry; }

private:
    enum class Phase { talking, draining, lingering, over };

    void takeInput(std::string_view bytes, TimePoint now);
    void advance(TimePoint now);
    bool canTakeCommand() const;
    std::size_t takeCommands();
    void settleReplies(TimePoint now);
    void release(TimePoint now);
    void emit();
    void startTls();
    void expire(TimePoint now);
    void drain(TimePoint now);
    void flush(TimePoint now);
    void finishDraining();
    std::size_t unsent() const { return m_out.size() - m_sent; }

    FileDescriptor m_socket;
    const Service& m_service;
    Session m_session;
    std::unique_ptr<TlsFilter> m_tls;  // null in clear

    Phase m_phase = Phase::talking;
    bool m_peerClosed = false;
    bool m_stopping = false;

    std::string m_in;     // plain input that the session has not taken
    std::string m_reply;  // plain replies that are not released
    std::string m_out;    // bytes for the socket; the first m_sent are gone
    std::size_t m_sent = 0;

    bool m_holding = false;  // m_reply is held back until m_releaseAt
    TimePoint m_releaseAt{};
    TimePoint m_expiry{};  // when the present phase has lasted too long
};

}  // namespace kvsink
