#include "StoreRights.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "StoreError.h"

namespace kvhost {

namespace {

namespace fs = std::filesystem;

std::string UserName(uid_t user) {
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? found->pw_name : "#" + std::to_string(user);
}

/// What to do, when the owner is known.
std::string Remedy(const fs::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return "run the command as the user of the host";
    }
    const std::string owner = UserName(status.st_uid);
    return "it belongs to " + owner + ": run the command as that user (runuser -u " + owner +
           " -- kvhost ...)";
}

/// The path or the nearest folder above it that is there and may be seen.
fs::path NearestVisible(const fs::path& path) {
    std::error_code error;
    fs::path nearest = fs::absolute(path, error).lexically_normal();
    struct stat status {};
    while (::stat(nearest.c_str(), &status) != 0 && nearest != nearest.parent_path()) {
        nearest = nearest.parent_path();
    }
    return nearest;
}

void CheckMay(const fs::path& path, int rights, const std::string& what) {
    if (::access(path.c_str(), rights) == 0 || errno == ENOENT || errno == ENOTDIR) {
        return;
    }
    const std::error_code why(errno, std::generic_category());
    if (why == std::errc::permission_denied || why == std::errc::read_only_file_system) {
        throw StoreError(path.string() + ": this user may not " + what +
                         ", which every command on the store needs: " + why.message() + "; " +
                         Remedy(NearestVisible(path)));
    }
}

}  // namespace

void CheckStoreRights(const fs::path& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
        return;  // no store can be there, and that is told where it is opened
    }
    CheckMay(folder, R_OK | W_OK | X_OK, "write to the folder");
    CheckMay(folder / "jobs.db", R_OK | W_OK, "write to the database");
}

void CheckFilesWillBeTheOwners(const fs::path& folder) {
    const fs::path nearest = NearestVisible(folder);
    struct stat status {};
    if (::geteuid() == 0 && ::stat(nearest.c_str(), &status) == 0 && status.st_uid != 0) {
        throw StoreError(nearest.string() + ": files that root puts there could not be used by the host; " +
                         Remedy(nearest));
    }
}

}  // namespace kvhost
