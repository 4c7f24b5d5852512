#include "JobFeed.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "JobReader.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr const char* kStandardInput = "-";

[[noreturn]] void FailToRead(const std::string& path, int error) {
    throw BadInput({Problem{path, 0, "", "cannot be read: " + std::generic_category().message(error)}});
}

/// Looks at all files before the first one is read. They are not opened: whoever writes a pipe would notice.
std::vector<std::string> Checked(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        std::error_code error;
        if (path == kStandardInput) {
            continue;
        }
        if (::access(path.c_str(), R_OK) != 0) {
            FailToRead(path, errno);
        }
        if (std::filesystem::is_directory(path, error)) {
            FailToRead(path, EISDIR);
        }
    }
    return paths;
}

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r") == std::string::npos;
}

/// The first recipient, and how many there are besides.
std::string ShowRecipients(const std::vector<std::string>& recipients) {
    if (recipients.empty()) {
        return {};
    }
    const std::string others = recipients.size() > 1 ? " +" + std::to_string(recipients.size() - 1) : "";
    return MakeVisible(recipients.front()) + others;
}

Outcome RefusedOutcome(const Job& job) {
    std::string reason;
    for (const Problem& problem : job.problems) {
        reason += (reason.empty() ? "" : "; ") + Describe(problem);
    }
    return {MakeVisible(job.id), MakeVisible(job.carrier), ShowRecipients(job.recipients),
            OutcomeStatus::Refused, MakeVisible(reason)};
}

std::size_t BytesOf(const JobFeed::Files& files) {
    std::size_t bytes = 0;
    for (const auto& file : files) {
        bytes += sizeof(*file) + file->m_strSubject.size() + file->m_strMessage.size() +
                 file->m_strRecipient.size();
        for (const std::string& attachment : file->m_vecAttachments) {
            bytes += sizeof(std::string) + attachment.size();
        }
    }
    return bytes;
}

}  // namespace

JobFeed::JobFeed(const std::vector<std::string>& paths, const HostConfig& config, Outcomes& outcomes,
                 std::size_t readAhead)
    : m_vecPaths(Checked(paths)),
      m_config(config),
      m_outcomes(outcomes),
      m_nReadAhead(readAhead),
      m_thread([this] { Main(); }) {}

JobFeed::~JobFeed() {
    Abort();
    m_thread.join();
}

bool JobFeed::WaitForJobs() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_mapWaiting.empty() || m_bRead || m_bStopped; });
    return !m_mapWaiting.empty();
}

bool JobFeed::IsThrough() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_mapWaiting.empty() && (m_bRead || m_bStopped);
}

std::vector<std::string> JobFeed::Carriers() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<std::string> carriers;
    for (const auto& [carrier, waiting] : m_mapWaiting) {
        carriers.push_back(carrier);
    }
    return carriers;
}

std::size_t JobFeed::CountOf(const std::string& carrier) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_mapWaiting.find(carrier);
    return found == m_mapWaiting.end() ? 0 : found->second.size();
}

std::vector<std::int64_t> JobFeed::Next(const std::string& carrier, int limit) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<std::int64_t> numbers;
    if (const auto found = m_mapWaiting.find(carrier); found != m_mapWaiting.end()) {
        const auto most = static_cast<std::size_t>(std::max(limit, 0));
        for (std::size_t i = 0; i < std::min(most, found->second.size()); ++i) {
            numbers.push_back(found->second[i].number);
        }
    }
    return numbers;
}

std::vector<JobFeed::Files> JobFeed::Take(const std::string& carrier, std::size_t count) {
    std::vector<Files> taken;
    Set([&] {
        const auto found = m_mapWaiting.find(carrier);
        if (found == m_mapWaiting.end()) {
            return;
        }
        for (std::deque<Waiting>& jobs = found->second; taken.size() < count && !jobs.empty();
             jobs.pop_front()) {
            m_nBytes -= jobs.front().bytes;
            taken.push_back(std::move(jobs.front().files));
        }
        if (found->second.empty()) {
            m_mapWaiting.erase(found);
        }
    });
    return taken;
}

