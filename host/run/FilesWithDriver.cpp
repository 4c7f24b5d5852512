#include "FilesWithDriver.h"

#include <algorithm>
#include <utility>

namespace kvhost {

namespace {

constexpr std::chrono::seconds kKept{2};

}  // namespace

JobFile& FilesWithDriver::Add(std::unique_ptr<JobFile> file) {
    JobFile& added = *file;
    m_mapFiles[&added] = std::move(file);
    return added;
}

JobFile* FilesWithDriver::Find(const KvMessageFile* file) const {
    const auto found = m_mapFiles.find(file);
    return found == m_mapFiles.end() ? nullptr : found->second.get();
}

bool FilesWithDriver::HasComeBack(const KvMessageFile* file) const {
    return std::any_of(m_dqKept.begin(), m_dqKept.end(),
                       [file](const Kept& kept) { return kept.file.get() == file; });
}

void FilesWithDriver::NoteBack(const JobFile& file, Time now) {
    auto node = m_mapFiles.extract(&file);
    if (!node.empty()) {
        m_dqKept.push_back({std::move(node.mapped()), now});
    }
}

void FilesWithDriver::Tidy(Time now) {
    while (!m_dqKept.empty() && now - m_dqKept.front().since >= kKept) {
        m_dqKept.pop_front();
    }
}

}  // namespace kvhost
