#include "OutcomeReport.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "VisibleText.h"

namespace kvhost {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kColumns = 5;
constexpr std::size_t kGap = 2;
using Row = std::array<std::string_view, kColumns>;

constexpr Row kHeadings{"JOB", "CARRIER", "RECIPIENT", "STATUS", "REASON"};
using Widths = std::array<std::size_t, kColumns>;

std::string_view OrDash(const std::string& text) {
    return text.empty() ? std::string_view("-") : text;
}

Row RowOf(const Outcome& outcome) {
    return {OrDash(outcome.job), OrDash(outcome.carrier), OrDash(outcome.recipient),
            StatusName(outcome.status), outcome.reason};
}

void Widen(Widths& widths, const Row& row) {
    for (std::size_t column = 0; column < kColumns; ++column) {
        widths[column] = std::max(widths[column], CountCodePoints(row[column]) + kGap);
    }
}

/// The cells of `row`, each but the last filled up to its column's width; no blanks at the end of the line.
std::string LineOf(const Row& row, const Widths& widths) {
    std::string line;
    for (std::size_t column = 0; column < kColumns; ++column) {
        line.append(row[column]).append(widths[column] - CountCodePoints(row[column]), ' ');
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

ordered_json JsonOf(const Outcome& outcome) {
    return {{"job", outcome.job},
            {"carrier", outcome.carrier},
            {"recipient", outcome.recipient},
            {"status", StatusName(outcome.status)},
            {"reason", outcome.reason}};
}

ordered_json JsonOf(const Tally& tally) {
    ordered_json summary;
    for (std::size_t i = static_cast<std::size_t>(OutcomeStatus::Delivered); i < kOutcomeStatusCount; ++i) {
        const auto status = static_cast<OutcomeStatus>(i);
        summary[StatusName(status)] = tally.Of(status);
    }
    return summary;
}

std::string Text(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string Field(const char* name, const ordered_json& value) {
    return std::string("  \"") + name + "\": " + Text(value);
}

}  // namespace

std::string FormatTable(const RunReport& report) {
    std::string text;
    if (!report.outcomes.empty()) {
        Widths widths{};
        Widen(widths, kHeadings);
        for (const Outcome& outcome : report.outcomes) {
            Widen(widths, RowOf(outcome));
        }
        text += LineOf(kHeadings, widths);
        for (const Outcome& outcome : report.outcomes) {
            text += LineOf(RowOf(outcome), widths);
        }
        text += "\n";
    }
    return text + Summarise(report.tally) + "\n";
}

// An outcome is a line of its own, written as it is met: as one tree a document of many jobs would take many times the
// memory of its text.
std::string FormatJson(const RunReport& report) {
    ordered_json refused = ordered_json::array();
    for (const Problem& problem : report.carrierProblems) {
        refused.push_back(MakeVisible(Describe(problem)));
    }
    std::string text = "{\n" + Field("driver", report.driver) + ",\n  \"outcomes\": [";
    for (std::size_t i = 0; i < report.outcomes.size(); ++i) {
        text += (i == 0 ? "\n    " : ",\n    ") + Text(JsonOf(report.outcomes[i]));
    }
    text += report.outcomes.empty() ? "],\n" : "\n  ],\n";
    return text + Field("refused_carriers", refused) + ",\n" + Field("summary", JsonOf(report.tally)) +
           ",\n" + Field("error", MakeVisible(report.error)) + ",\n" +
           Field("exit_status", report.exitStatus) + "\n}\n";
}

}  // namespace kvhost
