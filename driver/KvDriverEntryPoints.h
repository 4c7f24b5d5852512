#pragma once

class KvProtocolDriverInterface;

// The two symbols that a driver library exports, unmangled; a host resolves them by name. Neither takes a lock:
// call them from one thread, outside any other call of the driver.
extern "C" {

/// The library's only driver, made by the first call. Later calls answer the same object until it is released.
__attribute__((visibility("default"))) KvProtocolDriverInterface* GetDriverInstance();

/// Destroys the driver when `driver` is the one that GetDriverInstance answered; ignores any other pointer.
__attribute__((visibility("default"))) void ReleaseDriverInstance(KvProtocolDriverInterface* driver);
}
