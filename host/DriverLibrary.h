#pragma once

#include <stdexcept>
#include <string>

#include "KvDriverEntryPoints.h"

namespace kvhost {

/// A driver that cannot be loaded, or that refuses to work.
class DriverError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A loaded driver library and its two exported functions. One thread at a time.
class DriverLibrary {
public:
    /// Loads the library. A name without a slash is looked up by the dynamic loader and then beside this
    /// executable. Throws DriverError when it cannot be loaded or lacks one of the two functions.
    explicit DriverLibrary(const std::string& name);
    /// Unloads the library, as far as the library allows that.
    ~DriverLibrary();

    DriverLibrary(const DriverLibrary&) = delete;
    DriverLibrary& operator=(const DriverLibrary&) = delete;

    /// The library's driver, which stays the library's. Throws DriverError when it answers none.
    KvProtocolDriverInterface& GetInstance();
    void Release(KvProtocolDriverInterface& driver);

private:
    void* Resolve(const char* symbol);

    const std::string m_strName;
    void* m_pHandle;
    decltype(&::GetDriverInstance) m_pGetInstance = nullptr;
    decltype(&::ReleaseDriverInstance) m_pRelease = nullptr;
};

}  // namespace kvhost
