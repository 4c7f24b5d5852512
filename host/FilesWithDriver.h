#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>

#include "KvMessageFile.h"

namespace kvhost {

/// The owner of the message files that are with the driver. A file that came back is kept a little longer: a driver may
/// look at one a moment late, and one that comes back twice is to be recognised. One thread at a time.
template <class File>
class FilesWithDriver {
public:
    using Time = std::chrono::steady_clock::time_point;

    File& Add(std::unique_ptr<File> file) {
        File& added = *file;
        m_mapFiles[&added] = std::move(file);
        return added;
    }

    /// The file, when it is with the driver; null for any other pointer, which is not followed.
    File* Find(const KvMessageFile* file) const {
        const auto found = m_mapFiles.find(file);
        return found == m_mapFiles.end() ? nullptr : found->second.get();
    }

    /// True for a file that came back a short while ago.
    bool HasComeBack(const KvMessageFile* file) const {
        return std::any_of(m_dqKept.begin(), m_dqKept.end(),
                           [file](const Kept& kept) { return kept.file.get() == file; });
    }

    /// The file is not with the driver any more.
    void NoteBack(const File& file, Time now) {
        auto node = m_mapFiles.extract(&file);
        if (!node.empty()) {
            m_dqKept.push_back({std::move(node.mapped()), now});
        }
    }

    /// Deletes what came back long enough ago.
    void Tidy(Time now) {
        while (!m_dqKept.empty() && now - m_dqKept.front().since >= kKept) {
            m_dqKept.pop_front();
        }
    }

    std::size_t Count() const { return m_mapFiles.size(); }

private:
    static constexpr std::chrono::seconds kKept{2};

    struct Kept {
        std::unique_ptr<File> file;
        Time since;
    };

    std::map<const KvMessageFile*, std::unique_ptr<File>> m_mapFiles;
    std::deque<Kept> m_dqKept;  ///< oldest first
};

}  // namespace kvhost
