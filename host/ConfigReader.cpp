#include "ConfigReader.h"

#include <array>
#include <cstdint>
#include <limits>
#include <utility>

#include "CarrierReader.h"
#include "ConfigTable.h"
#include "InputChecks.h"
#include "LogLevel.h"

namespace kvhost {

namespace {

toml::table Parse(const std::string& path) {
    if (const auto wrong = WhyNotAReadableFile(path)) {
        throw BadInput({Problem{path, 0, "", *wrong}});
    }
    try {
        return toml::parse_file(path);
    } catch (const toml::parse_error& error) {
        throw BadInput({Problem{path, error.source().begin.line, "",
                                "expected TOML: " + std::string(error.description())}});
    }
}

void ReadDriverSettings(ConfigTable fields, HostConfig& config) {
    static constexpr std::array<const char*, 4> kNames{"threadpool_size", "diff_carrier_connection_count",
                                                       "same_carrier_connection_count",
                                                       "max_pins_per_transaction"};
    for (const char* name : kNames) {
        if (const auto value = fields.Integer(name, 1, std::numeric_limits<std::int32_t>::max())) {
            config.driverSettings[std::string("smart_driver.") + name] = std::to_string(*value);
        }
    }
    fields.RefuseOthers(
        "threadpool_size, diff_carrier_connection_count, same_carrier_connection_count or "
        "max_pins_per_transaction");
}

void ReadLogSettings(ConfigTable fields, const std::string& path, HostConfig& config) {
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
    fields.RefuseOthers("level or file");
}

}  // namespace

HostConfig ReadConfig(const std::string& path) {
    const toml::table file = Parse(path);
    HostConfig config;
    std::vector<Problem> problems;
    ConfigTable fields(file, path, "", problems);
    if (const toml::table* driver = fields.Table("driver")) {
        ReadDriverSettings(ConfigTable(*driver, path, "driver", problems), config);
    }
    if (const toml::table* log = fields.Table("log")) {
        ReadLogSettings(ConfigTable(*log, path, "log", problems), path, config);
    }
    if (const toml::node* carriers = fields.Node("carrier")) {
        CarrierReader(path, config).Read(*carriers);
    }
    fields.RefuseOthers("driver, log or carrier");
    if (!problems.empty()) {
        throw BadInput(problems);
    }
    return config;
}

}  // namespace kvhost
