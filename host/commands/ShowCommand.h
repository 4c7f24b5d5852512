#pragma once

#include <string>

#include "Command.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost show": all that is known of a job, or of every job of a submission.
class ShowCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    StoreOptions m_store;
    std::string m_strName;
    bool m_bText = false;
};

}  // namespace kvhost
