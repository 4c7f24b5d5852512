#include "StatusPage.h"

#include <algorithm>
#include <cstdio>

#include "TimeText.h"

namespace kvhost {

namespace {

constexpr double kChartHeight = 100;
constexpr int kBarStep = 10;
constexpr int kBarWidth = 8;

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>kvhost</title>
<link rel="icon" href="data:,">
<link rel="stylesheet" href="status.css">
<script src="status.js" defer></script>
<noscript><meta http-equiv="refresh" content="5"></noscript>
</head>
<body>
)";

constexpr const char* kFoot = R"(</main>
<footer><p>Times are UTC. <a href="status.json">Figures as JSON</a>, <a href="metrics">metrics for Prometheus</a>.</p></footer>
</body>
</html>
)";

struct Column {
    const char* caption;
    const char* kind;  ///< class of its cells
};

std::string ShortTime(StoreTime time) {
    std::string text = TimeText(time).substr(0, 19);
    std::replace(text.begin(), text.end(), 'T', ' ');
    return text;
}

std::string Cell(const std::string& kind, const std::string& text) {
    const std::string attribute = kind.empty() ? "" : " class=\"" + kind + "\"";
    return "<td" + attribute + ">" + EscapeHtml(text) + "</td>";
}

std::string RowHead(const std::string& text) {
    return "<th scope=\"row\">" + EscapeHtml(text) + "</th>";
}

/// A table in a part of the page of its own, or the sentence `none` in its place. Both are there: the script shows the
/// one that fits.
std::string Table(const std::string& id, const std::string& title, const std::vector<Column>& columns,
                  const std::string& rows, const std::string& none) {
    std::string html = "<section aria-labelledby=\"" + id + "-title\">\n<h2 id=\"" + id + "-title\">" +
                       title + "</h2>\n<p class=\"none\" id=\"" + id + "-none\"" +
                       (rows.empty() ? "" : " hidden") + ">" + none +
                       "</p>\n<div class=\"scroll\" role=\"region\" tabindex=\"0\" id=\"" + id +
                       "-table\" aria-labelledby=\"" + id + "-title\"" + (rows.empty() ? " hidden" : "") +
                       ">\n<table><thead><tr>";
    for (const Column& column : columns) {
        html += "<th scope=\"col\"" +
                (*column.kind != '\0' ? std::string(" class=\"") + column.kind + "\"" : std::string()) + ">" +
                column.caption + "</th>";
    }
    return html + "</tr></thead>\n<tbody id=\"" + id + "\">\n" + rows +
           "</tbody></table></div>\n</section>\n";
}

std::string Header(const StatusReport& report) {
    return std::string("<header>\n<div class=\"title\"><h1>kvhost</h1><span id=\"phase\" class=\"badge ") +
           (report.health.isReady ? "good" : "bad") + "\">" + PhaseName(report.run.phase) +
           "</span></div>\n<p class=\"facts\"><span id=\"driver\">" + EscapeHtml(report.run.driver) +
           "</span> \u00b7 kvhost " KVHOST_VERSION " \u00b7 up <span id=\"uptime\">" + report.uptime +
           "</span> \u00b7 as of <span id=\"time\">" + ShortTime(report.time) +
           "</span></p>\n<p id=\"why\" class=\"bad\" role=\"status\">" + EscapeHtml(report.health.why) +
           "</p>\n<p id=\"stale\" class=\"bad\" role=\"status\" hidden>kvhost does not answer: the figures "
           "below are old.</p>\n</header>\n<main>\n";
}

std::string Figures(const StatusReport& report) {
    std::string html = "<dl class=\"figures\">\n";
    for (const Figure& figure : FiguresOf(report)) {
        html += std::string("<div><dt>") + figure.caption + "</dt><dd id=\"figure-" + figure.id + "\">" +
                EscapeHtml(figure.value) + "</dd></div>\n";
    }
    return html + "</dl>\n";
}

std::string Bar(const char* kind, std::size_t place, int from, int value, int top) {
    if (value == 0) {
        return "";
    }
    const double height = value * kChartHeight / top;
    char html[160];
    std::snprintf(html, sizeof(html), "<rect class=\"%s\" x=\"%u\" y=\"%.2f\" width=\"%d\" height=\"%.2f\"/>",
                  kind, static_cast<unsigned>(place) * kBarStep + 1,
                  kChartHeight - from * kChartHeight / top - height, kBarWidth, height);
    return html;
}

