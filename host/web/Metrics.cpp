#include "Metrics.h"

#include <prometheus/text_serializer.h>

#include "GaugeFamilies.h"

namespace kvhost {

namespace {

using prometheus::Histogram;

// From a healthy system's figures to those of one that hangs.
const Histogram::BucketBoundaries kQueueBounds = {0.05, 0.1, 0.25, 0.5, 1,   2.5,  5,
                                                  10,   30,  60,   300, 900, 3600, 14400};
const Histogram::BucketBoundaries kDeliveryBounds = {0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1,
                                                     2.5,  5,     10,   30,  60,   120, 300};
const Histogram::BucketBoundaries kWriteBounds = {0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                  0.1,    0.25,  0.5,    1,     2.5,  10,    30};

constexpr AttemptOutcome kOutcomes[] = {AttemptOutcome::Delivered, AttemptOutcome::Failed,
                                        AttemptOutcome::InDoubt};

template <typename Duration>
double Seconds(Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

prometheus::Labels AttemptLabels(const std::string& carrier, AttemptOutcome outcome) {
    return {{"carrier", carrier}, {"outcome", LabelText(AttemptOutcomeName(outcome))}};
}

}  // namespace

Metrics::Metrics(const Sources& sources)
    : m_sources(sources),
      m_dStarted(Seconds(StoreNow().time_since_epoch())),
      m_attempts(prometheus::BuildCounter()
                     .Name("kvhost_attempts_total")
                     .Help("Attempts that ended, by carrier and outcome.")
                     .Register(m_registry)),
      m_retries(prometheus::BuildCounter()
                    .Name("kvhost_retries_total")
                    .Help("Attempts after which the job was queued again, by carrier.")
                    .Register(m_registry)),
      m_expired(
          prometheus::BuildCounter()
              .Name("kvhost_expired_total")
              .Help("Queued jobs that were given up because their deadline or lifetime had come, by carrier.")
              .Register(m_registry)),
      m_queueTime(prometheus::BuildHistogram()
                      .Name("kvhost_queue_seconds")
                      .Help("Time from submission, or from its due time, to the hand-over of a job.")
                      .Register(m_registry)),
      m_deliveryTime(prometheus::BuildHistogram()
                         .Name("kvhost_delivery_seconds")
                         .Help("Time from the hand-over of a job to the end of the attempt.")
                         .Register(m_registry)),
      m_storeWrite(prometheus::BuildHistogram()
                       .Name("kvhost_store_write_seconds")
                       .Help("Time that a change of the store took, the sync of the disk included.")
                       .Register(m_registry)
                       .Add({}, kWriteBounds)) {}

void Metrics::JobHandedOver(const StoredJob& job, Milliseconds waited) {
    m_queueTime.Add({{"carrier", LabelOf(job.carrier)}}, kQueueBounds).Observe(Seconds(waited));
}

void Metrics::AttemptEnded(const AttemptReport& report) {
    const std::string carrier = LabelOf(report.job.carrier);
    m_attempts.Add(AttemptLabels(carrier, report.outcome)).Increment();
    m_deliveryTime.Add({{"carrier", carrier}}, kDeliveryBounds).Observe(Seconds(report.ended - report.begun));
    if (report.next == JobState::Queued) {
        m_retries.Add({{"carrier", carrier}}).Increment();
    }
}

void Metrics::JobExpired(const std::string& carrier) {
    m_expired.Add({{"carrier", LabelOf(carrier)}}).Increment();
}

void Metrics::StoreWritten(std::chrono::microseconds took) {
    m_storeWrite.Observe(Seconds(took));
}

std::string Metrics::Text() {
    const RunSnapshot run = m_sources.status.Get();
    KnowCarriers(run);
    const std::shared_ptr<const StoreFigures> store = m_sources.store.Get();
    std::vector<prometheus::MetricFamily> families = m_registry.Collect();
    const std::vector<prometheus::MetricFamily> moment =
        FamiliesOf({run, *store, m_sources.connections.Get(),
                    m_sources.lostDeliveryLines ? m_sources.lostDeliveryLines() : 0, StoreNow(), m_dStarted});
    families.insert(families.end(), moment.begin(), moment.end());
    return prometheus::TextSerializer().Serialize(families);
}

std::string Metrics::LabelOf(const std::string& carrier) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_setCarriers.count(carrier) != 0) {
            return carrier;
        }
    }
    KnowCarriers(m_sources.status.Get());
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_setCarriers.count(carrier) != 0 ? carrier : kUnknownCarrier;
}

// Every carrier has its counters from the beginning: a rate over a counter that appears with its first failure misses
// that failure.
void Metrics::KnowCarriers(const RunSnapshot& run) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (const auto& [carrier, status] : run.carriers) {
        if (!m_setCarriers.insert(carrier).second) {
            continue;
        }
        for (const AttemptOutcome outcome : kOutcomes) {
            m_attempts.Add(AttemptLabels(carrier, outcome));
        }
        m_retries.Add({{"carrier", carrier}});
        m_expired.Add({{"carrier", carrier}});
        m_queueTime.Add({{"carrier", carrier}}, kQueueBounds);
        m_deliveryTime.Add({{"carrier", carrier}}, kDeliveryBounds);
    }
}

}  // namespace kvhost
