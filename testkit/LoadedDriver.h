#pragma once

#include <map>
#include <string>

#include "HostDoubles.h"
#include "KvProtocolDriverInterface.h"

namespace kvtest {

/// A driver library as a host has it: loaded at run time, reached through its two exports and the contract
/// headers alone. One thread at a time.
///
///     LoadedDriver driver(pathOfLibrary);
///     driver.start(host, {{"smart_driver.threadpool_size", "3"}});
///     driver->SendAMessage(...);
///     driver.stop();
class LoadedDriver {
public:
    /// Loads the library and gets its driver. Throws std::runtime_error with the loader's words.
    explicit LoadedDriver(const std::string& path);
    /// Stops, releases and unloads what is still there.
    ~LoadedDriver();

    LoadedDriver(const LoadedDriver&) = delete;
    LoadedDriver& operator=(const LoadedDriver&) = delete;

    /// Lends the host's services, configures and sets up.
    void start(HostDoubles& host, std::map<std::string, std::string> settings);
    /// Cleans up and releases the driver; the library stays loaded. Does nothing the second time.
    void stop();
    /// dlclose.
    void unload();

    /// A symbol of the library; null when it does not export it.
    void* symbol(const char* name) const;

    KvProtocolDriverInterface* get() const { return m_driver; }
    KvProtocolDriverInterface* operator->() const { return m_driver; }

private:
    void* m_library;
    KvProtocolDriverInterface* m_driver = nullptr;
    bool m_started = false;
};

}  // namespace kvtest
