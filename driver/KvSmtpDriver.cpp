#include "KvSmtpDriver.h"

#include <cxxabi.h>

#include <memory>

#include "KvAny.h"
#include "KvLog.h"
#include "KvSMTPMsgDispatcher.h"
#include "KvioException.h"

namespace {

constexpr const char* kSource = "KvSmtpDriver.cpp";

KvEmailDriver* EngineOf(const KvSmartAsynProtocolDriverMultiThreaded::KvConn& conn) {
    return static_cast<KvEmailDriver*>(conn.m_pConnection);
}

}  // namespace

KvEmailDriver::SmtpSecType ConvertToEmailDriverSecurity(SmtpSecurityType security) {
    switch (security) {
        case SMTP_SECURITY_ON_DEMAND:
            return KvEmailDriver::SecTLSOnDemand;
        case SMTP_SECURITY_CLEAR:
            return KvEmailDriver::SecClear;
        case SMTP_SECURITY_IF_AVAILABLE:
            return KvEmailDriver::SecTLSIfAvailable;
        case SMTP_SECURITY_REQUIRED:
            return KvEmailDriver::SecTLSRequired;
        default:
            return KvEmailDriver::SecNone;
    }
}

std::string KvSMTPDriver::GetCacheKey(KvMessageFile* msgFile) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPDriver::GetCacheKey");
    std::string key;
    if (msgFile != nullptr) {
        key = printfToString("{%lu}-{%s}-{%d}-{%s}-{%s}", msgFile->m_ulCarrierID,
                             msgFile->m_strSmtpServer.c_str(), static_cast<int>(msgFile->m_eSmtpSecurity),
                             msgFile->m_strSmtpUser.c_str(), msgFile->m_strSmtpPassword.c_str());
    }
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::GetCacheKey with return value = '%s'",
           key.c_str());
    return key;
}

bool KvSMTPDriver::CreateConnection(KvConn& conn, const KvMessageFile* msgFile) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPDriver::CreateConnection");
    const bool result = msgFile != nullptr && TryConnect(conn, *msgFile);
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::CreateConnection with return value = '%s'",
           KvAny(result).asString().c_str());
    return result;
}

bool KvSMTPDriver::TryConnect(KvConn& conn, const KvMessageFile& file) {
    try {
        auto engine = std::make_unique<KvEmailDriver>(m_pLog, file.m_strSmtpCertFile, file.m_strSmtpKeyFile,
                                                      file.m_strSmtpCAFile);
        engine->Connect(file.m_strSmtpServer, file.m_strSmtpUser, file.m_strSmtpPassword,
                        ConvertToEmailDriverSecurity(file.m_eSmtpSecurity));
        conn.m_pConnection = engine.release();
        return true;
    } catch (const KvSmtpException& error) {
        KV_LOG(m_pLog, LogError, kSource, "Error: %s", error.m_strError.c_str());
    } catch (KvioException& error) {
        KV_LOG(m_pLog, LogError, kSource, "Error: %s", error.ToString().c_str());
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        KV_LOG(m_pLog, LogError, kSource, "Unknown error Occurred.");
    }
    return false;
}

bool KvSMTPDriver::TestConnection(KvConn& conn) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPDriver::TestConnection");
    const bool result = TryTest(*EngineOf(conn));
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::TestConnection with return value = '%s'",
           KvAny(result).asString().c_str());
    return result;
}

bool KvSMTPDriver::TryTest(KvEmailDriver& engine) {
    try {
        return engine.IsAlive();
    } catch (const KvSmtpException& error) {
        KV_LOG(m_pLog, LogError, kSource, "Error: %s", error.m_strError.c_str());
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        KV_LOG(m_pLog, LogError, kSource, "Unknown error Occurred.");
    }
    return false;
}

bool KvSMTPDriver::CloseConnection(KvConn& conn) {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPDriver::CloseConnection");
    const bool result = TryClose(EngineOf(conn));
    KV_LOG(m_pLog, LogTrace, kSource, "Leaving KvSMTPDriver::CloseConnection with return value = '%s'",
           KvAny(result).asString().c_str());
    return result;
}

bool KvSMTPDriver::TryClose(KvEmailDriver* engine) {
    try {
        engine->Close();
        delete engine;
        return true;
    } catch (const KvSmtpException& error) {
        KV_LOG(m_pLog, LogError, kSource, "Error: %s", error.m_strError.c_str());
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        KV_LOG(m_pLog, LogError, kSource, "Unknown error occurred.");
    }
    return false;
}

KvSmartProtocolDriverDelegateIface* KvSMTPDriver::GetProtocolDriverDelegate() {
    KV_LOG(m_pLog, LogTrace, kSource, "Entering KvSMTPDriver::GetProtocolDriverDelegate");
    auto* const dispatcher = new KvSMTPMsgDispatcher;
    KV_LOG(m_pLog, LogTrace, kSource,
           "Leaving KvSMTPDriver::GetProtocolDriverDelegate with return value = '%s'", "SMTP Msg Dispatcher");
    return dispatcher;
}
