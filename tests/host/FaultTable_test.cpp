#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "RetryDecision.h"

// The verdict tables of docs/faults.md, compared with what kvhost makes of the reasons in them.

namespace {

constexpr std::size_t kStatusColumn = 2;
constexpr std::size_t kClassColumn = 4;
constexpr std::size_t kColumns = 6;

struct Row {
    int line;
    std::vector<std::string> cells;
};

std::vector<std::string> CellsOf(const std::string& line) {
    std::vector<std::string> cells;
    for (std::size_t at = 1; at < line.size();) {
        const std::size_t end = std::min(line.find(" |", at), line.size());
        cells.push_back(line.substr(std::min(at + 1, end), end - std::min(at + 1, end)));
        at = end + 2;
    }
    return cells;
}

std::vector<Row> RowsOfPage() {
    std::ifstream page(KV_SOURCE_DIR "/docs/faults.md");
    std::vector<Row> rows;
    std::string line;
    for (int number = 1; std::getline(page, line); ++number) {
        const std::vector<std::string> cells =
            line.starts_with("| ") ? CellsOf(line) : std::vector<std::string>();
        if (cells.size() == kColumns && cells[0] != "fault") {
            rows.push_back({number, cells});
        }
    }
    return rows;
}

/// The bytes that are written as \r, \n and \xHH on the page.
std::string Unescaped(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
        } else if (text[i + 1] == 'x') {
            bytes += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else {
            bytes += text[++i] == 'n' ? '\n' : '\r';
        }
    }
    return bytes;
}

/// Where the first reason of a failed job begins; npos when the row tells none.
std::size_t FirstReason(const std::string& status) {
    for (const std::string mark : {"failed, `", "2, `"}) {
        const std::size_t at = status.find(mark);
        if (at != std::string::npos) {
            return at + mark.size();
        }
    }
    return std::string::npos;
}

/// What stands between backticks directly behind the status, and behind the commas or slashes after it.
std::vector<std::string> ReasonsIn(const std::string& status) {
    std::vector<std::string> reasons;
    if (status.find("failed without a reason") != std::string::npos) {
        reasons.emplace_back();
    }
    for (std::size_t at = FirstReason(status); at < status.size();) {
        const std::size_t end = std::min(status.find('`', at), status.size());
        reasons.push_back(Unescaped(status.substr(at, end - at)));
        const std::size_t next = std::min(status.find('`', end + 1), status.size());
        const std::string between = status.substr(end, next - end);
        at = between == "`, " || between == "` / " ? next + 1 : std::string::npos;
    }
    return reasons;
}

TEST(FaultTableTest, EveryReasonIsOfTheClassThatItsRowTells) {
    int judged = 0;
    for (const Row& row : RowsOfPage()) {
        for (const std::string& reason : ReasonsIn(row.cells[kStatusColumn])) {
            EXPECT_EQ(kvhost::FailureClassName(kvhost::ClassOf(reason, kvhost::RetryPolicy())),
                      row.cells[kClassColumn])
                << "line " << row.line << ": " << reason;
            ++judged;
        }
    }
    EXPECT_GT(judged, 30);
}

TEST(FaultTableTest, ARowWithoutAReasonAsksNothingOfKvhost) {
    for (const Row& row : RowsOfPage()) {
        const std::string& status = row.cells[kStatusColumn];
        if (status.starts_with("completed") || status.starts_with('3')) {
            EXPECT_EQ(row.cells[kClassColumn], "none") << "line " << row.line;
        }
    }
}

}  // namespace
