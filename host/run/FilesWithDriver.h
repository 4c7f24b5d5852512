#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <memory>

#include "JobFile.h"

namespace kvhost {

/// The owner of the message files that are with the driver. A file that came back is kept a little longer: a driver may
/// look at one a moment late, and one that comes back twice is to be recognised. One thread at a time.
class FilesWithDriver {
public:
    using Time = std::chrono::steady_clock::time_point;

    JobFile& Add(std::unique_ptr<JobFile> file);
    /// The file, when it is with the driver; null for any other pointer, which is not followed.
    JobFile* Find(const KvMessageFile* file) const;
    /// True for a file that came back a short while ago.
    bool HasComeBack(const KvMessageFile* file) const;
    /// The file is not with the driver any more.
    void NoteBack(const JobFile& file, Time now);
    /// Deletes what came back long enough ago.
    void Tidy(Time now);

    std::size_t Count() const { return m_mapFiles.size(); }

private:
    struct Kept {
        std::unique_ptr<JobFile> file;
        Time since;
    };

    std::map<const KvMessageFile*, std::unique_ptr<JobFile>> m_mapFiles;
    std::deque<Kept> m_dqKept;  ///< oldest first
};

}  // namespace kvhost
