#pragma once

#include <sys/epoll.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Clock.h"
#include "Connection.h"
#include "Listener.h"
#include "TimerQueue.h"

namespace kvsink {

/// Serves all connections of one server from one thread with epoll. One thread at a time: run() does all the
/// work, and what it is told from outside comes through the `stopSignal` descriptor.
class EventLoop {
public:
    /// Serves the clients of `listener`; ends once `stopSignal` (an eventfd) becomes readable. The arguments
    /// must outlive the loop. Throws std::system_error.
    EventLoop(const Service& service, Listener& listener, int stopSignal);

    /// Returns after the stop, when all connections are closed: a mail that is under way has 2 s to complete.
    void run();

private:
    struct Client {
        Connection connection;
        std::uint32_t interest;  // as epoll knows it
        TimePoint timer;         // the first entry in the timer queue; the end of time when there is none
    };

    void watch(int fd, std::uint64_t id);
    int waitMilliseconds() const;
    void handle(const epoll_event& event);
    void acceptClients();
    void admit(Arrival arrival);
    void handleClient(std::uint64_t id, std::uint32_t events);
    void handleTimers();
    void beginStop();
    template <typename Action>
    void perform(std::uint64_t id, Action action);
    bool settle(std::uint64_t id, Client& client);

    const Service& m_service;
    Listener& m_listener;
    FileDescriptor m_epoll;
    std::uint64_t m_lastId;
    std::unordered_map<std::uint64_t, Client> m_clients;
    TimerQueue m_timers;
    std::vector<char> m_buffer;  // lent to the connection that reads
    TimePoint m_now;             // when the present round of events began
    bool m_stopping = false;
    TimePoint m_stopBy = TimePoint::max();
};

}  // namespace kvsink