void JobFeed::Stop() {
    std::map<std::string, std::deque<Waiting>> givenUp;
    Set([&] {
        m_bStopped = true;
        givenUp.swap(m_mapWaiting);
        m_nBytes = 0;
    });
    m_stopped.Wake();
}

void JobFeed::Abort() {
    Set([this] { m_bAborted = true; });
    Stop();
}

void JobFeed::WaitUntilRead() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_bRead; });
}

std::vector<Problem> JobFeed::TakeProblems() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::exchange(m_vecProblems, {});
}

std::vector<std::string> JobFeed::Faults() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_vecFaults;
}

std::vector<std::string> JobFeed::CutShort() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_vecCutShort;
}

void JobFeed::Main() {
    JobReader reader(m_config);
    for (const std::string& path : m_vecPaths) {
        try {
            ReadFile(path, reader);
        } catch (const std::exception& error) {
            Set([&] { m_vecFaults.push_back(error.what()); });
        }
        ShowAdded();
    }
    Set([this] { m_bRead = true; });
}

void JobFeed::ReadFile(const std::string& path, JobReader& reader) {
    if (IsAborted()) {
        Set([&] { m_vecCutShort.push_back(path); });
        return;
    }
    LineReader lines(path, m_stopped.Descriptor());
    bool hasMore = true;
    while (hasMore && !IsAborted()) {
        const auto text = lines.Next();
        hasMore = text.has_value();
        if (hasMore && !IsBlank(*text)) {
            Add(reader.Read(*text, lines.Name(), lines.Line()));
        }
        if (m_vecAdded.size() >= kTogether || (!m_vecAdded.empty() && hasMore && !lines.IsReady())) {
            ShowAdded();
        }
    }
    if (hasMore || lines.WasInterrupted()) {
        Set([&] { m_vecCutShort.push_back(lines.Name()); });
    }
}

bool JobFeed::IsAborted() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_bAborted;
}

void JobFeed::Add(const Job& job) {
    if (job.IsRefused()) {
        AddRefused(job);
        return;
    }
    Waiting waiting;
    waiting.carrier = job.carrier;
    waiting.number = ++m_nNumber;
    waiting.files = MakeFiles(job);
    waiting.bytes = BytesOf(waiting.files);
    m_vecAdded.push_back(std::move(waiting));
}

/// Waits for room first.
void JobFeed::ShowAdded() {
    if (m_vecAdded.empty()) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_nBytes < m_nReadAhead || m_bStopped; });
    for (Waiting& added : m_vecAdded) {
        if (!m_bStopped) {
            m_nBytes += added.bytes;
            m_mapWaiting[added.carrier].push_back(std::move(added));
        }
    }
    m_vecAdded.clear();
    m_changed.notify_all();
}

void JobFeed::AddRefused(const Job& job) {
    m_outcomes.Add(RefusedOutcome(job));
    Set([&] { m_vecProblems.insert(m_vecProblems.end(), job.problems.begin(), job.problems.end()); });
}

JobFeed::Files JobFeed::MakeFiles(const Job& job) {
    const Carrier& carrier = m_config.carriers.at(job.carrier);
    Files files;
    for (std::size_t i = 0; i < job.recipients.size(); ++i) {
        const std::size_t outcome =
            m_outcomes.Add({MakeVisible(job.id), MakeVisible(carrier.name), MakeVisible(job.recipients[i]),
                            OutcomeStatus::Waiting, ""});
        files.push_back(std::make_unique<HostMessageFile>(job, carrier, i, outcome));
    }
    return files;
}

template <typename Change>
void JobFeed::Set(const Change& change) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    change();
    m_changed.notify_all();
}

}  // namespace kvhost
