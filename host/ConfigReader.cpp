#include "ConfigReader.h"

#include <array>
#include <cstdint>
#include <utility>

#include "CarrierReader.h"
#include "ConfigTable.h"
#include "InputChecks.h"
#include "LogLevel.h"
#include "RetryFields.h"
#include "RunFields.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr std::int64_t kMostLogBytes = std::int64_t{1} << 40;

toml::table Parse(const std::string& path) {
    if (const auto wrong = WhyNotAReadableFile(path)) {
        throw BadInput({Problem{path, 0, "", *wrong}});
    }
    try {
        return toml::parse_file(path);
    } catch (const toml::parse_error& error) {
        throw BadInput({Problem{path, error.source().begin.line, "",
                                "expected TOML: " + MakeVisible(error.description())}});
    }
}

void ReadDriverSettings(ConfigTable& fields, HostConfig& config) {
    // A limit of 0 would have the driver wait for ever; the upper ends are what one process can serve.
    static constexpr std::array<std::pair<const char*, std::int64_t>, 4> kLimits{
        {{"threadpool_size", 1000},
         {"diff_carrier_connection_count", 10000},
         {"same_carrier_connection_count", 10000},
         {"max_pins_per_transaction", 10000}}};
    for (const auto& [name, most] : kLimits) {
        if (const auto value = fields.Integer(name, 1, most)) {
            config.driverSettings[std::string("smart_driver.") + name] = std::to_string(*value);
        }
    }
    config.driver = fields.Text("plugin").value_or(config.driver);
    fields.RefuseOthers(
        "plugin, threadpool_size, diff_carrier_connection_count, same_carrier_connection_count or "
        "max_pins_per_transaction");
}

void ReadLogSettings(ConfigTable& fields, const std::string& path, HostConfig& config) {
    if (const auto name = fields.Text("level")) {
        const auto level = ParseLogLevel(*name);
        if (!level) {
            fields.Refuse("level", std::string("expected ") + kLogLevelNames);
        }
        config.logLevel = level.value_or(config.logLevel);
    }
    if (const auto file = fields.Text("file")) {
        config.logFile = ResolveBeside(path, *file);
    }
    config.logBytes = static_cast<std::uint64_t>(fields.Integer("bytes", 1000, kMostLogBytes).value_or(0));
    config.logFiles = static_cast<int>(fields.Integer("files", 1, 1000).value_or(config.logFiles));
    fields.RefuseOthers("level, file, bytes or files");
}

}  // namespace

HostConfig ReadConfig(const std::string& path, SecretsUse secrets) {
    const toml::table file = Parse(path);
    HostConfig config;
    std::vector<Problem> problems;
    ConfigTable fields(file, path, "", problems);
    fields.ReadTable("driver", [&](ConfigTable& table) { ReadDriverSettings(table, config); });
    fields.ReadTable("log", [&](ConfigTable& table) { ReadLogSettings(table, path, config); });
    fields.ReadTable("run", [&](ConfigTable& table) { ReadRunFields(table, config.run); });
    fields.ReadTable("limits", [&](ConfigTable& table) { ReadLimitFields(table, config.limits); });
    fields.ReadTable("delivery_log",
                     [&](ConfigTable& table) { ReadDeliveryLogFields(table, path, config.deliveryLog); });
    fields.ReadTable("http", [&](ConfigTable& table) { ReadHttpFields(table, path, secrets, config.http); });
    RetryPolicy retry;
    fields.ReadTable("retry", [&retry](ConfigTable& table) { ReadRetryFields(table, retry); });
    if (const auto folder = fields.Text("store")) {
        config.store = ResolveBeside(path, *folder);
    }
    if (const toml::node* carriers = fields.Node("carrier")) {
        CarrierReader(path, retry, secrets, config).Read(*carriers);
    }
    fields.RefuseOthers("store, driver, log, run, limits, delivery_log, http, retry or carrier");
    if (!problems.empty()) {
        throw BadInput(problems);
    }
    return config;
}

}  // namespace kvhost
