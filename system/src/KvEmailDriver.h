#pragma once

#include <string>
#include <vector>

#include "KvLogInterface.h"
#include "KvSmtpException.h"
#include "KvioSSLClientSocket.h"

/// One SMTP client conversation (RFC 5321) over one TCP connection that STARTTLS may upgrade to TLS (RFC 3207).
/// One thread at a time; takes no locks.
///
/// Life cycle: constructed; Connect (greeting, EHLO, STARTTLS by mode, AUTH); any number of SendMail
/// transactions and IsAlive probes; Close; destroyed. Neither Close nor the destructor says QUIT.
///
/// Failures: KvSmtpException for a 4yz or 5yz reply and for refusals of the engine, KvioException of the
/// socket for transport failures, and whatever the MIME library raises.
class KvEmailDriver {
public:
    /// When the connection is upgraded to TLS.
    enum SmtpSecType : int {
        SecNone = 0,            ///< never
        SecTLSOnDemand = 1,     ///< when a 530 reply mentions STARTTLS during mail submission
        SecClear = 2,           ///< never; a value of its own, which acts as SecNone
        SecTLSIfAvailable = 3,  ///< before authentication when offered, else in clear
        SecTLSRequired = 4      ///< before authentication, or the connection fails with 815
    };

    /// The session record.
    struct Job {
        std::string
            strHost;     ///< server, optionally with a colon and a port; the host alone after SetHostPort
        int nPort = -1;  ///< TCP port; below 1 while not resolved
        std::string strFrom;
        std::string strTo;
        std::string strSubject;
        std::string strBody;
        std::string strUser;
        std::string strPassword;
        SmtpSecType eSecType = SecNone;
        bool bReserved = false;   ///< nothing reads it
        bool bStartTLS = false;   ///< the server offered STARTTLS
        bool bAuthLogin = false;  ///< the server offered AUTH LOGIN and there are credentials
        bool bAuthPlain = false;  ///< the server offered AUTH PLAIN and there are credentials

        void Reset();
    };

    /// Nothing is sent. `log` may be null and stays the caller's. The three PEM files are used by STARTTLS: client
    /// certificate (empty for none), its key, and the trusted certificates.
    KvEmailDriver(KvLogInterface* log, const std::string& certFile, const std::string& keyFile,
                  const std::string& caFile);
    virtual ~KvEmailDriver();

    KvEmailDriver(const KvEmailDriver&) = delete;
    KvEmailDriver& operator=(const KvEmailDriver&) = delete;

    /// Connects to `server` (a host name, optionally with a colon and a port), reads the greeting, says EHLO or
    /// HELO, negotiates TLS as `sec` demands, and authenticates when the server offers it and both `user` and
    /// `password` are given. A failure after the EHLO closes the socket.
    ///
    /// Compatibility: with SecTLSOnDemand, a 530 reply that mentions STARTTLS repeats the authentication without
    /// a limit; TLS on demand is negotiated by SendMail, not here. On an object whose port is already known, a
    /// port in `server` is neither used nor stripped.
    /// Relied on by: hosts that reconnect one engine to several names of one server.
    /// Held by: KvEmailDriverTest.AuthDemandingStartTlsInModeOneIsRepeatedUntilItSucceeds,
    /// KvEmailDriverTest.ASecondConnectKeepsThePortAndDoesNotStripThePortSuffix.
    void Connect(const std::string& server, const std::string& user, const std::string& password,
                 SmtpSecType sec);

    /// Closes the socket and resets the session record. Says no QUIT.
    void Close();

    /// Sends RSET and reads one reply: false when anything failed or the reply was 4yz or 5yz. A reply that does
    /// not come within 60 s counts as alive (see SmtpRead).
    bool IsAlive();

    /// One mail transaction (RFC 5321 3.3) on the open session: MAIL FROM, one RCPT TO per address of `to` in
    /// order, DATA, and a multipart/mixed MIME message of the text and the attached files. The first refused
    /// recipient ends it; nothing is reset and the session stays open. With SecTLSOnDemand, a 530 reply that
    /// mentions STARTTLS starts TLS, authenticates and repeats the whole transaction.
    ///
    /// Compatibility: addresses are sent as given; there is no dot-stuffing, lines of the message that begin
    /// with a dot are sent as they are; the boundary is the same in every message; no To, Date or Message-ID
    /// header is added. An attachment that cannot be read is sent as an empty part. The lines of base64 parts end with
    /// bare line feeds, as the MIME library writes them.
    /// Relied on by: receivers that match the messages byte for byte.
    /// Held by: KvEmailDriverSendMailTest.LinesThatBeginWithADotAreSentAsTheyAre,
    /// KvEmailDriverSendMailTest.TheWholeMessageIsByteExact.
    void SendMail(const std::string& from, const std::vector<std::string>& to, const std::string& subject,
                  const std::string& body, const std::vector<std::string>& attachments);

    /// Connects, sends one plain message built from `job`, says QUIT and closes. Always true; failures throw.
    ///
    /// Compatibility: QUIT is sent as exactly four characters, without a line end. A sender with a display name
    /// is cut from the first "<" over as many characters as the position of the last ">", so the envelope line
    /// carries doubled angle brackets.
    /// Relied on by: peers that were tested with these bytes.
    /// Held by: KvEmailDriverSendAMessageTest.QuitIsSentWithoutALineEnd,
    /// KvEmailDriverSendAMessageTest.ASenderWithADisplayNameGetsDoubledAngleBrackets.
    bool SendAMessage(Job& job);

