#include "ObserverList.h"

#include <exception>
#include <utility>

namespace kvhost {

ObserverList::ObserverList(std::shared_ptr<const Secrets> secrets, std::vector<RunObserver*> observers,
                           std::function<void(const std::string&)> warn)
    : m_pSecrets(std::move(secrets)), m_vecObservers(std::move(observers)), m_warn(std::move(warn)) {}

void ObserverList::JobHandedOver(const StoredJob& job, Milliseconds waited) {
    const StoredJob masked = Masked(job);
    ForEach([&](RunObserver& observer) { observer.JobHandedOver(masked, waited); });
}

void ObserverList::AttemptEnded(const AttemptReport& report) {
    AttemptReport masked = report;
    masked.job = Masked(report.job);
    masked.reason = m_pSecrets->Mask(report.reason);
    masked.decision = m_pSecrets->Mask(report.decision);
    ForEach([&](RunObserver& observer) { observer.AttemptEnded(masked); });
}

void ObserverList::JobExpired(const std::string& carrier) {
    ForEach([&](RunObserver& observer) { observer.JobExpired(carrier); });
}

void ObserverList::StoreWritten(std::chrono::microseconds took) {
    ForEach([&](RunObserver& observer) { observer.StoreWritten(took); });
}

StoredJob ObserverList::Masked(StoredJob job) const {
    job.subject = m_pSecrets->Mask(job.subject);
    job.reason = m_pSecrets->Mask(job.reason);
    job.decision = m_pSecrets->Mask(job.decision);
    return job;
}

void ObserverList::ForEach(const std::function<void(RunObserver&)>& tell) const {
    for (RunObserver* observer : m_vecObservers) {
        try {
            tell(*observer);
        } catch (const std::exception& error) {
            m_warn(std::string("An observer of the daemon failed: ") + error.what());
        }
    }
}

}  // namespace kvhost
