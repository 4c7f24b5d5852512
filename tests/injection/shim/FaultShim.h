#pragma once

#include <cstddef>

/// Stands between the plug-in and the system, OpenSSL and the allocator: counts the calls that the product makes, and
/// makes chosen ones fail. It is a shared library that a test program links ahead of all others, so that the calls of
/// every library loaded later come here first.
///
/// Only threads that are in the product count: those inside a DriverCall, and those that such a thread starts. The
/// threads of the test, of its mail server and of the host's own objects are left alone.
///
/// Thread-safe, but for Arm and the settings: those are called while no thread is in the product.
namespace kvfault {

enum class Call {
    Socket,
    Connect,
    Send,
    Recv,
    Pselect,
    Ppoll,
    Fcntl,
    Setsockopt,
    Getsockopt,
    PthreadCreate,
    PthreadDetach,
    Gethostbyname,
    Fopen,
    Open,
    Read,
    TlsSend,  ///< send, called by OpenSSL; it does not count as Send
    Stat,     ///< stat and fstat
    Clock,    ///< time, gettimeofday, clock_gettime(CLOCK_REALTIME)
    SslCtxNew,
    SslCtxLoadVerifyLocations,
    SslNew,
    SslSetFd,
    SslConnect,
    SslRead,
    SslWrite,
    SslGetPeerCertificate,
    X509NameOneline,
    Malloc,  ///< malloc, calloc and realloc; never counted in a sanitized program, whose allocator is its own
    OperatorNew,  ///< counted by the operators of the test program
    Count
};

/// The name of the function, such as "SSL_connect".
const char* NameOf(Call call);

enum class Kind {
    Fail,       ///< the call fails with `error`, without having been made
    OneByte,    ///< send, recv, read: the call is made with a size of 1
    StepClock,  ///< the wall clock jumps by `seconds` before the call, and stays there
};

/// From the `first` call (counted from 1) on, `times` calls are treated as `kind` says.
struct Rule {
    Call call = Call::Count;
    unsigned long first = 0;
    unsigned long times = 1;
    int error = 0;  ///< errno, or the result of a pthread function
    Kind kind = Kind::Fail;
    long seconds = 0;
};

/// Puts a rule into force and counts from 0 again.
void Arm(const Rule& rule);
/// No call fails from now on; counting goes on.
void Disarm();

unsigned long Calls(Call call);
/// How many calls the rule has met since Arm.
unsigned long Injected();
/// Threads started in the product that have not ended.
int LiveThreads();

/// In the product, sleeps and the time-outs of pselect and ppoll take only this part of their time. 1 at first.
void ShortenWaits(int divisor);

/// The calling thread is in the product while this lives.
class DriverCall {
public:
    DriverCall();
    ~DriverCall();
    DriverCall(const DriverCall&) = delete;
    DriverCall& operator=(const DriverCall&) = delete;

private:
    bool m_before;
};

/// The product has called an object of the host: the calling thread is out of the product while this lives.
class HostCall {
public:
    HostCall();
    ~HostCall();
    HostCall(const HostCall&) = delete;
    HostCall& operator=(const HostCall&) = delete;

private:
    bool m_before;
};

/// For the program's operator new: counts it; true when it is to fail.
bool NewFails();
/// Memory that counts as nobody's call. Null when there is none.
void* Allocate(std::size_t size);

}  // namespace kvfault
