#include "EventLoop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <system_error>

namespace kvsink {
namespace {

const std::uint64_t LISTENER_ID = 0;
const std::uint64_t STOP_ID = 1;
const std::size_t READ_SIZE = std::size_t{64} * 1024;
const std::size_t EVENTS_PER_ROUND = 256;
// So that a rush of new clients does not keep the others waiting.
const int CLIENTS_PER_ROUND = 64;
const std::chrono::seconds STOP_TIME(2);

}  // namespace

EventLoop::EventLoop(const Service& service, Listener& listener, int stopSignal)
    : m_service(service),
      m_listener(listener),
      m_epoll(::epoll_create1(EPOLL_CLOEXEC)),
      m_lastId(STOP_ID),
      m_buffer(READ_SIZE),
      m_now(Clock::now()) {
    watch(listener.fd(), LISTENER_ID);
    watch(stopSignal, STOP_ID);
}

void EventLoop::run() {
    std::array<epoll_event, EVENTS_PER_ROUND> events;
    while (!m_stopping || (!m_clients.empty() && m_now < m_stopBy)) {
        const int count = ::epoll_wait(m_epoll.get(), events.data(), events.size(), waitMilliseconds());
        m_now = Clock::now();
        for (int i = 0; i < count; ++i) {
            handle(events[static_cast<std::size_t>(i)]);
        }
        handleTimers();
    }
    m_clients.clear();
}

void EventLoop::watch(int fd, std::uint64_t id) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = id;
    if (::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
}

int EventLoop::waitMilliseconds() const {
    const TimePoint next = std::min(m_timers.next(), m_stopBy);
    if (next == TimePoint::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
}

void EventLoop::handle(const epoll_event& event) {
    switch (event.data.u64) {
        case LISTENER_ID:
            return acceptClients();
        case STOP_ID:
            return beginStop();
        default:
            return handleClient(event.data.u64, event.events);
    }
}

void EventLoop::acceptClients() {
    for (int i = 0; i < CLIENTS_PER_ROUND && !m_stopping; ++i) {
        std::optional<Arrival> arrival = m_listener.accept();
        if (!arrival) {
            return;
        }
        admit(std::move(*arrival));
    }
}

void EventLoop::admit(Arrival arrival) {
    const std::uint64_t id = ++m_lastId;
    const int fd = arrival.socket.get();
    Connection connection(std::move(arrival.socket), m_service, std::move(arrival.address));
    m_clients.emplace(id, Client{std::move(connection), EPOLLIN, TimePoint::max()});
    m_service.counters.countConnection();
    perform(id, [&](Connection& accepted) {
        watch(fd, id);
        accepted.onAccepted(m_now);
    });
}

void EventLoop::handleClient(std::uint64_t id, std::uint32_t events) {
    perform(id, [&](Connection& connection) {
        if ((events & EPOLLIN) != 0) {
            connection.onReadable(m_now, m_buffer.data(), m_buffer.size());
        }
        if ((events & EPOLLOUT) != 0) {
            connection.onWritable(m_now);
        }
        if ((events & (EPOLLIN | EPOLLOUT)) == 0) {
            connection.onBroken();
        }
    });
}

void EventLoop::handleTimers() {
    while (const std::optional<std::uint64_t> id = m_timers.takeDue(m_now)) {
        const auto found = m_clients.find(*id);
        if (found != m_clients.end()) {
            found->second.timer = TimePoint::max();
            perform(*id, [&](Connection& connection) { connection.onTimer(m_now); });
        }
    }
}

void EventLoop::beginStop() {
    if (m_stopping) {
        return;
    }
    m_stopping = true;
    m_stopBy = m_now + STOP_TIME;
    m_listener.close();
    std::vector<std::uint64_t> ids;
    for (const auto& [id, client] : m_clients) {
        ids.push_back(id);
    }
    for (const std::uint64_t id : ids) {
        perform(id, [&](Connection& connection) { connection.onStopping(m_now); });
    }
}

/// Does something with a connection, if it still exists, and then what the connection asks for. A connection
/// that fails, for want of memory say, is dropped; the others go on.
template <typename Action>
void EventLoop::perform(std::uint64_t id, Action action) {
    const auto found = m_clients.find(id);
    if (found == m_clients.end()) {
        return;
    }
    bool lives = false;
    try {
        action(found->second.connection);
        lives = settle(id, found->second);
    } catch (const std::exception&) {
        lives = false;
    }
    if (!lives) {
        m_clients.erase(found);
    }
}

/// Brings epoll and the timer queue up to date; false when the connection is over.
bool EventLoop::settle(std::uint64_t id, Client& client) {
    if (client.connection.isOver()) {
        return false;
    }
    epoll_event event{};
    event.events = client.connection.interest();
    event.data.u64 = id;
    if (event.events != client.interest) {
        client.interest = event.events;
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_MOD, client.connection.fd(), &event);
    }
    if (client.connection.nextTimer() < client.timer) {
        client.timer = client.connection.nextTimer();
        m_timers.add(client.timer, id);
    }
    return true;
}

}  // namespace kvsink
