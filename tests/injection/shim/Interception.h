#pragma once

#include <dlfcn.h>

#include "FaultShim.h"

/// What the intercepted functions share.
namespace kvfault {

enum class Verdict { Pass, Fail, OneByte };

/// Counts a call of the product and says what becomes of it; errno is set for one that is to fail.
Verdict Meets(Call call);
inline bool Fails(Call call) {
    return Meets(call) == Verdict::Fail;
}

bool InProduct();
/// Sets it; what it was before.
bool InProduct(bool inside);
/// While an object of this class lives, the calling thread is inside OpenSSL.
class TlsCall {
public:
    TlsCall();
    ~TlsCall();
    TlsCall(const TlsCall&) = delete;
    TlsCall& operator=(const TlsCall&) = delete;

private:
    bool m_before;
};
bool InTls();
/// The divisor of waits for the calling thread.
int Divisor();
/// Seconds by which the wall clock of the calling thread is off.
long ClockOffset();

/// A thread of the product, from its first to its last instruction.
class ThreadInProduct {
public:
    ThreadInProduct();
    ~ThreadInProduct();
    ThreadInProduct(const ThreadInProduct&) = delete;
    ThreadInProduct& operator=(const ThreadInProduct&) = delete;

    static void CountStart(int change);
};

/// The function that the shim stands in front of.
template <typename Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace kvfault

/// Declares the function `name` of the system under a name of ours, so that its own declaration is not needed.
#define KV_REPLACE(result, name, parameters)                \
    extern "C" result Our_##name parameters __asm__(#name); \
    result Our_##name parameters

/// The same, and Next_<name>(), which is the function behind it.
#define KV_INTERCEPT(result, name, parameters)                                \
    static auto Next_##name() {                                               \
        static auto* const next = kvfault::Next<result(*) parameters>(#name); \
        return next;                                                          \
    }                                                                         \
    KV_REPLACE(result, name, parameters)
