#include "RestartNeeded.h"

#include <tuple>

namespace kvhost {

namespace {

auto LogOf(const HostConfig& config) {
    return std::tie(config.logFile, config.logBytes, config.logFiles);
}

auto DeliveryLogOf(const HostConfig& config) {
    const RotatedFile& log = config.deliveryLog;
    return std::tie(log.path, log.bytes, log.files);
}

auto HttpOf(const HostConfig& config) {
    const HttpSettings& http = config.http;
    return std::tie(http.isOn, http.address, http.port, http.takesJobs, http.token, http.bodyBytes);
}

}  // namespace

std::vector<std::string> RestartNeededFor(const HostConfig& before, const HostConfig& after) {
    std::vector<std::string> settings;
    const auto note = [&settings](bool isDifferent, const char* name) {
        if (isDifferent) {
            settings.emplace_back(name);
        }
    };
    note(before.store != after.store, "store");
    note(before.driver != after.driver || before.driverSettings != after.driverSettings, "[driver]");
    note(LogOf(before) != LogOf(after), "file, bytes and files of [log]");
    note(DeliveryLogOf(before) != DeliveryLogOf(after), "[delivery_log]");
    note(HttpOf(before) != HttpOf(after), "[http]");
    return settings;
}

}  // namespace kvhost
