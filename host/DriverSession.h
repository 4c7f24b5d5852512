#pragma once

#include <map>
#include <string>

#include "DriverLibrary.h"
#include "KvMessageFileQueue.h"
#include "KvMessengerInstConfBasic.h"
#include "KvProtocolDriverInterface.h"

namespace kvhost {

/// What a driver works with; the host owns it all, and it outlives the session.
struct HostServices {
    KvLogInterface& log;
    KvMessengerReportsMngrInterface& reports;
    KvMessageFileQueue& returned;
};

/// One driver from its first call to its release. One thread at a time: the same one for all of it.
///
/// Nothing that the driver throws passes through; it becomes a DriverError that names the call.
class DriverSession {
public:
    /// Gets the library's driver and gives it the host's services. Throws DriverError.
    DriverSession(DriverLibrary& library, const HostServices& services);
    /// Cleans up, if Start succeeded and CleanUp was not called, and releases the driver.
    ~DriverSession();

    DriverSession(const DriverSession&) = delete;
    DriverSession& operator=(const DriverSession&) = delete;

    /// Configure and Setup. Throws DriverError when the driver refuses either.
    void Start(std::map<std::string, std::string> settings);
    /// True when the driver took the file; from then on it is the driver's until it comes back.
    bool HandOver(KvMessageFile& file);
    /// The driver's periodic event; its result.
    bool Tick();
    /// Cleanup; its result. Nothing may be handed over afterwards.
    bool CleanUp();

    /// Such as "SMTP 1.0, Simple Message Transfer Protocol (SMTP)".
    std::string Describe();

private:
    DriverLibrary& m_library;
    KvProtocolDriverInterface& m_driver;
    KvMessengerInstConfBasic m_instance;
    bool m_bStarted = false;
};

}  // namespace kvhost
