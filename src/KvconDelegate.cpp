#include "KvconDelegate.h"

#include <cxxabi.h>

#include "KvEndSignals.h"

namespace {

void DoWorkOf(void* work) {
    auto* const delegate = static_cast<KvconDelegate*>(work);
    try {
        delegate->DoWork(delegate->GetUserData());
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // Nobody above this frame could answer it, and it must not end the process.
    }
}

}  // namespace

void KvRunDelegate(KvconDelegate& work) {
    if (dynamic_cast<KvconShieldedWork*>(&work) != nullptr) {
        KvEndSignals::WaitWindow window;
        DoWorkOf(&work);
    } else {
        KvEndSignals::RunOpen(DoWorkOf, &work);
    }
}
