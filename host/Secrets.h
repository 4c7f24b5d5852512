#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "HostConfig.h"
#include "SecretMask.h"

namespace kvhost {

/// What the configuration holds that nobody may see: the accounts of its carriers, and the token of submitters as a
/// password without a user.
std::vector<SecretMask::Account> SecretsOf(const HostConfig& config);

/// The secrets that a process has had so far, to be masked in all that it writes. Thread-safe. Secrets are learned and
/// never forgotten: after a change of the configuration, texts with the old ones are still about.
class Secrets {
public:
    explicit Secrets(SecretMask mask);

    /// From now on these are masked too.
    void Learn(const std::vector<SecretMask::Account>& accounts);
    /// `text` with every secret replaced by "[masked]".
    std::string Mask(std::string_view text) const;

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const SecretMask> m_pMask;  ///< guarded by m_mutex; what it points to never changes
};

}  // namespace kvhost
