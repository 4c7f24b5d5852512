#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "HostConfig.h"
#include "SecretsUse.h"
#include "StoreDatabase.h"

namespace kvhost {

/// The options that every command on the store has. One thread at a time.
class StoreOptions {
public:
    /// Adds --config, --store and --json.
    void Register(CLI::App& command);
    /// Adds --config and --store alone.
    void RegisterPlace(CLI::App& command);
    /// Adds --config and --json alone, for a command that needs no store.
    void RegisterConfig(CLI::App& command);

    bool IsJson() const { return m_bJson; }
    /// The configuration file: of the option, else of the environment variable KVHOST_CONFIG, else
    /// "/etc/kvhost/kvhost.toml".
    std::string ConfigFile() const;
    /// The folder of --store; empty when the option is absent.
    const std::string& GivenStore() const { return m_strStore; }
    /// Reads the configuration. Throws BadInput.
    HostConfig LoadConfig(SecretsUse secrets = SecretsUse::Read) const;
    /// The folder of --store, else the one that the configuration names. Throws BadInput when there is none.
    std::string StoreFolder() const;
    /// Opens the store, which must exist. Throws StoreError and BadInput.
    StoreDatabase OpenStore() const;

private:
    void AddConfig(CLI::App& command);
    void AddJson(CLI::App& command);

    std::string m_strConfig;
    std::string m_strStore;
    bool m_bJson = false;
};

}  // namespace kvhost
