#pragma once

#include <ctime>
#include <string>

#include "KvLogInterface.h"
#include "KvioSocketEventHandler.h"
#include "Kvobject.h"

/// One socket descriptor with blocking reads and writes, a time-out per read, line readers, and a log that
/// gets every byte sequence sent ("<= %s") and received ("=> %s"). One thread at a time.
///
/// Every failure is thrown as a KvioException whose path is the host:port text of the last Connect; a
/// time-out or a failed wait is not thrown, it is a result of -1 with the status telling which. A read that
/// fails stores nothing: the buffer then holds what the caller had put there.
///
/// A wait here never ends by itself unless it was given a time-out, but a worker of the thread pool can be
/// ended in every one of them (see KvEndSignals). No operation raises SIGPIPE. Every signal handler ends a wait
/// with a time-out and Wait; the others go on after a handler installed with SA_RESTART (see
/// KvEndSignals::Await) and fail after another.
///
/// Member and slot order are fixed: hosts are compiled against them.
class KvioSocket : public Kvobject {
public:
    /// Callers compare the values exactly.
    enum SocketStatus {
        SOCKET_DONE = 32,      ///< data was read, or a line read finished
        SOCKET_READABLE = 33,  ///< readable; also what Read sets before it starts
        SOCKET_WRITABLE = 34,  ///< writable
        SOCKET_TIMEOUT = 35,   ///< the time-out expired
        SOCKET_ERROR = 36      ///< error, interrupted wait, or closed connection
    };

    enum SocketType { SOCKET_TCP = 0, SOCKET_UDP = 1, SOCKET_ICMP = 2 };

    KvioSocket();
    /// Deletes the event handler. Does not close the descriptor.
    ~KvioSocket() override;

    KvioSocket(const KvioSocket&) = delete;
    KvioSocket& operator=(const KvioSocket&) = delete;

    /// The result of close: 0, or -1 with errno. GetSocket() keeps answering the descriptor's number.
    ///
    /// Compatibility: a second Close answers -1 (EBADF), also when the number is in use again elsewhere in
    /// the process; reads and writes of a closed socket fail in the same way. Relied on by: owners that close
    /// a connection and destroy it later, while other threads connect. Held by:
    /// KvioSocketTest.SecondCloseLeavesTheNewOwnerOfTheDescriptorAlone.
    virtual int Close();
    /// Ends the connection in both directions; the descriptor stays open. Nothing happens on a closed socket.
    void ShutDown();

    /// Waits up to `timeoutMs` milliseconds (-1: no limit). SOCKET_READABLE or SOCKET_WRITABLE, readable
    /// first; SOCKET_TIMEOUT; SOCKET_ERROR when a signal handler interrupted the wait.
    ///
    /// Compatibility: when select fails for any other reason it is called again, for ever if need be.
    /// Relied on by: hosts for which only an interruption ends a wait early.
    /// Held by: KvioSocketTest.WaitRetriesAfterAnErrorOtherThanAnInterruption.
    int Wait(bool read, bool write, int timeoutMs);

    /// Reads once, at most `size` bytes, after waiting up to `timeoutMs` milliseconds (-1: no limit).
    /// The number of bytes, with SOCKET_DONE; or -1, with SOCKET_TIMEOUT or SOCKET_ERROR. `noLog` keeps the
    /// bytes out of the log. Throws KvioException "Socket Read Error" or "Socket is closed".
    int Read(unsigned char* buffer, unsigned int size, int timeoutMs, SocketStatus& status,
             bool noLog = false);
    /// Reads one byte: 0 to 255. 255 as well when Read did not return 1.
    int ReadChar(int timeoutMs, SocketStatus& status, bool noLog = false);

    /// Reads up to LF, without a time-out and without logging. The text without LF, and without any CR or
    /// NUL. SOCKET_DONE, also when the peer closed; SOCKET_ERROR when reading failed. Never throws for I/O.
    /// `initialSize` is how many characters to reserve; 0 reads nothing and answers an empty text.
    std::string ReadLine(SocketStatus& status, int initialSize);
    /// Reads up to and including LF, byte by byte; each byte waits up to `timeoutMs` afresh and is logged as
    /// a line of its own. A time-out or failed wait ends the line early, with its status. Throws as Read
    /// does.
    std::string ReadLine(int timeoutMs, SocketStatus& status);

