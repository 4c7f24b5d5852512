#include "AttachmentStore.h"

#include <SQLiteCpp/Statement.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

#include "OwnedDescriptor.h"
#include "Sha256.h"
#include "StoreError.h"

namespace kvhost {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "attachments";
constexpr const char* kContent = "content";
constexpr std::size_t kPieceSize = 65536;
constexpr std::chrono::hours kGrace{1};

[[noreturn]] void Refuse(const std::string& what, const std::string& why) {
    throw AttachmentError(what + ": " + why);
}

/// The store itself is in trouble: that is no fault of the attachment.
[[noreturn]] void Fail(const std::string& what, const std::string& why) {
    throw StoreError(what + ": " + why + "; make room or mend the rights, and submit again");
}

void MakeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        Fail(folder.string(), "the folder cannot be made: " + error.message());
    }
}

int OpenBeneath(int folder, const char* path) {
    open_how how{};
    how.flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(::syscall(SYS_openat2, folder, path, &how, sizeof how));
}

std::string WhyNotOpened(int error) {
    if (error == ELOOP) {
        return "it is, or is reached through, a symbolic link; name the file itself";
    }
    if (error == EXDEV) {
        return "it lies outside of the folder; name a file in it";
    }
    return std::string("it cannot be opened: ") + std::strerror(error);
}

/// Writes a new file of the store piece by piece, digesting it, up to a limit.
class NewContent {
public:
    NewContent(const fs::path& folder, std::string name, std::uint64_t maxBytes)
        : m_strName(std::move(name)),
          m_nMaxBytes(maxBytes),
          m_strPath((folder / "new-XXXXXX").string()),
          m_file(::mkostemp(m_strPath.data(), O_CLOEXEC)) {
        if (!m_file.IsOpen()) {
            Fail(folder.string(), std::string("nothing can be stored there: ") + std::strerror(errno));
        }
    }
    ~NewContent() {
        if (!m_bKept) {
            ::unlink(m_strPath.c_str());
        }
    }
    NewContent(const NewContent&) = delete;
    NewContent& operator=(const NewContent&) = delete;

    void Add(const char* data, std::size_t size) {
        m_nSize += size;
        if (m_nSize > m_nMaxBytes) {
            Refuse(m_strName, "it is larger than " + std::to_string(m_nMaxBytes) +
                                  " bytes, the limit for an attachment");
        }
        m_digest.Add(data, size);
        Write(data, size);
    }

    /// Puts the content where it belongs, on disk. Of two that keep the same content both succeed.
    StoredAttachment Keep(const std::string& digest, const fs::path& target) {
        std::error_code error;
        fs::create_directories(target.parent_path(), error);
        if (error || ::fsync(m_file.Get()) != 0 || ::rename(m_strPath.c_str(), target.c_str()) != 0) {
            Fail(m_strName,
                 std::string("it cannot be stored: ") + (error ? error.message() : std::strerror(errno)));
        }
        m_bKept = true;
        SyncFolder(target.parent_path());
        SyncFolder(target.parent_path().parent_path());
        return {m_strName, digest, m_nSize};
    }

    std::string Digest() { return m_digest.HexDigest(); }

private:
    void Write(const char* data, std::size_t size) {
        while (size > 0) {
            const ssize_t written = ::write(m_file.Get(), data, size);
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written <= 0) {
                Fail(m_strName, std::string("it cannot be stored: ") + std::strerror(errno));
            }
            data += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    static void SyncFolder(const fs::path& folder) {
        const OwnedDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!descriptor.IsOpen() || ::fsync(descriptor.Get()) != 0) {
            Fail(folder.string(), std::string("it cannot be written to disk: ") + std::strerror(errno));
        }
    }

    const std::string m_strName;
    const std::uint64_t m_nMaxBytes;
    std::string m_strPath;
    OwnedDescriptor m_file;
    Sha256 m_digest;
    std::uint64_t m_nSize = 0;
    bool m_bKept = false;
};

