#pragma once

#include "KvEmailDriver.h"
#include "KvSmartAsynProtocolDriverMultiThreaded.h"

/// The engine's security mode for the host's setting; unknown settings never use TLS.
KvEmailDriver::SmtpSecType ConvertToEmailDriverSecurity(SmtpSecurityType security);

/// The SMTP driver: plugs the SMTP client engine into the multi-threaded framework. Holds no state of its own; the
/// framework serialises its calls. No operation throws: engine failures are logged and become false.
class KvSMTPDriver : public KvSmartAsynProtocolDriverMultiThreaded {
public:
    KvSMTPDriver() = default;
    ~KvSMTPDriver() override = default;

    const char* GetName() override { return "SMTP"; }
    const char* GetVersion() override { return "1.0"; }
    const char* GetProtocolName() override { return "Simple Message Transfer Protocol (SMTP)"; }
    const char* GetCarrierName() override { return ""; }

    /// Jobs share a session and connections only when carrier, server, security and account agree.
    ///
    /// Compatibility: the key carries the password as plain text, and is logged.
    /// Relied on by: hosts that match the key in log lines.
    /// Held by: KvSMTPDriverTest.TheCacheKeyNamesCarrierServerSecurityUserAndPassword.
    std::string GetCacheKey(KvMessageFile* msgFile) override;

    bool TestConnection(KvConn& conn) override;
    bool CreateConnection(KvConn& conn, const KvMessageFile* msgFile) override;
    /// False, without deleting the engine, when closing it throws.
    bool CloseConnection(KvConn& conn) override;
    KvSmartProtocolDriverDelegateIface* GetProtocolDriverDelegate() override;

protected:
    bool TryConnect(KvConn& conn, const KvMessageFile& file);
    bool TryTest(KvEmailDriver& engine);
    bool TryClose(KvEmailDriver* engine);
};