std::string Bars(const std::vector<MinuteFigures>& hour) {
    int top = 1;
    for (const MinuteFigures& minute : hour) {
        top = std::max(top, minute.delivered + minute.failed + minute.retried);
    }
    std::string html;
    for (std::size_t place = 0; place < hour.size(); ++place) {
        const MinuteFigures& minute = hour[place];
        html += Bar("delivered", place, 0, minute.delivered, top);
        html += Bar("retried", place, minute.delivered, minute.retried, top);
        html += Bar("failed", place, minute.delivered + minute.retried, minute.failed, top);
    }
    return html;
}

std::string LegendEntry(const std::string& kind, const std::string& caption) {
    return "<li><svg viewBox=\"0 0 10 10\" aria-hidden=\"true\"><rect class=\"" + kind +
           "\" width=\"10\" height=\"10\" rx=\"2\"/></svg>" + caption + "</li>";
}

std::string Hour(const StatusReport& report) {
    return "<section aria-labelledby=\"hour-title\">\n<h2 id=\"hour-title\">The last hour <small "
           "id=\"hour-summary\">" +
           report.hourSummary +
           "</small></h2>\n<svg id=\"hour\" viewBox=\"0 0 600 100\" preserveAspectRatio=\"none\" "
           "role=\"img\" "
           "aria-label=\"" +
           report.hourSummary +
           "\"><line class=\"base\" x1=\"0\" y1=\"99.5\" x2=\"600\" y2=\"99.5\"/><g id=\"bars\">" +
           Bars(report.hour) +
           "</g></svg>\n<div class=\"axis\"><span>60 min ago</span><span>now</span></div>\n<ul "
           "class=\"legend\">" +
           LegendEntry("delivered", "delivered") + LegendEntry("retried", "to be retried") +
           LegendEntry("failed", "failed") + "</ul>\n</section>\n";
}

std::string Carriers(const StatusReport& report) {
    std::vector<Column> columns = {{"Carrier", ""}};
    for (int number = 0; number < kJobStateCount; ++number) {
        columns.push_back({JobStateName(static_cast<JobState>(number)), "number"});
    }
    columns.push_back({"Condition", ""});
    std::string rows;
    for (const CarrierLine& line : report.carriers) {
        rows += "<tr>" + RowHead(line.name);
        for (int number = 0; number < kJobStateCount; ++number) {
            const auto found = line.jobs.find(static_cast<JobState>(number));
            rows += Cell("number", std::to_string(found == line.jobs.end() ? 0 : found->second));
        }
        rows += Cell(line.status.isInTrouble ? "text bad" : "text", line.condition) + "</tr>\n";
    }
    return Table("carriers", "Carriers", columns, rows, "No carrier is configured.");
}

std::string Waiting(const StatusReport& report) {
    std::string rows;
    for (const StoredJob& job : report.waiting) {
        rows += "<tr>" + RowHead(job.id) + Cell("", JobStateName(job.state)) + Cell("", job.carrier) +
                Cell("", job.recipient) + Cell("text", job.subject) +
                Cell("number", std::to_string(job.attempts)) +
                Cell("time", job.state == JobState::Queued ? ShortTime(job.due) : "") +
                Cell("text", job.reason) + "</tr>\n";
    }
    const std::vector<Column> columns = {{"Job", ""},       {"State", ""},   {"Carrier", ""},
                                         {"Recipient", ""}, {"Subject", ""}, {"Attempts", "number"},
                                         {"Due", ""},       {"Reason", ""}};
    return Table(
        "waiting", "Waiting <small>the first " + std::to_string(StoreWatch::kWaitingShown) + "</small>",
        columns, rows,
        report.storeUnreadable.empty() ? "No job is queued, held or in doubt."
                                       : "The store cannot be read: " + EscapeHtml(report.storeUnreadable));
}

std::string Failures(const StatusReport& report) {
    std::string rows;
    for (const RecentFailure& failure : report.failures) {
        rows += "<tr>" + Cell("time", ShortTime(failure.time)) + RowHead(failure.job) +
                Cell("", failure.carrier) + Cell("", failure.recipient) +
                Cell("number", std::to_string(failure.attempt)) + Cell("text", failure.reason) +
                Cell("text", failure.decision) + "</tr>\n";
    }
    const std::vector<Column> columns = {{"Time", ""},      {"Job", ""},           {"Carrier", ""},
                                         {"Recipient", ""}, {"Attempt", "number"}, {"Reason", ""},
                                         {"Decision", ""}};
    return Table("failures",
                 "Recent failures <small>since the start, the last " +
                     std::to_string(RecentAttempts::kFailures) + "</small>",
                 columns, rows, "No attempt has failed since the start.");
}

}  // namespace

std::string StatusPage(const StatusReport& report) {
    return kHead + Header(report) + Figures(report) + Hour(report) + Carriers(report) + Waiting(report) +
           Failures(report) + kFoot;
}

std::string EscapeHtml(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

}  // namespace kvhost
