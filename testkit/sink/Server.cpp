#include "Server.h"

#include <sys/eventfd.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <system_error>
#include <thread>

#include "EventLoop.h"

namespace kvsink {
namespace {

/// Starts a thread that inherits a mask with all signals blocked.
template <typename Body>
std::thread startWithSignalsBlocked(Body body) {
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread thread(std::move(body));
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread;
    } catch (const std::system_error&) {
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}

}  // namespace

/// What a started server holds; made in this order, the thread last.
struct Server::Running {
    Running(const Options& options, Counters& counters)
        : listener(options.listen),
          service{options, counters},
          stopSignal(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (options.offersTls()) {
            service.tls = &tls.emplace(options);
        }
        if (!options.maildir.empty()) {
            service.store = &store.emplace(options.maildir);
        }
        if (!options.journal.empty()) {
            service.journal = &journal.emplace(options.journal);
        }
        loop.emplace(service, listener, stopSignal.get());
        thread = startWithSignalsBlocked([this] { loop->run(); });
    }

    Listener listener;
    std::optional<TlsContext> tls;
    std::optional<MailStore> store;
    std::optional<Journal> journal;
    Service service;
    FileDescriptor stopSignal;
    std::optional<EventLoop> loop;
    std::thread thread;
};

Server::Server(Options options) : m_options(std::move(options)) {}

Server::~Server() {
    stop();
}

void Server::start() {
    m_running = std::make_unique<Running>(m_options, m_counters);
}

void Server::stop() {
    if (m_running != nullptr && m_running->thread.joinable()) {
        ::eventfd_write(m_running->stopSignal.get(), 1);
        m_running->thread.join();
    }
}

std::uint16_t Server::port() const {
    return m_running->listener.port();
}

const std::string& Server::boundAddress() const {
    return m_running->listener.boundAddress();
}

Counts Server::counters() const {
    return m_counters.read();
}

void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace kvsink
