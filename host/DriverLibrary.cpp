#include "DriverLibrary.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace kvhost {

namespace {

constexpr int kMode = RTLD_NOW | RTLD_LOCAL;

std::string LoaderText() {
    const char* text = ::dlerror();
    return text != nullptr ? text : "unknown reason";
}

std::string BesideThisExecutable(const std::string& name) {
    std::error_code ignored;
    return (std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / name).string();
}

void* Load(const std::string& name) {
    void* handle = ::dlopen(name.c_str(), kMode);
    if (handle != nullptr) {
        return handle;
    }
    const std::string reason = LoaderText();
    // A file that lies beside the executable and cannot be loaded either has the more telling reason.
    const std::string beside = BesideThisExecutable(name);
    std::error_code ignored;
    const bool isBeside = name.find('/') == std::string::npos && std::filesystem::exists(beside, ignored);
    handle = isBeside ? ::dlopen(beside.c_str(), kMode) : nullptr;
    if (handle == nullptr) {
        throw DriverError("the driver cannot be loaded: " + (isBeside ? LoaderText() : reason));
    }
    return handle;
}

}  // namespace

DriverLibrary::DriverLibrary(const std::string& name) : m_strName(name), m_pHandle(Load(name)) {
    try {
        m_pGetInstance = reinterpret_cast<decltype(m_pGetInstance)>(Resolve("GetDriverInstance"));
        m_pRelease = reinterpret_cast<decltype(m_pRelease)>(Resolve("ReleaseDriverInstance"));
    } catch (...) {
        ::dlclose(m_pHandle);
        throw;
    }
}

DriverLibrary::~DriverLibrary() {
    ::dlclose(m_pHandle);
}

KvProtocolDriverInterface& DriverLibrary::GetInstance() {
    KvProtocolDriverInterface* driver = m_pGetInstance();
    if (driver == nullptr) {
        throw DriverError(m_strName + " answers no driver");
    }
    return *driver;
}

void DriverLibrary::Release(KvProtocolDriverInterface& driver) {
    m_pRelease(&driver);
}

void* DriverLibrary::Resolve(const char* symbol) {
    void* address = ::dlsym(m_pHandle, symbol);
    if (address == nullptr) {
        throw DriverError(m_strName + " is no driver: it exports no " + symbol);
    }
    return address;
}

}  // namespace kvhost
