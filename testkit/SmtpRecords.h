#pragma once

#include <string>
#include <vector>

namespace kvtest {

// What a scripted server saw and did. Plain value types; the server hands out copies.

enum class Direction { FromClient, FromServer };

/// Bytes of one read or of one write, decrypted ones inside TLS.
struct Chunk {
    Direction direction = Direction::FromClient;
    std::string bytes;
    bool insideTls = false;
};

/// A line of the client that was answered: a command, a line of AUTH, or the dot at the end of data.
struct CommandRecord {
    int connection = 0;
    std::string step;      ///< verb in upper case, or a name of namespace step
    std::string line;      ///< as received, without its line ending
    std::string argument;  ///< what stands behind the verb and its blank
    bool insideTls = false;
    std::string reply;  ///< the bytes of the answer
};

struct RecipientRecord {
    std::string argument;  ///< as received behind "RCPT ", such as "TO: <bob@example.org>"
    std::string address;
    bool accepted = false;
};

enum class TransactionEnd {
    Open,           ///< under way
    SenderRefused,  ///< MAIL was refused
    Accepted,       ///< the end of data was not answered with 4yz or 5yz
    Refused,        ///< the end of data was refused
    Abandoned       ///< RSET, EHLO, HELO, STARTTLS, another MAIL, or the end of the connection came first
};

/// One mail transaction, begun by MAIL.
struct TransactionRecord {
    int connection = 0;
    int number = 0;        ///< on its connection, from 1
    std::string mailFrom;  ///< as received behind "MAIL ", such as "FROM: <ann@example.org>"
    std::string sender;    ///< the address alone
    std::vector<RecipientRecord> recipients;
    std::string data;  ///< as received, without the line of the single dot; stuffed dots stay
    bool dataComplete = false;
    bool insideTls = false;
    bool authenticated = false;
    TransactionEnd end = TransactionEnd::Open;

    bool accepted() const { return end == TransactionEnd::Accepted; }
    std::vector<std::string> recipientAddresses() const;
};

/// One attempt to authenticate whose credentials could be read.
struct AuthRecord {
    std::string mechanism;  ///< "PLAIN" or "LOGIN"
    std::string user;
    std::string password;
    bool accepted = false;
};

enum class ConnectionEnd {
    Open,          ///< still there
    ClientClosed,  ///< the client sent FIN
    ClientReset,   ///< the client sent RST
    ServerClosed,  ///< the script, QUIT or the test closed it
    ServerReset,   ///< the script or the test reset it
    TlsFailed,     ///< the handshake failed; tlsError says why
    ScriptFailed,  ///< a reply function threw; scriptError has its text
    Stopped        ///< the server was stopped
};

/// One connection. `chunks` is the ordered transcript of both directions.
struct ConnectionRecord {
    int number = 0;
    std::vector<Chunk> chunks;
    std::vector<CommandRecord> commands;
    std::vector<AuthRecord> authentications;
    std::string incompleteLine;  ///< what stood behind the last line end when the connection ended
    bool tls = false;            ///< a handshake was completed
    std::string tlsVersion;      ///< such as "TLSv1.3"
    std::string tlsError;
    std::string clientCertificate;  ///< subject of the client's certificate, such as "/CN=test client"
    bool closeNotified = false;     ///< the client sent the TLS close notification
    bool vanished = false;          ///< nothing that the client sends gets in any more
    std::string scriptError;
    ConnectionEnd end = ConnectionEnd::Open;

    bool sentClientCertificate() const { return !clientCertificate.empty(); }
    std::string clientBytes() const;
    std::string serverBytes() const;
    /// The steps in order, such as {"EHLO", "MAIL", "RCPT", "DATA", "END-OF-DATA"}.
    std::vector<std::string> steps() const;
    /// The lines in order, without their line endings.
    std::vector<std::string> lines() const;
    /// The whole transcript for a message to a person: "C: " and "S: " before each chunk, CR and LF escaped.
    std::string toText() const;
};

}  // namespace kvtest
