#pragma once

#include "Command.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost fsck": proves that the store is consistent, or tells what is wrong with it. Changes nothing.
class FsckCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    StoreOptions m_store;
};

}  // namespace kvhost
