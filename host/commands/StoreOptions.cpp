#include "StoreOptions.h"

#include <cstdlib>

#include "ConfigReader.h"

namespace kvhost {

namespace {

constexpr const char* kVariable = "KVHOST_CONFIG";
constexpr const char* kStandardFile = "/etc/kvhost/kvhost.toml";

}  // namespace

void StoreOptions::Register(CLI::App& command) {
    RegisterPlace(command);
    AddJson(command);
}

void StoreOptions::RegisterPlace(CLI::App& command) {
    AddConfig(command);
    command.add_option("--store", m_strStore, "Folder of the job store, instead of the configuration's");
}

void StoreOptions::RegisterConfig(CLI::App& command) {
    AddConfig(command);
    AddJson(command);
}

void StoreOptions::AddConfig(CLI::App& command) {
    command.add_option(
        "--config", m_strConfig,
        std::string("Configuration file (TOML); default: $") + kVariable + ", else " + kStandardFile);
}

void StoreOptions::AddJson(CLI::App& command) {
    command.add_flag("--json", m_bJson, "Answer in JSON");
}

std::string StoreOptions::ConfigFile() const {
    if (!m_strConfig.empty()) {
        return m_strConfig;
    }
    const char* variable = std::getenv(kVariable);
    return variable != nullptr && *variable != '\0' ? variable : kStandardFile;
}

HostConfig StoreOptions::LoadConfig(SecretsUse secrets) const {
    return ReadConfig(ConfigFile(), secrets);
}

std::string StoreOptions::StoreFolder() const {
    if (!m_strStore.empty()) {
        return m_strStore;
    }
    const HostConfig config = LoadConfig(SecretsUse::Skip);
    if (config.store.empty()) {
        throw BadInput({Problem{ConfigFile(), 0, "store",
                                "expected the folder of the job store; the field is missing"}});
    }
    return config.store;
}

StoreDatabase StoreOptions::OpenStore() const {
    return StoreDatabase(StoreFolder(), StoreDatabase::Access::Existing);
}

}  // namespace kvhost
