#pragma once

#include <filesystem>

namespace kvhost {

/// Throws StoreError, which names the user who has the right, unless this process may read and write the store in
/// `folder`. A store that is not there yet raises nothing.
void CheckStoreRights(const std::filesystem::path& folder);

/// Throws StoreError when root is about to add files to a store that belongs to another user, or to make one in such a
/// user's folder: that user, under whom the host runs, could not use them.
void CheckFilesWillBeTheOwners(const std::filesystem::path& folder);

}  // namespace kvhost
