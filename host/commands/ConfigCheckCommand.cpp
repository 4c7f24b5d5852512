#include "ConfigCheckCommand.h"

#include "CommandOutput.h"
#include "ConfigFindings.h"
#include "ConfigSummary.h"
#include "StoreJson.h"
#include "VisibleText.h"

namespace kvhost {

CLI::App* ConfigCheckCommand::Register(CLI::App& app) {
    CLI::App* config = app.add_subcommand("config", "Look at the configuration");
    config->require_subcommand(1);
    CLI::App* check =
        config->add_subcommand("check", "Tell every fault of the configuration, and what it says");
    m_store.Register(*check);
    return check;
}

int ConfigCheckCommand::Run() {
    const ConfigFindings findings = CheckConfig(m_store.ConfigFile(), m_store.GivenStore());
    CommandOutput output;
    if (m_store.IsJson()) {
        output.Write(DumpJson(SummaryJson(findings)));
    } else {
        output.Write(SummaryText(findings));
        for (const std::string& note : findings.notes) {
            output.Write("\nNote: " + MakeVisible(note) + "\n");
        }
    }
    for (const std::string& fault : findings.faults) {
        TellFault(fault);
    }
    return output.Conclude(findings.faults.empty() ? kExitSuccess : kExitBadInput);
}

}  // namespace kvhost
