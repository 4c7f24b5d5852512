#include "Secrets.h"

#include <algorithm>
#include <utility>

namespace kvhost {

namespace {

bool Holds(const std::vector<SecretMask::Account>& accounts, const SecretMask::Account& wanted) {
    return std::any_of(accounts.begin(), accounts.end(), [&wanted](const SecretMask::Account& account) {
        return account.user == wanted.user && account.password == wanted.password;
    });
}

}  // namespace

std::vector<SecretMask::Account> SecretsOf(const HostConfig& config) {
    std::vector<SecretMask::Account> accounts;
    for (const auto& [name, carrier] : config.carriers) {
        accounts.push_back({carrier.user, carrier.password});
    }
    accounts.push_back({"", config.http.token});
    return accounts;
}

Secrets::Secrets(SecretMask mask) : m_pMask(std::make_shared<const SecretMask>(std::move(mask))) {}

void Secrets::Learn(const std::vector<SecretMask::Account>& accounts) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<SecretMask::Account> known = m_pMask->Accounts();
    for (const SecretMask::Account& account : accounts) {
        if (!Holds(known, account)) {
            known.push_back(account);
        }
    }
    m_pMask = std::make_shared<const SecretMask>(known);
}

std::string Secrets::Mask(std::string_view text) const {
    std::shared_ptr<const SecretMask> mask;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        mask = m_pMask;
    }
    return mask->Apply(text);
}

}  // namespace kvhost
