// Calls of the C library.
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "Interception.h"

using kvfault::Call;
using kvfault::Fails;
using kvfault::Meets;
using kvfault::Verdict;

namespace {

std::size_t Sized(Verdict verdict, std::size_t size) {
    return verdict == Verdict::OneByte && size > 1 ? 1 : size;
}

timespec Shortened(const timespec& time) {
    const int divisor = kvfault::Divisor();
    const long long nanoseconds = (static_cast<long long>(time.tv_sec) * 1000000000 + time.tv_nsec) / divisor;
    timespec result{};
    result.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
    result.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
    return result;
}

void SleepShortened(const timespec& time) {
    timespec left = Shortened(time);
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

struct Start {
    void* (*routine)(void*);
    void* argument;
};

void* RunInProduct(void* start) {
    const Start copy = *static_cast<Start*>(start);
    std::free(start);
    const kvfault::ThreadInProduct thread;
    return copy.routine(copy.argument);
}

}  // namespace

KV_INTERCEPT(int, socket, (int domain, int type, int protocol)) {
    return Fails(Call::Socket) ? -1 : Next_socket()(domain, type, protocol);
}

KV_INTERCEPT(int, connect, (int descriptor, const sockaddr* address, socklen_t size)) {
    return Fails(Call::Connect) ? -1 : Next_connect()(descriptor, address, size);
}

KV_INTERCEPT(ssize_t, send, (int descriptor, const void* data, std::size_t size, int flags)) {
    const Verdict verdict = Meets(kvfault::InTls() ? Call::TlsSend : Call::Send);
    return verdict == Verdict::Fail ? -1 : Next_send()(descriptor, data, Sized(verdict, size), flags);
}

KV_INTERCEPT(ssize_t, recv, (int descriptor, void* data, std::size_t size, int flags)) {
    const Verdict verdict = Meets(Call::Recv);
    return verdict == Verdict::Fail ? -1 : Next_recv()(descriptor, data, Sized(verdict, size), flags);
}

KV_INTERCEPT(ssize_t, read, (int descriptor, void* data, std::size_t size)) {
    const Verdict verdict = Meets(Call::Read);
    return verdict == Verdict::Fail ? -1 : Next_read()(descriptor, data, Sized(verdict, size));
}

KV_INTERCEPT(int, pselect,
             (int limit, fd_set* reads, fd_set* writes, fd_set* others, const timespec* timeout,
              const sigset_t* mask)) {
    if (Fails(Call::Pselect)) {
        return -1;
    }
    const timespec shortened = timeout == nullptr ? timespec{} : Shortened(*timeout);
    return Next_pselect()(limit, reads, writes, others, timeout == nullptr ? nullptr : &shortened, mask);
}

KV_INTERCEPT(int, ppoll,
             (pollfd * descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask)) {
    if (Fails(Call::Ppoll)) {
        return -1;
    }
    const timespec shortened = timeout == nullptr ? timespec{} : Shortened(*timeout);
    return Next_ppoll()(descriptors, count, timeout == nullptr ? nullptr : &shortened, mask);
}

KV_INTERCEPT(int, fcntl, (int descriptor, int command, ...)) {
    if (Fails(Call::Fcntl)) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return Next_fcntl()(descriptor, command, argument);
}

KV_INTERCEPT(int, setsockopt, (int descriptor, int level, int option, const void* value, socklen_t size)) {
    return Fails(Call::Setsockopt) ? -1 : Next_setsockopt()(descriptor, level, option, value, size);
}

KV_INTERCEPT(int, getsockopt, (int descriptor, int level, int option, void* value, socklen_t* size)) {
    return Fails(Call::Getsockopt) ? -1 : Next_getsockopt()(descriptor, level, option, value, size);
}

KV_INTERCEPT(int, gethostbyname_r,
             (const char* name, hostent* entry, char* buffer, std::size_t size, hostent** result,
              int* error)) {
    if (Fails(Call::Gethostbyname)) {
        *result = nullptr;
        *error = TRY_AGAIN;
        return errno;
    }
    return Next_gethostbyname_r()(name, entry, buffer, size, result, error);
}

KV_INTERCEPT(int, pthread_create,
             (pthread_t * id, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument)) {
    if (!kvfault::InProduct()) {
        return Next_pthread_create()(id, attributes, routine, argument);
    }
    if (Fails(Call::PthreadCreate)) {
        return errno;
    }
    auto* const start = static_cast<Start*>(kvfault::Allocate(sizeof(Start)));
    *start = Start{routine, argument};
    kvfault::ThreadInProduct::CountStart(1);
    const int result = Next_pthread_create()(id, attributes, RunInProduct, start);
    if (result != 0) {
        kvfault::ThreadInProduct::CountStart(-1);
        std::free(start);
    }
    return result;
}

KV_INTERCEPT(int, pthread_detach, (pthread_t id)) {
    return Fails(Call::PthreadDetach) ? errno : Next_pthread_detach()(id);
}

KV_INTERCEPT(FILE*, fopen, (const char* path, const char* mode)) {
    return Fails(Call::Fopen) ? nullptr : Next_fopen()(path, mode);
}

KV_INTERCEPT(FILE*, fopen64, (const char* path, const char* mode)) {
    return Fails(Call::Fopen) ? nullptr : Next_fopen64()(path, mode);
}

KV_INTERCEPT(int, open, (const char* path, int flags, mode_t mode)) {
    return Fails(Call::Open) ? -1 : Next_open()(path, flags, mode);
}

KV_INTERCEPT(int, open64, (const char* path, int flags, mode_t mode)) {
    return Fails(Call::Open) ? -1 : Next_open64()(path, flags, mode);
}

KV_INTERCEPT(int, fstat, (int descriptor, struct stat* result)) {
    return Fails(Call::Stat) ? -1 : Next_fstat()(descriptor, result);
}

KV_INTERCEPT(int, stat, (const char* path, struct stat* result)) {
    return Fails(Call::Stat) ? -1 : Next_stat()(path, result);
}

KV_INTERCEPT(int, stat64, (const char* path, struct stat64* result)) {
    return Fails(Call::Stat) ? -1 : Next_stat64()(path, result);
}

// The clock: reading it never fails, but it may jump. A wait for a time of the jumped clock ends at the real one.

KV_INTERCEPT(time_t, time, (time_t * result)) {
    Meets(Call::Clock);
    const time_t now = Next_time()(nullptr) + static_cast<time_t>(kvfault::ClockOffset());
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

KV_INTERCEPT(int, gettimeofday, (timeval * now, void* zone)) {
    Meets(Call::Clock);
    const int result = Next_gettimeofday()(now, zone);
    now->tv_sec += static_cast<time_t>(kvfault::ClockOffset());
    return result;
}

KV_INTERCEPT(int, clock_gettime, (clockid_t clock, timespec* now)) {
    const int result = Next_clock_gettime()(clock, now);
    if (clock == CLOCK_REALTIME) {
        Meets(Call::Clock);
        now->tv_sec += static_cast<time_t>(kvfault::ClockOffset());
    }
    return result;
}

KV_INTERCEPT(int, pthread_cond_timedwait,
             (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* deadline)) {
    timespec real = *deadline;
    real.tv_sec -= static_cast<time_t>(kvfault::ClockOffset());
    return Next_pthread_cond_timedwait()(condition, mutex, &real);
}

KV_REPLACE(unsigned int, sleep, (unsigned int seconds)) {
    SleepShortened({static_cast<time_t>(seconds), 0});
    return 0;
}

KV_REPLACE(int, usleep, (unsigned int microseconds)) {
    SleepShortened(
        {static_cast<time_t>(microseconds / 1000000), static_cast<long>(microseconds % 1000000) * 1000});
    return 0;
}

#ifdef KV_SANITIZED

void* kvfault::Allocate(std::size_t size) {
    return std::malloc(size);
}

#else

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

void* kvfault::Allocate(std::size_t size) {
    return __libc_malloc(size);
}

KV_REPLACE(void*, malloc, (std::size_t size)) {
    return Fails(Call::Malloc) ? nullptr : __libc_malloc(size);
}

KV_REPLACE(void*, calloc, (std::size_t count, std::size_t size)) {
    return Fails(Call::Malloc) ? nullptr : __libc_calloc(count, size);
}

KV_REPLACE(void*, realloc, (void* memory, std::size_t size)) {
    return Fails(Call::Malloc) ? nullptr : __libc_realloc(memory, size);
}

#endif
