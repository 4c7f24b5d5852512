#include "TextTable.h"

#include <algorithm>

#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr std::size_t kGap = 2;

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

}  // namespace

TextTable::TextTable(std::vector<Column> columns) {
    std::vector<std::string> titles;
    for (Column& column : columns) {
        m_vecAligns.push_back(column.align);
        titles.push_back(std::move(column.title));
    }
    m_vecRows.push_back(std::move(titles));
}

void TextTable::Add(const std::vector<std::string>& cells) {
    std::vector<std::string> row;
    row.reserve(cells.size());
    for (const std::string& cell : cells) {
        row.push_back(MakeVisible(cell));
    }
    m_vecRows.push_back(std::move(row));
}

std::string TextTable::Text(std::size_t indent) const {
    std::vector<std::size_t> widths(m_vecAligns.size(), 0);
    for (const auto& row : m_vecRows) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], CountCodePoints(row[column]));
        }
    }
    std::string text;
    for (const auto& row : m_vecRows) {
        text += std::string(indent, ' ') + LineOf(row, widths) + "\n";
    }
    return text;
}

std::string TextTable::LineOf(const std::vector<std::string>& row,
                              const std::vector<std::size_t>& widths) const {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
        const std::string fill(widths[column] - CountCodePoints(row[column]), ' ');
        line += std::string(column == 0 ? 0 : kGap, ' ');
        line += m_vecAligns[column] == Align::Right ? fill + row[column] : row[column] + fill;
    }
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string Shorten(const std::string& text, std::size_t most) {
    const std::string visible = MakeVisible(text);
    if (CountCodePoints(visible) <= most) {
        return visible;
    }
    std::size_t end = 0;
    for (std::size_t left = most; end < visible.size(); ++end) {
        if (!IsContinuation(visible[end]) && left-- <= 1) {
            break;
        }
    }
    return visible.substr(0, end) + "…";
}

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

}  // namespace kvhost
