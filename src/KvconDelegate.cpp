#include "KvconDelegate.h"

#include <cxxabi.h>

#include "KvEndSignals.h"

namespace {

// Nothing in this frame needs clean-up, so that it can be unwound at every instruction.
void CallDoWork(void* work) {
    auto* const delegate = static_cast<KvconDelegate*>(work);
    delegate->DoWork(delegate->GetUserData());
}

void RunInItsMode(KvconDelegate& work) {
    if (dynamic_cast<KvconShieldedWork*>(&work) != nullptr) {
        KvEndSignals::WaitWindow window;
        CallDoWork(&work);
    } else {
        KvEndSignals::RunOpen(CallDoWork, &work);
    }
}

}  // namespace

void KvRunDelegate(KvconDelegate& work) {
    try {
        RunInItsMode(work);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // Nobody above this frame could answer it, and it must not end the process.
        KvEndSignals::BlockAgain();
    }
}
