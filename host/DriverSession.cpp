#include "DriverSession.h"

#include <exception>

namespace kvhost {

namespace {

/// Runs one call of the driver and turns whatever it throws into a DriverError.
template <typename Call>
decltype(auto) Guarded(const char* name, const Call& call) {
    try {
        return call();
    } catch (const std::exception& error) {
        throw DriverError(std::string("the driver threw out of ") + name + ": " + error.what());
    } catch (...) {
        throw DriverError(std::string("the driver threw out of ") + name);
    }
}

std::string OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

DriverSession::DriverSession(DriverLibrary& library, const HostServices& services)
    : m_library(library), m_driver(Guarded("GetDriverInstance", [&library]() -> KvProtocolDriverInterface& {
          return library.GetInstance();
      })) {
    m_driver.m_pLog = &services.log;
    m_driver.m_pReportsMngr = &services.reports;
    m_driver.m_pMsgFileQueue = &services.returned;
}

DriverSession::~DriverSession() {
    try {
        if (m_bStarted) {
            CleanUp();
        }
        m_library.Release(m_driver);
    } catch (...) {
        // There is nothing left to do with a driver that cannot even be released.
        return;
    }
}

void DriverSession::Start(std::map<std::string, std::string> settings) {
    if (!Guarded("Configure", [&] { return m_driver.Configure(settings); })) {
        throw DriverError("the driver refused its settings");
    }
    if (!Guarded("Setup", [&] { return m_driver.Setup(&m_instance); })) {
        throw DriverError("the driver could not set itself up");
    }
    m_bStarted = true;
}

bool DriverSession::HandOver(KvMessageFile& file) {
    auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
    return Guarded("SendAMessage", [&] { return m_driver.SendAMessage(&file, status); });
}

bool DriverSession::Tick() {
    return Guarded("PeriodicEvent", [this] { return m_driver.PeriodicEvent(); });
}

bool DriverSession::CleanUp() {
    m_bStarted = false;
    return Guarded("Cleanup", [this] { return m_driver.Cleanup(); });
}

std::string DriverSession::Describe() {
    return Guarded("its name operations", [this] {
        return OrEmpty(m_driver.GetName()) + " " + OrEmpty(m_driver.GetVersion()) + ", " +
               OrEmpty(m_driver.GetProtocolName());
    });
}

}  // namespace kvhost
