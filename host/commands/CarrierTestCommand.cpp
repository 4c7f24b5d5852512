#include "CarrierTestCommand.h"

#include "CarrierTrial.h"
#include "ReportOutput.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr Milliseconds kLongestStep{3600000};

std::string WhyNotATimeout(const std::string& text) {
    const auto value = ParseDuration(text);
    return value && *value > Milliseconds(0) && *value <= kLongestStep
               ? ""
               : std::string("expected ") + kDurationForm + ", from \"1ms\" to \"1h\"";
}

}  // namespace

CLI::App* CarrierTestCommand::Register(CLI::App& app) {
    CLI::App* group = app.add_subcommand("carrier", "Look after carriers")->require_subcommand(1);
    CLI::App* test =
        group->add_subcommand("test", "See whether a carrier's server takes the driver; sends no mail");
    test->add_option("name", m_strName, "Name of the carrier")->required();
    m_options.RegisterConfig(*test);
    test->add_option("--timeout", m_strTimeout, "Longest time of each step")
        ->check(WhyNotATimeout)
        ->capture_default_str();
    return test;
}

int CarrierTestCommand::Run() {
    const HostConfig config = m_options.LoadConfig();
    ReportOutput output;
    const ProbeReport report = CarrierTrial(Find(config), *ParseDuration(m_strTimeout)).Run();
    const int status = report.IsUsable() ? kExitSuccess : kExitSomeFailed;
    const std::string text = m_options.IsJson() ? FormatProbeJson(report, status) : FormatProbe(report);
    return output.Write(text) ? status : kExitSomeFailed;
}

const Carrier& CarrierTestCommand::Find(const HostConfig& config) const {
    const auto refused = config.refusedCarriers.find(m_strName);
    if (refused != config.refusedCarriers.end()) {
        throw BadInput("the carrier \"" + m_strName + "\" is refused: " + refused->second);
    }
    const auto found = config.carriers.find(m_strName);
    if (found == config.carriers.end()) {
        throw BadInput(m_options.ConfigFile() + ": expected the name of a carrier, found \"" + m_strName +
                       "\"; `kvhost config check` lists them");
    }
    return found->second;
}

}  // namespace kvhost
