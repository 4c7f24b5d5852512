#pragma once

#include "Command.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost config check": tells every fault of a configuration, and what it has the host use.
class ConfigCheckCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    StoreOptions m_store;
};

}  // namespace kvhost
