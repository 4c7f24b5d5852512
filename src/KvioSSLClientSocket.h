#pragma once

#include <openssl/ssl.h>

#include <string>
#include <vector>

#include "KvioClientSocket.h"

/// A client socket that can change to TLS. One thread at a time.
///
/// States: constructed; connected, plain text (Connect); TLS (StartSSL); plain again (Reset), or closed
/// (Close, destruction). Read and Write go through TLS exactly while StartSSL has succeeded and Reset has not
/// run. The other operations of KvioSocket (ReadLine, ReadTill, ReadChar, WriteFormat) always work on the
/// plain descriptor. Failures are KvioExceptions; those of StartSSL and Write carry a path and a message
/// only.
///
/// The server's certificate must verify against `m_strCAFile`; its name is not compared with the host.
///
/// Member and slot order are fixed: hosts are compiled against them.
class KvioSSLClientSocket : public KvioClientSocket {
public:
    /// Which client method StartSSL uses. Both TLSV1 and SSLV23 negotiate the best version of TLS 1.0 and
    /// later that the system's policy allows; SSLV2 and SSLV3 give no method.
    enum MethodType { METHOD_TLSV1 = 1, METHOD_SSLV2 = 3, METHOD_SSLV23 = 4, METHOD_SSLV3 = 5 };

    KvioSSLClientSocket();
    /// File names, PEM: client certificate and its key (empty: none), trusted CA certificates.
    KvioSSLClientSocket(const std::string& certFile, const std::string& keyFile, const std::string& caFile);
    /// Reset, and closes the descriptor.
    ~KvioSSLClientSocket() override;

    /// Reset, then the result of KvioSocket::Close.
    int Close() override;

    /// Runs the TLS handshake as the client on the connected descriptor. Waits for the server without limit.
    /// On failure the socket stays plain, and the objects made so far live until Reset or Close.
    ///
    /// Throws KvioException "SSL creation failed.", "SSL: Verify Location Failed" (also for an empty CA
    /// file), "SSL: Setting Certificate file Failed", "SSL: Setting Key file Failed", "SSL: Private key does
    /// not match the certificate public key", "SSL: Set SSL Failed", "SSL: Set SSL Socket Failed", "SSL: SSL
    /// Connect Failed. Details: " and GetSSLErrorString, "SSL: Get Certificate Failed", "SSL: Get Certificate
    /// Subject Name Failed" or "SSL: Get Certificate Issuer Failed".
    virtual void StartSSL();

    /// As KvioSocket::Read. `timeoutMs` covers the whole read in TLS, records without data included.
    /// In TLS it throws KvioException "SSL Socket Read Error" or "SSL Socket is closed".
    ///
    /// Compatibility: the wait looks at the descriptor only, so data that TLS has already decrypted does not
    /// end it early. Relied on by: callers that read a reply with one read of at most 1000 bytes. Held by:
    /// KvioSSLClientSocketTest.DecryptedBytesDoNotEndAWait.
    virtual int Read(unsigned char* buffer, unsigned int size, int timeoutMs, SocketStatus& status);

    /// As KvioSocket::Write, but in TLS it logs after sending and leaves the last active time alone.
    /// In TLS it throws KvioException "SSL Write Error".
    virtual int Write(const unsigned char* data, unsigned int size);
    virtual int Write(const std::string& text);
    /// As KvioSocket::WriteAsTwo; in TLS it logs both parts after sending.
    int WriteAsTwo(const std::string& text, std::size_t first);

    /// Writes the text.
    virtual KvioSSLClientSocket& operator<<(std::string text);
    /// Reads once, at most 1000 bytes, within 60 s. The number of bytes, with `out` set to them up to the
    /// first NUL; or what Read answered, with `out` unchanged.
    virtual int operator>>(std::string& out);

    /// Ends TLS: sends the closing alert if it can be sent at once, frees the TLS objects, and makes the
    /// descriptor a plain one again. It stays open.
    virtual void Reset();

    /// The client method for `type`; null for one that is obsolete or unknown.
    virtual const SSL_METHOD* GetSSLMethod(MethodType type);

    /// Prepares OpenSSL, once per process. Thread-safe.
    static void InitializeOpenSSLLibrary();

    /// Describes the failure of a TLS call that returned `result`.
    ///
    /// Compatibility: the second half is OpenSSL's text for the SSL_get_error code itself, not for the cause
    /// in the error queue; a wait for writing is named as one for reading. Relied on by: hosts that match
    /// failure reasons byte for byte. Held by:
    /// KvioSSLClientSocketTest.RejectedHandshakeIsDescribedByTheGeneralTextOfCode1.
    std::string GetSSLErrorString(int result);
    /// Moves the texts of the calling thread's OpenSSL error queue to the end of `out`, oldest first.
    void GetSSLErrorStack(std::vector<std::string>& out);

    /// Pass-phrase callback: copies the C string `userData`; the number of characters.
    static int Callback_PEMPassword_Internal(char* buf, int size, int rwflag, void* userData);
    /// Verify callback that accepts every certificate. Not installed unless a caller does so.
    static int Callback_PeerVerify_AcceptAll(int preverifyOk, X509_STORE_CTX* context);

protected:
    const SSL_METHOD* m_pMethod;
    SSL_CTX* m_pCtx;
    SSL* m_pSSL;
    X509* m_pPeerCert;
    bool m_bSSLConnected;

public:
    // Settings of the next StartSSL.
    MethodType m_eMethodType;
    std::string m_strCertFile;       ///< client certificate, PEM; empty for none
    std::string m_strKeyFile;        ///< its private key, PEM
    std::string m_strExtra;          ///< not used
    std::string m_strCAFile;         ///< trusted CA certificates, PEM; required
    SSL_verify_cb m_pfnVerify;       ///< null: OpenSSL's own verification
    pem_password_cb* m_pfnPassword;  ///< null: a key under a pass phrase fails
    void* m_pPasswordUserData;

    static bool m_bIsOpenSSLLibraryInitialized;

private:
    void CreateContext();
    void UseClientCertificate();
    void CreateConnection();
    void Handshake();
    void CheckPeerCertificate();
    void FreeTls();
    int ReceiveTls(unsigned char* buffer, unsigned int size, int timeoutMs, SocketStatus& status);
    int WriteTls(const void* data, std::size_t size, int line);
    int SendTls(const void* data, std::size_t size);
    bool AwaitMore(short events, int timeoutMs, SocketStatus& status);
    short AwaitedEvents(int result);
    bool AwaitPeer(short events);
    void Require(bool ok, const char* message) const;
};
