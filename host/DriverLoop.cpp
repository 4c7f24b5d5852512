#include "DriverLoop.h"

#include <exception>
#include <utility>

namespace kvhost {

DriverLoop::DriverLoop(Work work)
    : m_work(std::move(work)), m_tick(m_work.tick), m_thread([this] { Main(); }) {}

DriverLoop::~DriverLoop() {
    Finish();
    m_thread.join();
}

void DriverLoop::HandOver(std::vector<TickLoad> loads) {
    bool isTooLate = false;
    Set([&] {
        isTooLate = m_bEnded;
        for (TickLoad& load : loads) {
            m_dqLoads.push_back(std::move(load));
        }
    });
    if (isTooLate) {
        TakeBack();
    }
}

void DriverLoop::SetTick(Milliseconds tick) {
    Set([&] { m_tick = tick; });
}

void DriverLoop::Finish() {
    Set([&] { m_bFinish = true; });
}

bool DriverLoop::WaitUntilDone(Milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_view.isDone; });
}

DriverLoop::View DriverLoop::Look() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    View view = m_view;
    view.isReady = view.isStarted && !view.isDone && !m_bFinish && m_dqLoads.empty() && !view.inCallSince;
    m_bAwaited = m_bAwaited || !view.isReady;
    return view;
}

std::vector<DriverLoop::Refusal> DriverLoop::TakeRefusals() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::exchange(m_vecRefusals, {});
}

void DriverLoop::Main() {
    try {
        Drive();
    } catch (const std::exception& error) {
        NoteError(error);
    }
    Set([&] { m_bEnded = true; });
    TakeBack();
    Set([&] {
        m_view.inCallSince.reset();
        m_view.isDone = true;
    });
    m_work.onChange();
}

void DriverLoop::Drive() {
    DriverSession session(m_work.plugin, m_work.services);
    const std::string description = session.Describe();
    Set([&] { m_view.description = description; });
    m_work.log.Tell("driver: " + description);
    session.Start(m_work.settings);
    Set([&] { m_view.isStarted = true; });
    m_work.onChange();
    try {
        Loop(session);
    } catch (const std::exception& error) {
        NoteError(error);
        m_work.onChange();
    }
    m_work.log.Tell("cleaning up");
    if (!session.CleanUp()) {
        m_work.log.Warn("the driver reports that its clean-up failed");
    }
}

void DriverLoop::Loop(DriverSession& session) {
    while (WaitForWork()) {
        const TickLoad load = NextLoad();
        HandOver(session, load);
        Tick(session);
        TellIfReady();
    }
}

/// The first one counts.
void DriverLoop::NoteError(const std::exception& error) {
    Set([&] { m_view.error = m_view.error.empty() ? error.what() : m_view.error; });
}

/// Waits for files or for the next tick. False when the loop is to end.
bool DriverLoop::WaitForWork() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_until(lock, m_timeNextTick, [this] { return m_bFinish || !m_dqLoads.empty(); });
    return !m_bFinish;
}

/// The next load, empty when it is only time to tick. From here on the loop is inside a call.
DriverLoop::TickLoad DriverLoop::NextLoad() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_view.inCallSince = Clock::now();
    TickLoad load;
    if (!m_dqLoads.empty()) {
        load = std::move(m_dqLoads.front());
        m_dqLoads.pop_front();
    }
    return load;
}

/// Who has found the loop busy is told when it is not any more.
void DriverLoop::TellIfReady() {
    bool isAwaited = false;
    Set([&] { isAwaited = m_dqLoads.empty() && std::exchange(m_bAwaited, false); });
    if (isAwaited) {
        m_work.onChange();
    }
}

void DriverLoop::HandOver(DriverSession& session, const TickLoad& load) {
    for (KvMessageFile* file : load) {
        try {
            if (!session.HandOver(*file)) {
                Refuse(file, "the driver did not accept it", true);
            }
        } catch (const DriverError& error) {
            Refuse(file, error.what(), true);
        }
    }
}

void DriverLoop::Tick(DriverSession& session) {
    if (!session.Tick() && !m_bTickFailureTold) {
        m_bTickFailureTold = true;
        m_work.log.Warn("the driver reports that its periodic event failed");
    }
    Set([&] {
        m_view.inCallSince.reset();
        m_view.lastTick = std::chrono::system_clock::now();
        m_timeNextTick = Clock::now() + m_tick;
    });
}

void DriverLoop::Refuse(KvMessageFile* file, const std::string& reason, bool wasOffered) {
    Set([&] { m_vecRefusals.push_back({file, reason, wasOffered}); });
    m_work.onChange();
}

void DriverLoop::TakeBack() {
    std::deque<TickLoad> left;
    Set([&] { left.swap(m_dqLoads); });
    for (const TickLoad& load : left) {
        for (KvMessageFile* file : load) {
            Refuse(file, "kvhost ended before it was handed over", false);
        }
    }
}

template <typename Change>
void DriverLoop::Set(const Change& change) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    change();
    m_changed.notify_all();
}

}  // namespace kvhost
