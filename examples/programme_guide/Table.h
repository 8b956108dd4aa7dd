#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_TABLE_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_TABLE_H_

#include <string>
#include <vector>

namespace guide {

// A table of text with aligned columns, whatever script its cells are written in.
class Table {
public:
    enum class Align { Left, Right };

    // Every column is as wide as its widest cell, but at most `maxWidth` columns of the terminal:
    // longer cells are cut.
    void AddColumn(const std::string& heading, int maxWidth, Align align = Align::Left);

    // Missing cells are empty.
    void AddRow(const std::vector<std::string>& cells);

    // The headings, a rule and the rows, each line with its line end.
    std::string ToString() const;

private:
    struct Column {
        std::string heading;
        int maxWidth;
        Align align;
        int width;
    };

    std::string Line(const std::vector<std::string>& cells) const;

    std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_TABLE_H_
