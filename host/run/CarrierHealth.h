#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace kvhost {

/// What a look at a carrier's server found. Immutable value.
struct ProbeResult {
    enum class Kind {
        Answers,  ///< it took the connection and greeted
        Refuses,  ///< it said no, in one way or another, without delay
        Silent    ///< no connection or no greeting within the limit
    };
    Kind kind = Kind::Answers;
    std::string text;  ///< what happened, for people; empty when it answers
};

/// Whether jobs may go to one carrier, judged by what became of earlier ones and by probes. It knows no clock and makes
/// no connection. One thread at a time.
///
/// The driver makes its connections while everything else waits, and waits for minutes on a server that says nothing. So
/// a carrier that has shown no sign of life for a while is probed before it gets a job. One that failed for want of a
/// connection is in trouble: it is probed, at growing intervals, and gets a single job once a probe went well; when that
/// one reached the server, all is well again.
class CarrierHealth {
public:
    using Time = std::chrono::steady_clock::time_point;

    enum class Permit { None, One, All };

    /// What may be handed over now.
    Permit Ask(Time now) const;
    /// True when it should be probed. `hasJobs`: jobs of it are due.
    bool WantsProbe(bool hasJobs, Time now) const;
    /// When it is to be asked again, while in trouble; nothing when no time is set for that.
    std::optional<Time> NextProbe() const;

    /// The next probe waits no longer: somebody has mended something, perhaps.
    void ProbeSoon() { m_timeProbe = Time(); }
    void ProbeBegun() { m_bProbing = true; }
    void ProbeEnded(const ProbeResult& result, Time now);
    /// For how many failures in a row the next probe may wait longer for a greeting: 0 for none.
    int Failures() const { return m_nFailures; }

    /// A slice was handed over.
    void HandedOver();
    /// A job that was handed over at `handedOver` reached the server.
    void Reached(Time handedOver, Time now);
    /// A job that was handed over at `handedOver` found no connection that works.
    void Failed(Time handedOver, const std::string& reason, Time now);
    /// All of a slice is back.
    void SliceBack() { m_bTrial = false; }

    bool IsInTrouble() const { return m_bTrouble; }
    const std::string& Trouble() const { return m_strTrouble; }

private:
    bool IsFresh(Time now) const;
    void BeginTrouble(const std::string& why, Time now);

    std::optional<Time> m_timeSign;  ///< the last sign of life
    bool m_bProbing = false;
    bool m_bTrouble = false;
    bool m_bTrial = false;  ///< a single job is under way while in trouble
    Time m_timeTrouble;     ///< since when; meaningful while in trouble
    Time m_timeProbe;       ///< of the next probe; meaningful while in trouble
    int m_nFailures = 0;    ///< in a row
    std::string m_strTrouble;
};

}  // namespace kvhost
