#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "HostConfig.h"
#include "HostMessageFile.h"
#include "Job.h"
#include "LineReader.h"
#include "Outcomes.h"
#include "Problem.h"
#include "WakeUp.h"

namespace kvhost {

class JobReader;

/// The jobs of files, read on a thread of its own a little ahead of the one that takes them, so that memory does not grow
/// with the files. Every job that is read gets its outcomes, in the order of the lines; a refused one gets a single entry
/// that says why. Thread-safe.
class JobFeed {
public:
    /// The message files of one job, one for each recipient; to be handed over without a tick between them.
    using Files = std::vector<std::unique_ptr<HostMessageFile>>;

    /// What may wait to be taken before reading pauses: bytes of message files.
    static constexpr std::size_t kReadAhead = std::size_t{16} << 20U;
    /// Jobs that are there without a wait become visible so many at a time.
    static constexpr std::size_t kTogether = 20;

    /// Starts reading. `paths`: files of jobs, "-" for the standard input. `config` and `outcomes` outlive the feed. Throws
    /// BadInput when one of the files cannot be read; nothing was read then.
    JobFeed(const std::vector<std::string>& paths, const HostConfig& config, Outcomes& outcomes,
            std::size_t readAhead = kReadAhead);
    /// Ends the reading at once.
    ~JobFeed();
    JobFeed(const JobFeed&) = delete;
    JobFeed& operator=(const JobFeed&) = delete;

    /// Waits until there is a job to take. False when there will be none.
    bool WaitForJobs();
    /// Everything was read and taken, or given up.
    bool IsThrough() const;

    /// The carriers with jobs to take.
    std::vector<std::string> Carriers() const;
    /// How many jobs of the carrier there are to take.
    std::size_t CountOf(const std::string& carrier) const;
    /// Numbers of the first jobs of the carrier, at most `limit`.
    std::vector<std::int64_t> Next(const std::string& carrier, int limit) const;
    /// Takes the first `count` jobs of the carrier out.
    std::vector<Files> Take(const std::string& carrier, std::size_t count);

    /// No job will be taken any more: what is not taken is given up, and the rest of the files is read for the outcomes
    /// alone. What is no regular file, a pipe for example, is read no further, because it may never end.
    void Stop();
    /// Reads nothing more.
    void Abort();
    /// Waits until reading has ended.
    void WaitUntilRead();

    /// What was wrong with the lines read since the last call.
    std::vector<Problem> TakeProblems();
    /// What could not be read, file by file, and why.
    std::vector<std::string> Faults() const;
    /// The names of what was not read to its end because of Stop or Abort.
    std::vector<std::string> CutShort() const;

private:
    struct Waiting {
        std::string carrier;
        std::int64_t number = 0;
        std::size_t bytes = 0;
        Files files;
    };

    void Main();
    void ReadFile(const std::string& path, JobReader& reader);
    bool IsAborted() const;
    void Add(const Job& job);
    void AddRefused(const Job& job);
    void ShowAdded();
    Files MakeFiles(const Job& job);
    template <typename Change>
    void Set(const Change& change);

    const std::vector<std::string> m_vecPaths;
    const HostConfig& m_config;
    Outcomes& m_outcomes;
    const std::size_t m_nReadAhead;
    WakeUp m_stopped;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::map<std::string, std::deque<Waiting>> m_mapWaiting;  ///< by carrier, none empty; guarded by m_mutex
    std::size_t m_nBytes = 0;                                 ///< of what waits; guarded by m_mutex
    std::vector<Waiting> m_vecAdded;                          ///< not visible yet; the reading thread's own
    std::int64_t m_nNumber = 0;                               ///< of the last job; likewise
    std::vector<Problem> m_vecProblems;                       ///< guarded by m_mutex
    std::vector<std::string> m_vecFaults;                     ///< guarded by m_mutex
    std::vector<std::string> m_vecCutShort;                   ///< guarded by m_mutex
    bool m_bStopped = false;                                  ///< guarded by m_mutex
    bool m_bAborted = false;                                  ///< guarded by m_mutex
    bool m_bRead = false;                                     ///< guarded by m_mutex

    std::thread m_thread;  ///< last: it uses the members above
};

}  // namespace kvhost
