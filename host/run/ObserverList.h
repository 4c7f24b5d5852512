#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "RunObserver.h"
#include "Secrets.h"

namespace kvhost {

/// Passes what the daemon does on to several observers, in their order. The one place where secrets are masked in what they
/// see: in reasons, decisions and subjects, which come from outside.
///
/// What one observer throws is told to `warn` and keeps it from no other. One thread at a time, except for JobExpired.
class ObserverList : public RunObserver {
public:
    /// The observers outlive the list.
    ObserverList(std::shared_ptr<const Secrets> secrets, std::vector<RunObserver*> observers,
                 std::function<void(const std::string&)> warn);

    void JobHandedOver(const StoredJob& job, Milliseconds waited) override;
    void AttemptEnded(const AttemptReport& report) override;
    void JobExpired(const std::string& carrier) override;
    void StoreWritten(std::chrono::microseconds took) override;

private:
    StoredJob Masked(StoredJob job) const;
    void ForEach(const std::function<void(RunObserver&)>& tell) const;

    const std::shared_ptr<const Secrets> m_pSecrets;
    const std::vector<RunObserver*> m_vecObservers;
    const std::function<void(const std::string&)> m_warn;
};

}  // namespace kvhost
