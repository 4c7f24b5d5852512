#include "ProbeReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace kvhost {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kStatusWidth = 9;
constexpr std::size_t kNameWidth = 13;

std::string Padded(const std::string& text, std::size_t width) {
    return text + std::string(width > text.size() ? width - text.size() : 1, ' ');
}

std::string StepText(const ProbeStep& step) {
    std::string text =
        Padded(ProbeStatusName(step.status), kStatusWidth) + Padded(step.name, kNameWidth) + step.text + "\n";
    for (const std::string& detail : step.details) {
        text += std::string(kStatusWidth + kNameWidth, ' ') + detail + "\n";
    }
    return text;
}

ordered_json StepJson(const ProbeStep& step) {
    return {{"name", step.name},
            {"status", ProbeStatusName(step.status)},
            {"text", step.text},
            {"details", step.details},
            {"ms", step.took.count()}};
}

ordered_json TlsJson(const std::optional<ProbeTlsFacts>& tls) {
    if (!tls) {
        return nullptr;
    }
    return {{"version", tls->version},    {"cipher", tls->cipher},        {"subject", tls->subject},
            {"issuer", tls->issuer},      {"not_before", tls->notBefore}, {"not_after", tls->notAfter},
            {"days_left", tls->daysLeft}, {"names", tls->names},          {"verified", tls->IsVerified()},
            {"problem", tls->problem},    {"for_host", tls->isForHost}};
}

ordered_json AuthJson(const std::optional<ProbeAuth>& auth) {
    if (!auth) {
        return nullptr;
    }
    return {{"mechanism", auth->mechanism}, {"accepted", auth->isAccepted}};
}

}  // namespace

const char* ProbeStatusName(ProbeStatus status) {
    switch (status) {
        case ProbeStatus::Ok:
            return "ok";
        case ProbeStatus::Warning:
            return "warning";
        case ProbeStatus::Failed:
            return "failed";
        default:
            return "skipped";
    }
}

bool ProbeReport::IsUsable() const {
    return WhyNotUsable().empty();
}

std::string ProbeReport::WhyNotUsable() const {
    const auto failed = std::find_if(
        steps.begin(), steps.end(), [](const ProbeStep& step) { return step.status == ProbeStatus::Failed; });
    return failed == steps.end() ? "" : failed->name + ": " + failed->text;
}

std::string FormatProbe(const ProbeReport& report) {
    std::string text =
        "carrier " + report.carrier + ", server " + report.server + ", security " + report.security + "\n\n";
    for (const ProbeStep& step : report.steps) {
        text += StepText(step);
    }
    return text + "\n" +
           (report.IsUsable() ? "usable; no mail was sent\n" : "not usable: " + report.WhyNotUsable() + "\n");
}

std::string FormatProbeJson(const ProbeReport& report, int exitStatus) {
    ordered_json steps = ordered_json::array();
    for (const ProbeStep& step : report.steps) {
        steps.push_back(StepJson(step));
    }
    return ordered_json({{"carrier", report.carrier},
                         {"server", report.server},
                         {"security", report.security},
                         {"usable", report.IsUsable()},
                         {"error", report.WhyNotUsable()},
                         {"steps", steps},
                         {"extensions", report.extensions},
                         {"tls", TlsJson(report.tls)},
                         {"auth", AuthJson(report.auth)},
                         {"exit_status", exitStatus}})
               .dump(2) +
           "\n";
}

}  // namespace kvhost
