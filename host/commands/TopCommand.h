#pragma once

#include <string>

#include "Command.h"
#include "Duration.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost top": a live view of the store on a terminal, or one picture of it.
class TopCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    void RunLive(StoreDatabase& store) const;
    Milliseconds Interval() const;

    StoreOptions m_store;
    std::string m_strInterval = "1s";
    bool m_bOnce = false;
};

}  // namespace kvhost
