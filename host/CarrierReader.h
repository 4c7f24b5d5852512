#pragma once

#include <set>
#include <string>
#include <vector>

#include "ConfigTable.h"
#include "HostConfig.h"
#include "SecretsUse.h"

namespace kvhost {

/// Reads the carriers of a configuration, written as [[carrier]] with a name or as [carrier.NAME].
///
/// A carrier with a fault is left out of `config.carriers` and noted in `config.refusedCarriers` and
/// `config.problems`; the others stay usable. Of carriers that share a name none is usable, of those that
/// share an id only the first. One thread at a time.
class CarrierReader {
public:
    /// `retry` applies to carriers that say nothing about it.
    CarrierReader(std::string file, const RetryPolicy& retry, SecretsUse secrets, HostConfig& config);

    /// Reads the node of the key "carrier". Throws BadInput when it is neither tables by name nor an array of
    /// tables.
    void Read(const toml::node& node);

private:
    struct Draft {
        Carrier carrier;
        unsigned long line = 0;
        std::string field;
        bool hasId = false;
    };

    void ReadArray(const toml::array& carriers);
    void ReadByName(const toml::table& carriers);
    void ReadOne(const toml::table& table, const std::string& path, const std::string& givenName);
    void Accept(Draft draft, bool isFaultless, std::size_t firstProblem);
    void RefuseRepeatedName(const Draft& draft);
    void RefuseCarrier(const std::string& name, std::size_t firstProblem);
    bool IdIsFree(const Draft& draft);
    void NumberTheRest();

    const std::string m_strFile;
    const RetryPolicy m_retry;
    const SecretsUse m_secrets;
    HostConfig& m_config;
    std::set<std::string> m_setNames;        ///< every valid name that was read, of refused carriers too
    std::set<unsigned long> m_setIds;        ///< ids that the file gives
    std::vector<std::string> m_vecToNumber;  ///< names of the carriers without one
};

}  // namespace kvhost
