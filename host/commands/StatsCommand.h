#pragma once

#include "Command.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost stats": the figures of the store.
class StatsCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    StoreOptions m_store;
};

}  // namespace kvhost
