#include "driver_faults/EngineCalls.h"

#include <utility>

#include "KvEmailDriver.h"

namespace {

kvtest::EngineCall g_call;
std::function<void()> g_before;

void RunBefore(kvtest::EngineCall call) {
    if (g_before && g_call == call) {
        g_before();
    }
}

}  // namespace

namespace kvtest {

InterceptedCall::InterceptedCall(EngineCall call, std::function<void()> before) {
    g_call = call;
    g_before = std::move(before);
}

InterceptedCall::~InterceptedCall() {
    g_before = nullptr;
}

}  // namespace kvtest

// The linker sends each call of a wrapped function, which it knows by its mangled name, here and calls of
// __real_<name> to the engine's own.
extern "C" {

void __real__ZN13KvEmailDriver5CloseEv(KvEmailDriver*);
bool __real__ZN13KvEmailDriver7IsAliveEv(KvEmailDriver*);

void __wrap__ZN13KvEmailDriver5CloseEv(KvEmailDriver* engine) {
    RunBefore(kvtest::EngineCall::Close);
    __real__ZN13KvEmailDriver5CloseEv(engine);
}

bool __wrap__ZN13KvEmailDriver7IsAliveEv(KvEmailDriver* engine) {
    RunBefore(kvtest::EngineCall::IsAlive);
    return __real__ZN13KvEmailDriver7IsAliveEv(engine);
}

}  // extern "C"
