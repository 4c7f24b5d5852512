#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Command.h"
#include "JobOperations.h"
#include "StateOption.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost retry", "hold", "release" and "cancel": one operation on jobs that are named, or on all of a state.
class OperationCommand : public Command {
public:
    explicit OperationCommand(JobOperation operation) : m_operation(operation) {}

    CLI::App* Register(CLI::App& app) override;
    int Run() override;

private:
    using Take = std::function<void(const std::vector<std::string>& names)>;

    void CheckUsage() const;
    std::vector<std::string> Names() const;
    void ForNames(const Take& take) const;
    void ForAll(StoreDatabase& store, const Take& take) const;

    const JobOperation m_operation;
    StoreOptions m_store;
    StateOption m_state;
    std::vector<std::string> m_vecNames;
    std::string m_strCarrier;
    bool m_bAll = false;
};

}  // namespace kvhost
