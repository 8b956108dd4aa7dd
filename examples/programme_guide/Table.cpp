#include "Table.h"

#include <algorithm>

#include "Utf8.h"

namespace guide {

namespace {

constexpr char kGap[] = "  ";

std::string Repeat(const char* text, int count) {
    std::string repeated;
    for (int i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

}  // namespace

void Table::AddColumn(const std::string& heading, int maxWidth, Align align) {
    m_columns.push_back({heading, maxWidth, align, DisplayWidth(heading)});
}

void Table::AddRow(const std::vector<std::string>& cells) {
    std::vector<std::string> row(m_columns.size());
    for (size_t i = 0; i < row.size() && i < cells.size(); ++i) {
        row[i] = CutToWidth(cells[i], m_columns[i].maxWidth);
        m_columns[i].width = std::max(m_columns[i].width, DisplayWidth(row[i]));
    }
    m_rows.push_back(row);
}

std::string Table::ToString() const {
    std::vector<std::string> headings;
    std::vector<std::string> rules;
    for (const Column& column : m_columns) {
        headings.push_back(column.heading);
        rules.push_back(Repeat("─", column.width));
    }
    std::string text = Line(headings) + Line(rules);
    for (const auto& row : m_rows) {
        text += Line(row);
    }
    return text;
}

std::string Table::Line(const std::vector<std::string>& cells) const {
    std::string line;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const std::string blanks = Repeat(" ", m_columns[i].width - DisplayWidth(cells[i]));
        line += i > 0 ? kGap : "";
        line += m_columns[i].align == Align::Right ? blanks + cells[i] : cells[i] + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

}  // namespace guide
