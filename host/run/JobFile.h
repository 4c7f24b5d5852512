#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "HostConfig.h"
#include "KvMessageFile.h"
#include "StoredJob.h"

namespace kvhost {

/// One attempt of a job of the store, as the driver gets it. One thread at a time, by the rules of KvMessageFile.
///
/// Its identifier is "KEY_ATTEMPT", and it is never grouped: a recipient that the server refuses fails no other job.
class JobFile : public KvMessageFile {
public:
    /// `onComing` is called when the file is about to be put into the return queue, on the driver's thread; it is
    /// thread-safe and throws nothing.
    JobFile(StoredJob job, const Carrier& carrier, std::int64_t slice, std::function<void()> onComing);
    /// Deletes the folder that it owns.
    ~JobFile() override;
    JobFile(const JobFile&) = delete;
    JobFile& operator=(const JobFile&) = delete;

    /// What the message says. To be set before the hand-over; `attachments` are paths.
    void SetContent(std::string subject, std::string text, std::vector<std::string> attachments);

    /// A folder with files of this attempt, deleted along with the object.
    void OwnFolder(std::filesystem::path folder) { m_pathFolder = std::move(folder); }

    void SetFailureReason(const std::string& reason) override { m_strFailureReason = reason; }
    /// The last thing that the driver does with a file before it hands it back.
    void SetStatusText(const std::string& text) override;

    const std::string& FailureReason() const { return m_strFailureReason; }
    const StoredJob& Job() const { return m_job; }
    /// The slice that it was handed over with.
    std::int64_t Slice() const { return m_nSlice; }
    /// When it was made, which is just before the hand-over.
    std::chrono::steady_clock::time_point Made() const { return m_timeMade; }

private:
    const StoredJob m_job;
    const std::int64_t m_nSlice;
    const std::function<void()> m_onComing;
    const std::chrono::steady_clock::time_point m_timeMade = std::chrono::steady_clock::now();
    std::filesystem::path m_pathFolder;  ///< empty for none
    std::string m_strFailureReason;
};

}  // namespace kvhost
