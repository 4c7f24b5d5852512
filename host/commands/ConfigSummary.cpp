#include "ConfigSummary.h"

#include "Duration.h"
#include "PeopleText.h"
#include "SecurityNames.h"
#include "TextTable.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

using nlohmann::ordered_json;

const char* DoubtName(DoubtPolicy policy) {
    switch (policy) {
        case DoubtPolicy::Retry:
            return "retry";
        case DoubtPolicy::Hold:
            return "hold";
        case DoubtPolicy::Fail:
            break;
    }
    return "fail";
}

std::string Line(const std::string& label, const std::string& value) {
    constexpr std::size_t kLabelWidth = 14;
    return label + std::string(kLabelWidth - label.size(), ' ') + MakeVisible(value) + "\n";
}

std::string FileText(const std::string& path, std::uint64_t bytes, int files) {
    return path + (bytes == 0 ? "" : ", " + std::to_string(files) + " of " + SizeText(bytes));
}

std::string LogText(const HostConfig& config) {
    const auto level = spdlog::level::to_string_view(config.logLevel);
    const std::string file = config.logFile.empty()
                                 ? "standard error"
                                 : FileText(config.logFile, config.logBytes, config.logFiles);
    return file + ", level " + std::string(level.data(), level.size());
}

std::string HttpText(const HttpSettings& http) {
    return http.isOn ? http.address + ", port " + std::to_string(http.port) +
                           (http.takesJobs ? ", takes jobs with a token" : ", takes no jobs")
                     : "off";
}

std::string RunText(const RunSettings& run) {
    return "tick " + DurationText(run.tick) + ", " + std::to_string(run.maxUnderWay) + " jobs under way, " +
           std::to_string(run.slice) + " of one carrier at once, stop limit " + DurationText(run.stopLimit) +
           ", jobs that ended are kept " + (run.keep.count() == 0 ? "for ever" : DurationText(run.keep));
}

std::string LimitsText(const SubmissionLimits& limits) {
    return std::to_string(limits.recipients) + " recipients, text " + SizeText(limits.textBytes) + ", " +
           std::to_string(limits.attachments) + " attachments of " + SizeText(limits.attachmentBytes);
}

TextTable CarrierTable(const HostConfig& config) {
    TextTable table(
        {{"CARRIER"}, {"SERVER"}, {"SECURITY"}, {"USER"}, {"SENDER"}, {"IN DOUBT"}, {"TRIED FOR"}});
    for (const auto& [name, carrier] : config.carriers) {
        table.Add({name, carrier.server, SecurityName(carrier.security), OrDash(carrier.user), carrier.sender,
                   DoubtName(carrier.onDoubt),
                   carrier.retry.lifetime.count() == 0 ? "ever" : DurationText(carrier.retry.lifetime)});
    }
    return table;
}

ordered_json TextOrNull(const std::string& text) {
    return text.empty() ? ordered_json() : ordered_json(text);
}

ordered_json RetryJson(const RetryPolicy& retry) {
    return {{"first_ms", retry.first.count()},          {"factor", retry.factor},
            {"longest_ms", retry.longest.count()},      {"jitter", retry.jitter},
            {"lifetime_ms", retry.lifetime.count()},    {"attempts", retry.attempts},
            {"unclear_attempts", retry.unclearAttempts}};
}

ordered_json CarriersJson(const HostConfig& config) {
    ordered_json carriers = ordered_json::array();
    for (const auto& [name, carrier] : config.carriers) {
        carriers.push_back({{"name", name},
                            {"id", carrier.id},
                            {"server", carrier.server},
                            {"security", SecurityName(carrier.security)},
                            {"user", TextOrNull(carrier.user)},
                            {"sender", carrier.sender},
                            {"on_doubt", DoubtName(carrier.onDoubt)},
                            {"retry", RetryJson(carrier.retry)}});
    }
    return carriers;
}

ordered_json RunJson(const RunSettings& run) {
    return {{"tick_ms", run.tick.count()},
            {"max_under_way", run.maxUnderWay},
            {"slice", run.slice},
            {"stop_limit_ms", run.stopLimit.count()},
            {"cleanup_limit_ms", run.cleanUpLimit.count()},
            {"probe_limit_ms", run.probeLimit.count()},
            {"keep_ms", run.keep.count()}};
}

ordered_json LimitsJson(const SubmissionLimits& limits) {
    return {{"attachment_bytes", limits.attachmentBytes},
            {"attachments", limits.attachments},
            {"text_bytes", limits.textBytes},
            {"recipients", limits.recipients}};
}

ordered_json LogJson(const HostConfig& config) {
    const auto level = spdlog::level::to_string_view(config.logLevel);
    return {{"level", std::string(level.data(), level.size())},
            {"file", TextOrNull(config.logFile)},
            {"bytes", config.logBytes},
            {"files", config.logFiles}};
}

ordered_json HttpJson(const HttpSettings& http) {
    return http.isOn ? ordered_json{{"address", http.address},
                                    {"port", http.port},
                                    {"submit", http.takesJobs},
                                    {"body_bytes", http.bodyBytes}}
                     : ordered_json();
}

ordered_json DeliveryLogJson(const RotatedFile& log) {
    return log.path.empty() ? ordered_json()
                            : ordered_json{{"file", log.path}, {"bytes", log.bytes}, {"files", log.files}};
}

}  // namespace

std::string SummaryText(const ConfigFindings& findings) {
    const HostConfig& config = findings.config;
    if (!findings.isRead) {
        return "";
    }
    const TextTable carriers = CarrierTable(config);
    return Line("File", findings.file) + Line("Driver", config.driver) +
           Line("Store", config.store.empty() ? "none" : config.store) + Line("Log", LogText(config)) +
           Line("Delivery log",
                config.deliveryLog.path.empty()
                    ? "none"
                    : FileText(config.deliveryLog.path, config.deliveryLog.bytes, config.deliveryLog.files)) +
           Line("HTTP", HttpText(config.http)) + Line("Run", RunText(config.run)) +
           Line("Limits", LimitsText(config.limits)) + (carriers.IsEmpty() ? "" : "\n" + carriers.Text());
}

ordered_json SummaryJson(const ConfigFindings& findings) {
    const HostConfig& config = findings.config;
    ordered_json document = {{"file", findings.file},
                             {"ok", findings.faults.empty()},
                             {"faults", findings.faults},
                             {"notes", findings.notes}};
    if (!findings.isRead) {
        return document;
    }
    document["driver"] = {{"plugin", config.driver}, {"settings", config.driverSettings}};
    document["store"] = TextOrNull(config.store);
    document["log"] = LogJson(config);
    document["delivery_log"] = DeliveryLogJson(config.deliveryLog);
    document["http"] = HttpJson(config.http);
    document["run"] = RunJson(config.run);
    document["limits"] = LimitsJson(config.limits);
    document["carriers"] = CarriersJson(config);
    document["refused_carriers"] = config.refusedCarriers;
    return document;
}

}  // namespace kvhost