void CopyAll(int from, NewContent& content, const std::string& what) {
    std::array<char, kPieceSize> piece{};
    for (;;) {
        const ssize_t size = ::read(from, piece.data(), piece.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            Refuse(what, std::string("it cannot be read: ") + std::strerror(errno));
        }
        if (size == 0) {
            return;
        }
        content.Add(piece.data(), static_cast<std::size_t>(size));
    }
}

void CheckRegular(int fd, const std::string& what) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        Refuse(what, "it is not a regular file");
    }
}

void CheckName(const std::string& name) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos) {
        Refuse("\"" + name + "\"",
               "not a file name; it may not be empty, \".\" or \"..\" or contain a slash");
    }
}

bool IsOlderThanGrace(const fs::path& path) {
    std::error_code error;
    const fs::file_time_type changed = fs::last_write_time(path, error);
    return !error && fs::file_time_type::clock::now() - changed > kGrace;
}

}  // namespace

AttachmentStore::AttachmentStore(const fs::path& storeFolder, std::uint64_t maxBytes)
    : m_pathFolder(storeFolder / kFolder), m_nMaxBytes(maxBytes) {}

StoredAttachment AttachmentStore::AddFile(const fs::path& folder, const std::string& path) {
    const fs::path given(path);
    const fs::path base = given.is_absolute() ? fs::path("/") : folder;
    const std::string below = given.is_absolute() ? given.relative_path().string() : path;
    CheckName(given.filename().string());
    const OwnedDescriptor from(::open(base.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!from.IsOpen()) {
        Refuse(base.string(), WhyNotOpened(errno));
    }
    const OwnedDescriptor file(OpenBeneath(from.Get(), below.c_str()));
    if (!file.IsOpen()) {
        Refuse(path, WhyNotOpened(errno));
    }
    CheckRegular(file.Get(), path);
    MakeFolder(m_pathFolder);
    NewContent content(m_pathFolder, given.filename().string(), m_nMaxBytes);
    CopyAll(file.Get(), content, path);
    const std::string digest = content.Digest();
    return content.Keep(digest, ContentPath(digest));
}

StoredAttachment AttachmentStore::AddContent(const std::string& name, std::string_view bytes) {
    CheckName(name);
    MakeFolder(m_pathFolder);
    NewContent content(m_pathFolder, name, m_nMaxBytes);
    content.Add(bytes.data(), bytes.size());
    const std::string digest = content.Digest();
    return content.Keep(digest, ContentPath(digest));
}

fs::path AttachmentStore::ContentPath(const std::string& digest) const {
    return m_pathFolder / digest.substr(0, 2) / digest / kContent;
}

// The name goes into a folder of its own, so that an attachment called "content" is no special case.
std::string AttachmentStore::PathOf(const StoredAttachment& attachment) {
    CheckName(attachment.name);
    const fs::path content = ContentPath(attachment.digest);
    const fs::path link = content.parent_path() / "as" / attachment.name;
    std::error_code error;
    if (fs::exists(link, error) && fs::equivalent(link, content, error)) {
        return link.string();
    }
    if (fs::create_directories(link.parent_path(), error); !error) {
        fs::remove(link, error);
        fs::create_hard_link(content, link, error);
    }
    if (error && error != std::errc::file_exists) {
        Refuse(attachment.name,
               "its stored content (" + content.string() + ") cannot be used: " + error.message());
    }
    return link.string();
}

int AttachmentStore::RemoveUnused(StoreDatabase& store) {
    SQLite::Statement used(store.Connection(), "SELECT 1 FROM attachment WHERE digest = ? LIMIT 1");
    int removed = 0;
    std::error_code error;
    for (const fs::directory_entry& group : fs::directory_iterator(m_pathFolder, error)) {
        if (!group.is_directory()) {
            if (IsOlderThanGrace(group.path())) {
                fs::remove(group.path(), error);
            }
            continue;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(group.path())) {
            used.reset();
            used.bind(1, entry.path().filename().string());
            if (!used.executeStep() && IsOlderThanGrace(entry.path() / kContent)) {
                fs::remove_all(entry.path(), error);
                ++removed;
            }
        }
    }
    return removed;
}

}  // namespace kvhost
