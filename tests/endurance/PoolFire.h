#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kvtest {

/// What a fire has found.
struct FireReport {
    unsigned long kills = 0;    ///< workers ended by their signal
    unsigned long signals = 0;  ///< end signals sent; some reach a worker that is through by itself
    unsigned long stops = 0;
    unsigned long filed = 0;
    unsigned long handedBack = 0;
    unsigned long completed = 0;
    unsigned long lockChecks = 0;      ///< looks at the locks after the workers were ended
    unsigned long internalErrors = 0;  ///< handed back because their worker was ended
    /// How often a connection ended with this step as the last one that the server saw on it.
    std::map<std::string, unsigned long> lastSteps;
    /// What did not hold, in words; empty when all did.
    std::vector<std::string> wrong;
};

/// Stops a driver again and again while its eight workers send, in clear and inside TLS, through a server that answers,
/// dawdles, falls silent and breaks off at random. After each stop every job must be back once and truly, and every
/// lock free; after each series of stops a new start must deliver, and no descriptor and no thread may be left.
///
/// The pauses of the stops are short, so that workers are ended wherever they are just then.
///
///     PoolFire fire(seed);
///     fire.run(1000);
///     EXPECT_THAT(fire.report().wrong, testing::IsEmpty());
class PoolFire {
public:
    explicit PoolFire(unsigned seed) : m_seed(seed) {}

    /// Goes on until so many workers were ended, or something was wrong. `afterSeries` is told how far it is.
    void run(unsigned long kills, const std::function<void(const FireReport&)>& afterSeries = {});

    const FireReport& report() const { return m_report; }

private:
    unsigned m_seed;
    FireReport m_report;
};

}  // namespace kvtest
