// The rules and counters of the shim; the functions themselves are in SystemCalls.cpp and TlsCalls.cpp.
#include "FaultShim.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "Interception.h"

namespace kvfault {

namespace {

constexpr auto kCalls = static_cast<std::size_t>(Call::Count);

std::atomic<unsigned long> g_counts[kCalls];
std::atomic<unsigned long> g_injected;
std::atomic<bool> g_armed;
Rule g_rule;
std::atomic<int> g_divisor{1};
std::atomic<int> g_threads;
std::atomic<long> g_clockOffset;

/// Of the initial TLS block: the first use in a thread allocates nothing.
[[gnu::tls_model("initial-exec")]] thread_local bool t_inProduct = false;
[[gnu::tls_model("initial-exec")]] thread_local bool t_inTls = false;

constexpr const char* kNames[kCalls + 1] = {"socket",
                                            "connect",
                                            "send",
                                            "recv",
                                            "pselect",
                                            "ppoll",
                                            "fcntl",
                                            "setsockopt",
                                            "getsockopt",
                                            "pthread_create",
                                            "pthread_detach",
                                            "gethostbyname_r",
                                            "fopen",
                                            "open",
                                            "read",
                                            "send in TLS",
                                            "stat",
                                            "clock",
                                            "SSL_CTX_new",
                                            "SSL_CTX_load_verify_locations",
                                            "SSL_new",
                                            "SSL_set_fd",
                                            "SSL_connect",
                                            "SSL_read",
                                            "SSL_write",
                                            "SSL_get1_peer_certificate",
                                            "X509_NAME_oneline",
                                            "malloc",
                                            "operator new",
                                            "no call"};

}  // namespace

const char* NameOf(Call call) {
    return kNames[static_cast<std::size_t>(call)];
}

void Arm(const Rule& rule) {
    g_rule = rule;
    g_injected = 0;
    g_clockOffset = 0;
    for (auto& count : g_counts) {
        count = 0;
    }
    g_armed = true;
}

void Disarm() {
    g_armed = false;
}

unsigned long Calls(Call call) {
    return g_counts[static_cast<std::size_t>(call)];
}

unsigned long Injected() {
    return g_injected;
}

int LiveThreads() {
    return g_threads;
}

void ShortenWaits(int divisor) {
    g_divisor = divisor;
}

DriverCall::DriverCall() : m_before(InProduct(true)) {}

DriverCall::~DriverCall() {
    InProduct(m_before);
}

HostCall::HostCall() : m_before(InProduct(false)) {}

HostCall::~HostCall() {
    InProduct(m_before);
}

bool NewFails() {
    return Meets(Call::OperatorNew) == Verdict::Fail;
}

// What the interceptions use.

bool InProduct() {
    return t_inProduct;
}

bool InProduct(bool inside) {
    const bool before = t_inProduct;
    t_inProduct = inside;
    return before;
}

TlsCall::TlsCall() : m_before(t_inTls) {
    t_inTls = true;
}

TlsCall::~TlsCall() {
    t_inTls = m_before;
}

bool InTls() {
    return t_inTls;
}

Verdict Meets(Call call) {
    if (!t_inProduct) {
        return Verdict::Pass;
    }
    const unsigned long number = ++g_counts[static_cast<std::size_t>(call)];
    if (!g_armed || g_rule.call != call || number < g_rule.first || number - g_rule.first >= g_rule.times) {
        return Verdict::Pass;
    }
    ++g_injected;
    switch (g_rule.kind) {
        case Kind::Fail:
            errno = g_rule.error;
            return Verdict::Fail;
        case Kind::OneByte:
            return Verdict::OneByte;
        case Kind::StepClock:
            g_clockOffset = g_rule.seconds;
            return Verdict::Pass;
    }
    return Verdict::Pass;
}

int Divisor() {
    return t_inProduct ? g_divisor.load() : 1;
}

long ClockOffset() {
    return t_inProduct ? g_clockOffset.load() : 0;
}

ThreadInProduct::ThreadInProduct() {
    t_inProduct = true;
}

ThreadInProduct::~ThreadInProduct() {
    --g_threads;
    t_inProduct = false;
}

void ThreadInProduct::CountStart(int change) {
    g_threads += change;
}

}  // namespace kvfault
