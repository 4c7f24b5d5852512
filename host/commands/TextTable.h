#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kvhost {

/// Rows of cells in aligned columns, for a terminal. Aligned by code points; control characters are made visible. One
/// thread at a time.
class TextTable {
public:
    enum class Align { Left, Right };
    struct Column {
        std::string title;
        Align align = Align::Left;
    };

    explicit TextTable(std::vector<Column> columns);

    /// A row of as many cells as there are columns.
    void Add(const std::vector<std::string>& cells);
    bool IsEmpty() const { return m_vecRows.size() == 1; }
    /// The title line and the rows, each with `indent` blanks in front, none at its end, and a line feed.
    std::string Text(std::size_t indent = 0) const;

private:
    std::string LineOf(const std::vector<std::string>& row, const std::vector<std::size_t>& widths) const;

    std::vector<Align> m_vecAligns;
    std::vector<std::vector<std::string>> m_vecRows;  ///< the titles first
};

/// The first `most` code points of `text`, made visible; "…" is the last of them when something was cut off.
std::string Shorten(const std::string& text, std::size_t most);

/// "-" for an empty text.
std::string OrDash(const std::string& text);

}  // namespace kvhost
