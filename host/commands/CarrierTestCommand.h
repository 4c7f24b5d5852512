#pragma once

#include <string>

#include "Command.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost carrier test": looks whether the driver could send through a carrier, and sends no mail.
class CarrierTestCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    /// Success when the carrier is usable. Throws BadInput for a configuration that cannot be used, and for a carrier
    /// that it does not have or that is refused.
    int Run() override;

private:
    const Carrier& Find(const HostConfig& config) const;

    StoreOptions m_options;
    std::string m_strName;
    std::string m_strTimeout = "30s";
};

}  // namespace kvhost
