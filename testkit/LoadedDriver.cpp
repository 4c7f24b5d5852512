#include "LoadedDriver.h"

#include <dlfcn.h>

#include <stdexcept>

namespace kvtest {

namespace {

using GetDriver = KvProtocolDriverInterface* (*)();
using ReleaseDriver = void (*)(KvProtocolDriverInterface*);

template <typename Function>
Function exported(const LoadedDriver& library, const char* name) {
    void* const address = library.symbol(name);
    if (address == nullptr) {
        throw std::runtime_error(std::string("the driver library does not export ") + name);
    }
    return reinterpret_cast<Function>(address);
}

}  // namespace

LoadedDriver::LoadedDriver(const std::string& path) : m_library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (m_library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    m_driver = exported<GetDriver>(*this, "GetDriverInstance")();
}

LoadedDriver::~LoadedDriver() {
    stop();
    unload();
}

void LoadedDriver::start(HostDoubles& host, std::map<std::string, std::string> settings) {
    host.lendTo(*m_driver);
    m_driver->Configure(settings);
    m_driver->Setup(&host.instanceConf);
    m_started = true;
}

void LoadedDriver::stop() {
    if (m_driver == nullptr) {
        return;
    }
    if (m_started) {
        m_driver->Cleanup();
    }
    exported<ReleaseDriver>(*this, "ReleaseDriverInstance")(m_driver);
    m_driver = nullptr;
}

void LoadedDriver::unload() {
    if (m_library != nullptr) {
        dlclose(m_library);
        m_library = nullptr;
    }
}

void* LoadedDriver::symbol(const char* name) const {
    return dlsym(m_library, name);
}

}  // namespace kvtest
