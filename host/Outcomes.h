#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace kvhost {

/// How far one message to one recipient has come, or how it ended.
enum class OutcomeStatus {
    Waiting,      ///< not handed over yet
    UnderWay,     ///< with the driver
    Delivered,    ///< came back completed
    Failed,       ///< came back failed
    Refused,      ///< the input is wrong; never handed over
    Rejected,     ///< the driver did not accept it
    NotReturned,  ///< accepted by the driver and never handed back
    NotSent       ///< the command stopped before it was handed over
};

inline constexpr std::size_t kOutcomeStatusCount = 8;

/// Why something was not sent.
inline constexpr const char* kNotHandedOver = "the command stopped before this was handed over";

/// The status in words, such as "not returned".
const char* StatusName(OutcomeStatus status);

struct Outcome {
    std::string job;        ///< empty when a refused line has none
    std::string carrier;    ///< likewise
    std::string recipient;  ///< likewise
    OutcomeStatus status = OutcomeStatus::Waiting;
    std::string reason;  ///< printable, one line; empty unless there is something to say
};

/// Number of outcomes of each status.
class Tally {
public:
    std::size_t Of(OutcomeStatus status) const { return m_arrCounts[static_cast<std::size_t>(status)]; }
    std::size_t& Of(OutcomeStatus status) { return m_arrCounts[static_cast<std::size_t>(status)]; }
    std::size_t Total() const;
    bool operator==(const Tally& other) const { return m_arrCounts == other.m_arrCounts; }

private:
    std::array<std::size_t, kOutcomeStatusCount> m_arrCounts{};
};

/// The book of outcomes. Thread-safe: the thread that hands over and the one that collects write to it.
///
/// Every entry changes its status forwards only: an entry that has ended keeps its first ending.
class Outcomes {
public:
    /// Adds an entry and answers its index.
    std::size_t Add(Outcome outcome);

    /// The driver took it. Nothing changes when it has already come back.
    void NoteAccepted(std::size_t index);
    /// Notes the ending. False when the entry had ended before; then nothing changes.
    bool NoteEnded(std::size_t index, OutcomeStatus status, const std::string& reason);
    /// Ends what is still open: what waits as not sent, what is under way as not returned.
    void Close();

    Tally Count() const;
    std::vector<Outcome> All() const;
    /// Gives the entries away, so that none of them is kept twice; to be called last.
    std::vector<Outcome> TakeAll();

private:
    void End(Outcome& outcome, OutcomeStatus status, const std::string& reason);

    mutable std::mutex m_mutex;
    std::vector<Outcome> m_vecOutcomes;  ///< guarded by m_mutex
    Tally m_tally;                       ///< guarded by m_mutex
};

/// The exit status of a run: kExitBadInput when any input was refused, else kExitSuccess when everything was
/// delivered, else kExitSomeFailed.
int ExitStatus(const Tally& tally, bool isInputRefused);

/// Such as "17 delivered, 1 failed"; "no jobs" for none.
std::string Summarise(const Tally& tally);

}  // namespace kvhost
