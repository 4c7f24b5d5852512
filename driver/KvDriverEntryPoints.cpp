#include "KvDriverEntryPoints.h"

#include "KvSmtpDriver.h"

namespace {

/// The library's only driver.
KvProtocolDriverInterface* g_pobjSmtpDriver = nullptr;

}  // namespace

KvProtocolDriverInterface* GetDriverInstance() {
    if (g_pobjSmtpDriver == nullptr) {
        g_pobjSmtpDriver = new KvSMTPDriver;
    }
    return g_pobjSmtpDriver;
}

void ReleaseDriverInstance(KvProtocolDriverInterface* driver) {
    if (driver != g_pobjSmtpDriver) {
        return;
    }
    delete g_pobjSmtpDriver;
    g_pobjSmtpDriver = nullptr;
}
