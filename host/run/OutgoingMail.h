#pragma once

#include <filesystem>

#include "AttachmentStore.h"
#include "JobFile.h"
#include "StoredJob.h"

namespace kvhost {

/// Makes the message of a job: the one place where what was submitted becomes what the driver gets. One thread at a
/// time.
class OutgoingMail {
public:
    /// Texts that have to go as attachments lie in the folder "outgoing" of the store, from the hand-over to the end of the
    /// attempt. What an earlier run has left there is deleted.
    OutgoingMail(const std::filesystem::path& storeFolder, AttachmentStore& attachments);

    /// Throws AttachmentError when something that belongs to the message is missing or cannot be written.
    void Fill(JobFile& file, const JobContent& content);

private:
    std::filesystem::path WriteText(JobFile& file, const std::string& text) const;

    const std::filesystem::path m_pathFolder;
    AttachmentStore& m_attachments;
};

}  // namespace kvhost
