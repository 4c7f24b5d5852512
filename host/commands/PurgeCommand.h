#pragma once

#include <string>

#include "Command.h"
#include "JobOperations.h"
#include "StateOption.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost purge": deletes jobs that ended long ago, and the attachments that nothing refers to any more.
class PurgeCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    PurgeResult Purge(StoreDatabase& store) const;

    StoreOptions m_store;
    StateOption m_state;
    std::string m_strOlder;
    int m_nLimit = 0;
};

}  // namespace kvhost
