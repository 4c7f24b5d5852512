#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "StoreDatabase.h"
#include "StoredJob.h"

namespace kvhost {

/// An attachment that cannot be taken: the text says which and why.
class AttachmentError : public std::runtime_error {
public:
    explicit AttachmentError(const std::string& text) : std::runtime_error(text) {}
};

/// Keeps the content of attachments below a store's folder, under the SHA-256 of the content, so that a job neither
/// changes nor vanishes under way and the same file is kept once. Processes may add at the same time. One thread at
/// a time.
class AttachmentStore {
public:
    /// `maxBytes`: the largest attachment that is taken.
    AttachmentStore(const std::filesystem::path& storeFolder, std::uint64_t maxBytes);

    /// Copies the file `path` of the folder `folder`; on disk when it returns. No link is followed on the way, nothing
    /// outside of the folder is reached, and only a regular file is taken. An absolute `path` is one of the folder "/".
    /// Throws AttachmentError for the file, and StoreError when the store cannot be written.
    StoredAttachment AddFile(const std::filesystem::path& folder, const std::string& path);
    /// Keeps `content` as the attachment `name`; on disk when it returns. Throws as AddFile.
    StoredAttachment AddContent(const std::string& name, std::string_view content);

    /// A path whose last part is the attachment's name, for a reader that shows it to the recipient. Valid while the
    /// content is kept. Throws AttachmentError when the content is not there.
    std::string PathOf(const StoredAttachment& attachment);
    /// Where the content of that digest lies.
    std::filesystem::path ContentPath(const std::string& digest) const;

    /// Deletes contents that no submission of `store` refers to and that are older than an hour (a younger one may
    /// belong to a submission that is just being made). Answers how many.
    int RemoveUnused(StoreDatabase& store);

private:
    const std::filesystem::path m_pathFolder;
    const std::uint64_t m_nMaxBytes;
};

}  // namespace kvhost