    /// Reads up to and including `terminator` (NUL-terminated); each byte waits up to `timeoutMs` afresh.
    /// One log line for the whole text. A time-out or failed wait ends it early, with its status.
    /// Throws as Read does.
    ///
    /// Compatibility: bytes come in chunks of 1022 and a NUL cuts the rest of its chunk; the match restarts
    /// at its first or second position only, so it can miss a terminator that begins inside a partial match.
    /// Relied on by: callers that match the text read so far byte for byte.
    /// Held by: KvioSocketTest.ReadTillDropsTheRestOfAChunkAfterANul.
    std::string ReadTill(const unsigned char* terminator, int timeoutMs, SocketStatus& status);

    /// Writes everything; logs before it sends. The number of bytes. Throws KvioException "Socket Write
    /// Error".
    int Write(const unsigned char* data, unsigned int size);
    int Write(const std::string& text);
    /// Writes all of `text` at once, and logs it as two writes: of the first `first` bytes, and of the rest, which is
    /// logged once it is sent. One segment wakes the peer, not two. As Write otherwise.
    int WriteAsTwo(const std::string& text, std::size_t first);

    /// Formats and writes. The number of bytes written; 0 for a null format; -1 when the format cannot be
    /// formatted, and nothing is written. Throws as Write does.
    ///
    /// Compatibility: at most 4094 characters are kept, but as many bytes are written as the whole text would
    /// have had; those beyond the limit are NUL.
    /// Relied on by: peers that count the bytes announced by the caller.
    /// Held by: KvioSocketTest.WriteFormatSendsTheUntruncatedLengthOfALongText.
    [[gnu::format(printf, 2, 3)]] int WriteFormat(const char* format, ...);

    /// Replaces all status flags of the descriptor with O_NONBLOCK; the result of fcntl. From then on a read
    /// or write that would have to wait is an error.
    int SetNonBlockingMode();

    /// The port of a service in host byte order; -1 when it is unknown. Thread-safe.
    static int KvAsciiToPort(const char* service, const char* protocol);
    /// The calling thread's errno.
    static int GetErrorCode();
    /// Nothing to do on this platform; always true.
    static bool InitialLibrary();
    static bool CloseLibrary();

    /// The log is not owned; null switches logging off.
    void SetEventLog(KvLogInterface* log) { m_pEventLog = log; }
    /// Takes ownership of `handler` and answers true when none is set yet; otherwise answers false and the
    /// handler stays the caller's.
    bool SetEventHandler(KvioSocketEventHandler* handler);

    KvioSocketEventHandler* GetEventHandler() const { return m_pEventHandler; }
    /// The descriptor, or what it was before Close; -1 when there has been none.
    int GetSocket() const;
    /// When the last Read or Write began, in seconds since the epoch; at first the time of construction.
    std::time_t GetLastActiveTime() const { return m_tLastActive; }
    /// host:port of the last Connect; empty before it.
    std::string GetRemoteAddress() const { return m_strRemoteAddress; }

protected:
    /// Log traffic with the line and the source name of the call site; nothing without a log or without
    /// bytes.
    void LogReceived(const void* data, std::size_t size, int line, const char* source);
    void LogSent(const void* data, std::size_t size, int line, const char* source);
    void LogTraffic(const char* direction, const void* data, std::size_t size, int line, const char* source);

    int m_socket;                             ///< below -1 once closed: -2 minus the descriptor
    KvioSocketEventHandler* m_pEventHandler;  ///< owned
    std::string m_strRemoteAddress;
    std::time_t m_tLastActive;
    KvLogInterface* m_pEventLog;  ///< not owned

private:
    void SendAll(const unsigned char* data, std::size_t size);
    long Receive(void* buffer, std::size_t size);
    long Send(const void* data, std::size_t size);
    bool AwaitPeer(short events);
};
