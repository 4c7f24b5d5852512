#include "CarrierProbe.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "WakeUp.h"

namespace kvhost {

/// What the threads of the looks and the object have in common; it lives as long as the last of them.
struct CarrierProbe::Shared {
    explicit Shared(std::function<void()> callback) : onFinding(std::move(callback)) {}

    WakeUp breakOff;
    std::mutex mutex;
    std::condition_variable changed;
    std::function<void()> onFinding;  ///< guarded by mutex; empty once the object is gone
    std::vector<Finding> findings;    ///< guarded by mutex
    int underWay = 0;                 ///< guarded by mutex

    void Note(Finding finding) {
        const std::lock_guard<std::mutex> guard(mutex);
        --underWay;
        if (onFinding) {
            findings.push_back(std::move(finding));
            onFinding();
        }
        changed.notify_all();
    }
};

CarrierProbe::CarrierProbe(std::function<void()> onFinding)
    : m_pShared(std::make_shared<Shared>(std::move(onFinding))) {}

CarrierProbe::~CarrierProbe() {
    constexpr std::chrono::seconds kPatience{1};
    std::unique_lock<std::mutex> lock(m_pShared->mutex);
    m_pShared->onFinding = nullptr;
    m_pShared->breakOff.Wake();
    m_pShared->changed.wait_for(lock, kPatience, [this] { return m_pShared->underWay == 0; });
}

void CarrierProbe::Begin(const std::string& carrier, const std::string& server, const ProbeLimits& limits) {
    {
        const std::lock_guard<std::mutex> guard(m_pShared->mutex);
        ++m_pShared->underWay;
    }
    try {
        std::thread([shared = m_pShared, carrier, server, limits] {
            shared->Note({carrier, ProbeServer(server, limits, shared->breakOff.Descriptor())});
        }).detach();
    } catch (...) {
        const std::lock_guard<std::mutex> guard(m_pShared->mutex);
        --m_pShared->underWay;
        throw;
    }
}

std::vector<CarrierProbe::Finding> CarrierProbe::TakeFindings() {
    const std::lock_guard<std::mutex> guard(m_pShared->mutex);
    return std::exchange(m_pShared->findings, {});
}

}  // namespace kvhost
