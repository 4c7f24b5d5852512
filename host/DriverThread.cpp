#include "DriverThread.h"

#include <exception>
#include <utility>

namespace kvhost {

DriverThread::DriverThread(Work work) : m_work(std::move(work)), m_thread([this] { Main(); }) {}

DriverThread::~DriverThread() {
    Finish();
    m_thread.join();
}

void DriverThread::StopHandingOver() {
    Set(m_bStop);
}

void DriverThread::Finish() {
    Set(m_bStop);
    Set(m_bFinish);
}

bool DriverThread::IsHandOverDone() const {
    return Is(m_bHandOverDone);
}

bool DriverThread::WaitUntilDone(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_bDone; });
}

std::string DriverThread::Error() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_strError;
}

bool DriverThread::IsStarted() const {
    return Is(m_bStarted);
}

std::string DriverThread::Description() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_strDescription;
}

void DriverThread::Main() {
    try {
        Drive();
    } catch (const std::exception& error) {
        Set(m_strError, error.what());
    }
    Set(m_bHandOverDone);
    Set(m_bDone);
}

void DriverThread::Drive() {
    DriverSession session(m_work.plugin, m_work.services);
    Set(m_strDescription, session.Describe());
    m_work.log.Tell("driver: " + Description());
    session.Start(m_work.settings);
    Set(m_bStarted);
    HandOverAll(session);
    TickUntilFinish(session);
    m_work.log.Tell("cleaning up");
    if (!session.CleanUp()) {
        m_work.log.Warn("the driver reports that its clean-up failed");
    }
}

void DriverThread::HandOverAll(DriverSession& session) {
    m_timeNextTick = std::chrono::steady_clock::now() + m_work.tick;
    for (const Batch::Files& files : m_work.batch.Jobs()) {
        if (Is(m_bStop)) {
            break;
        }
        HandOver(session, files);
        if (std::chrono::steady_clock::now() >= m_timeNextTick) {
            Tick(session);
        }
    }
    Set(m_bHandOverDone);
}

// No tick comes between the files of one job: the driver would send them in two transactions.
void DriverThread::HandOver(DriverSession& session, const Batch::Files& files) {
    for (const auto& file : files) {
        try {
            if (session.HandOver(*file)) {
                m_work.outcomes.NoteAccepted(file->OutcomeIndex());
            } else {
                m_work.outcomes.NoteEnded(file->OutcomeIndex(), OutcomeStatus::Rejected,
                                          "the driver did not accept it");
            }
        } catch (const DriverError& error) {
            m_work.outcomes.NoteEnded(file->OutcomeIndex(), OutcomeStatus::Rejected, error.what());
        }
    }
}

void DriverThread::TickUntilFinish(DriverSession& session) {
    while (!Is(m_bFinish)) {
        Tick(session);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_until(lock, m_timeNextTick, [this] { return m_bFinish; });
    }
}

void DriverThread::Tick(DriverSession& session) {
    if (!session.Tick() && !m_bTickFailureTold) {
        m_bTickFailureTold = true;
        m_work.log.Warn("the driver reports that its periodic event failed");
    }
    m_timeNextTick = std::chrono::steady_clock::now() + m_work.tick;
}

bool DriverThread::Is(const bool& flag) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return flag;
}

void DriverThread::Set(bool& flag) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    flag = true;
    m_changed.notify_all();
}

void DriverThread::Set(std::string& text, const std::string& value) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    text = value;
}

}  // namespace kvhost
