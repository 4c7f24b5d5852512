#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SmtpRecords.h"
#include "SmtpScript.h"
#include "SmtpServerOptions.h"

namespace kvtest {

/// A mail server on 127.0.0.1 that does what a test tells it and remembers every byte. Thread-safe.
///
/// It listens from construction on and ends everything in its destructor. Without a script it behaves like an
/// ordinary server; a test says only what is to differ.
///
///     ScriptedSmtpServer server;
///     server.on("RCPT").recipient("bob@example.org").reply("550 5.1.1 no such user\r\n");
///     deliverTo(server.address());
///     ASSERT_TRUE(server.waitForTransactions(1));
///     EXPECT_EQ(server.connection(1).clientBytes(), "EHLO [127.0.0.1]\r\n...");
///
/// What a reply does to the conversation: a step is refused when its reply begins with 4 or 5; anything else,
/// silence included, lets it go on. So DATA is followed by the message and AUTH by the credentials line
/// unless refused (a reply to AUTH that begins with 2 ends it as accepted), and STARTTLS by the handshake
/// when its reply begins with 2 and names no action of its own.
///
/// The records are up to date before the client can see the reply that follows from them. What a handshake
/// brought is in them before the first reply inside TLS.
///
/// Each connection has a thread of its own; none of them ever takes a signal.
class ScriptedSmtpServer {
public:
    static constexpr std::chrono::milliseconds DefaultBound{10000};

    /// Throws std::system_error when it cannot listen, std::runtime_error when the TLS files are no good.
    explicit ScriptedSmtpServer(const SmtpServerOptions& options = {});
    ~ScriptedSmtpServer();

    ScriptedSmtpServer(const ScriptedSmtpServer&) = delete;
    ScriptedSmtpServer& operator=(const ScriptedSmtpServer&) = delete;

    int port() const;
    /// "127.0.0.1:port".
    std::string address() const;

    // The script. It may change while clients are connected.

    /// Begins a rule for a command verb in upper case, or for a name of namespace step.
    RuleBuilder on(const std::string& step);
    /// Ends a connection when so many bytes have come from the client, and not one more is read. Lines that
    /// were complete by then are still answered. With 0 the connection ends at once, before the greeting.
    /// `connection` 0 means every one that is accepted from now on.
    void cutAfter(std::size_t bytes, Then then = Then::Close, int connection = 0);
    void clearScript();

    // The test's own hand.

    /// Closes or resets connections that are open, whatever they are doing. `connection` 0 means all.
    void closeConnections(int connection = 0);
    void resetConnections(int connection = 0);
    /// Gives up the port: later clients are refused, connections that are open stay.
    void stopListening();
    /// Ends everything and joins every thread. The records stay readable.
    void stop();

    // What happened. Copies of the records as they stand now.

    int acceptedConnections() const;
    int openConnections() const;
    /// The n-th connection, from 1; an empty record with the number 0 when there is none yet.
    ConnectionRecord connection(int number = 1) const;
    /// The transactions of all connections in the order of their MAIL commands.
    std::vector<TransactionRecord> transactions() const;
    std::vector<TransactionRecord> transactionsOf(int connection) const;
    /// Transactions whose end of data was answered, accepted or not.
    int completedTransactions() const;
    /// Transactions whose end of data was accepted.
    int acceptedTransactions() const;
    /// How often a step was reached, over all connections.
    int commandCount(const std::string& step) const;
    /// All transcripts, for the message of a failing test.
    std::string toText() const;

    // Waiting. True as soon as it holds, false when `bound` has passed without.

    bool waitForConnections(int n, std::chrono::milliseconds bound = DefaultBound) const;
    bool waitForOpenConnections(int exactly, std::chrono::milliseconds bound = DefaultBound) const;
    bool waitForTransactions(int completed, std::chrono::milliseconds bound = DefaultBound) const;
    bool waitForCommand(const std::string& step, int n = 1,
                        std::chrono::milliseconds bound = DefaultBound) const;
    /// The predicate is asked again after every change of the records; it may use this object.
    bool waitUntil(const std::function<bool()>& predicate,
                   std::chrono::milliseconds bound = DefaultBound) const;

private:
    class Engine;
    std::unique_ptr<Engine> m_engine;
};

}  // namespace kvtest
