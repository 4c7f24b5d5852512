#pragma once

#include <cstdint>
#include <string>

#include "Command.h"
#include "StateOption.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost list": the newest jobs of the store, page by page.
class ListCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    StoreOptions m_store;
    StateOption m_state;
    std::string m_strCarrier;
    int m_nLimit = 100;
    std::int64_t m_nBefore = INT64_MAX;
};

}  // namespace kvhost
