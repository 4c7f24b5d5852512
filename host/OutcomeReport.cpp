#include "OutcomeReport.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "VisibleText.h"

namespace kvhost {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kColumns = 5;
constexpr std::size_t kGap = 2;
using Row = std::array<std::string, kColumns>;

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

std::vector<Row> RowsOf(const std::vector<Outcome>& outcomes) {
    std::vector<Row> rows{{"JOB", "CARRIER", "RECIPIENT", "STATUS", "REASON"}};
    for (const Outcome& outcome : outcomes) {
        rows.push_back({OrDash(outcome.job), OrDash(outcome.carrier), OrDash(outcome.recipient),
                        StatusName(outcome.status), outcome.reason});
    }
    return rows;
}

std::size_t WidthOf(const std::vector<Row>& rows, std::size_t column) {
    std::size_t width = 0;
    for (const Row& row : rows) {
        width = std::max(width, CountCodePoints(row[column]));
    }
    return width + kGap;
}

/// The cells of `row`, each but the last filled up to its column's width; no blanks at the end of the line.
std::string LineOf(const Row& row, const std::array<std::size_t, kColumns>& widths) {
    std::string line;
    for (std::size_t column = 0; column < kColumns; ++column) {
        line += row[column] + std::string(widths[column] - CountCodePoints(row[column]), ' ');
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

}  // namespace

std::string FormatTable(const RunReport& report) {
    std::string text;
    if (!report.outcomes.empty()) {
        const std::vector<Row> rows = RowsOf(report.outcomes);
        std::array<std::size_t, kColumns> widths{};
        for (std::size_t column = 0; column < kColumns; ++column) {
            widths[column] = WidthOf(rows, column);
        }
        for (const Row& row : rows) {
            text += LineOf(row, widths);
        }
        text += "\n";
    }
    return text + Summarise(report.tally) + "\n";
}

std::string FormatJson(const RunReport& report) {
    ordered_json document;
    document["driver"] = report.driver;
    document["outcomes"] = ordered_json::array();
    for (const Outcome& outcome : report.outcomes) {
        document["outcomes"].push_back(JsonOf(outcome));
    }
    document["refused_carriers"] = ordered_json::array();
    for (const Problem& problem : report.carrierProblems) {
        document["refused_carriers"].push_back(MakeVisible(Describe(problem)));
    }
    document["summary"] = JsonOf(report.tally);
    document["error"] = MakeVisible(report.error);
    document["exit_status"] = report.exitStatus;
    return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace kvhost