    /// Writes the body of `job` line by line, with dot-stuffing.
    void SendBody(Job& job);

    /// The local time for a Date header.
    ///
    /// Compatibility: the zone is in whole hours, and UTC is written "-0000".
    /// Relied on by: receivers that parse this form.
    /// Held by: KvEmailDriverDateTest.UtcIsWrittenWithAMinusSign.
    std::string GetDateString();

    /// Compatibility: always true; a missing field builds an exception that is never raised.
    /// Relied on by: callers that submit incomplete records and let the server judge them.
    /// Held by: KvEmailDriverTest.ValidateJobAcceptsEveryRecord.
    bool ValidateJob(Job& job);

    /// Resolves the port of `job` and strips it from the host, unless a port is known already: the number after
    /// the first colon, else the port of the "smtp" service, else 25.
    void SetHostPort(Job& job);

    /// EHLO, or HELO when EHLO failed in any way but for want of memory; the reply to the one that succeeded.
    std::string SendEHLOThenHELO();

    /// Records what an EHLO reply offers. Flags are only ever set, so those of both EHLO replies add up.
    void UpdateSupportedMethods(Job& job, const std::string& ehloReply);

    /// Says STARTTLS if it was offered; true for a 2yz reply.
    bool IsTLSSupported(Job& job);
    /// The STARTTLS step of the current mode. Throws 815 or 816 where the mode insists.
    void ProcessTLS();
    /// TLS handshake and a second EHLO after the server's go-ahead.
    void PostSTARTTLS(Job& job);

    /// Authenticates (RFC 4954) with PLAIN, else LOGIN, if offered. A refusal that is not a 4yz or 5yz reply is
    /// not reported: the session goes on unauthenticated.
    void Authorize();
    /// AUTH PLAIN (RFC 4616), credentials in a line of their own. True when the exchange went through.
    ///
    /// Compatibility: the base64 text breaks after 76 characters, so credentials of more than 57 bytes (with the two
    /// separators) go out as several lines. The same holds for the two answers of AUTH LOGIN.
    /// Relied on by: peers that were tested with these bytes.
    /// Held by: KvEmailDriverAuthTest.LongerCredentialsAreBrokenAfter76Characters.
    bool DoPlainLogin(Job& job);
    /// AUTH LOGIN. True when the server accepted; false on an unexpected step, which is recorded in the last error
    /// where a challenge was not the expected one.
    ///
    /// Compatibility: the challenges must decode to exactly "Username:" and "Password:"; any other spelling ends
    /// the exchange, without an exception.
    /// Relied on by: hosts that reach servers with other challenges unauthenticated.
    /// Held by: KvEmailDriverAuthTest.ALowerCaseUserNameChallengeStopsTheExchangeWithoutAnException.
    bool DoLogin(Job& job);

    /// Reads one reply: exactly what one read of at most 1000 bytes within 60 s returned. The number of bytes, or
    /// -1 after a time-out, which leaves `reply` empty and is no failure. Throws KvSmtpException for a reply that
    /// begins with 4 or 5.
    ///
    /// Compatibility: a multi-line reply is not assembled, and its last line is not waited for; what arrives
    /// later is read as the reply to the next command.
    /// Relied on by: hosts that match failure reasons byte for byte.
    /// Held by: KvEmailDriverTest.AReplyIsExactlyWhatOneReadReturned.
    int SmtpRead(std::string& reply);

    /// Sends formatted text of at most 2047 characters; longer text is cut. The number of bytes sent.
    [[gnu::format(printf, 2, 3)]] int SmtpWrite(const char* format, ...);
    /// Sends the whole text. The number of bytes sent.
    int SmtpWrite(const std::string& text);

    /// Shuts the connection down in both directions; the descriptor stays until Close. Called when an exchange broke
    /// off in the middle: the reply that is still to come would be taken for the answer to the next command, and a
    /// command for a line of the message. Whatever is tried on the connection afterwards fails.
    void BreakOff();

protected:
    template <typename Step>
    int InStep(Step step);
    int ReadReply(std::string& reply);
    int SendText(const std::string& text, std::size_t first);
    static bool IsStartTlsDemand(const KvSmtpException& error, const Job& job);
    void Authenticate(Job& job);
    void Greet(Job& job);
    void RunTransaction(const std::string& from, const std::vector<std::string>& to,
                        const std::string& subject, const std::string& body,
                        const std::vector<std::string>& attachments);
    std::string BuildMessage(const std::string& from, const std::string& subject, const std::string& body,
                             const std::vector<std::string>& attachments);
    void SendSingleShot(Job& job);
    void SecureSingleShot(Job& job, bool demanded);
    void SubmitSingleShot(Job& job);
    void SendHeaders(Job& job);
    bool AnswerPasswordChallenge(Job& job, const std::string& reply);
    bool RecordAuthError(int code, const std::string& reply);
    std::string SendAndRead(const std::string& text);

    KvioSSLClientSocket m_objSocket;
    KvLogInterface* m_pLog;
    std::string m_strLastError;  ///< reply of the last failed AUTH LOGIN step
    int m_nLastError = 0;        ///< code of the last failed AUTH LOGIN step: 817, 818 or 819
    Job m_job;
};
