#include "driver_faults/EngineClose.h"

#include <utility>

#include "KvEmailDriver.h"

// The program is linked with --wrap=_ZN13KvEmailDriver5CloseEv: calls of KvEmailDriver::Close() from other
// object files than the engine's own arrive at __wrap__ZN13KvEmailDriver5CloseEv.

namespace {

std::function<void()> g_before;

}  // namespace

namespace kvtest {

InterceptedClose::InterceptedClose(std::function<void()> before) {
    g_before = std::move(before);
}

InterceptedClose::~InterceptedClose() {
    g_before = nullptr;
}

}  // namespace kvtest

extern "C" {

void __real__ZN13KvEmailDriver5CloseEv(KvEmailDriver*);

void __wrap__ZN13KvEmailDriver5CloseEv(KvEmailDriver* engine) {
    if (g_before) {
        g_before();
    }
    __real__ZN13KvEmailDriver5CloseEv(engine);
}

}  // extern "C"
