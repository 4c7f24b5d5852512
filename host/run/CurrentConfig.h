#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "HostConfig.h"

namespace kvhost {

/// The configuration as it is now, for threads that serve requests. Thread-safe.
class CurrentConfig {
public:
    explicit CurrentConfig(std::shared_ptr<const HostConfig> config) : m_pConfig(std::move(config)) {}

    void Set(std::shared_ptr<const HostConfig> config) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_pConfig = std::move(config);
    }
    std::shared_ptr<const HostConfig> Get() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_pConfig;
    }

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const HostConfig> m_pConfig;  ///< guarded by m_mutex; what it points to never changes
};

}  // namespace kvhost
