#include "Table.h"

#include <gtest/gtest.h>

namespace {

using guide::Table;

TEST(GuideTableTest, ColumnsAreAlignedWhateverTheScript) {
    Table table;
    table.AddColumn("No", 3, Table::Align::Right);
    table.AddColumn("Channel", 20);
    table.AddColumn("On now", 20);
    table.AddRow({"1", "Cinéma", "Le Vélo"});
    table.AddRow({"12", "月見台テレビ", "川を渡る"});
    table.AddRow({"3", "Берег", "Паром"});
    EXPECT_EQ(
        "No  Channel       On now\n"
        "──  ────────────  ────────\n"
        " 1  Cinéma        Le Vélo\n"
        "12  月見台テレビ  川を渡る\n"
        " 3  Берег         Паром\n",
        table.ToString());
}

TEST(GuideTableTest, ALongCellIsCutAtTheColumnsWidth) {
    Table table;
    table.AddColumn("A", 4);
    table.AddColumn("B", 4);
    table.AddRow({"abcdef", "月見台"});
    EXPECT_EQ(
        "A     B\n"
        "────  ───\n"
        "abc…  月…\n",
        table.ToString());
}

TEST(GuideTableTest, AColumnIsNeverNarrowerThanItsHeading) {
    Table table;
    table.AddColumn("Programme", 3);
    table.AddColumn("x", 3);
    table.AddRow({"a", "b"});
    EXPECT_EQ(
        "Programme  x\n"
        "─────────  ─\n"
        "a          b\n",
        table.ToString());
}

TEST(GuideTableTest, MissingCellsAreEmptyAndSurplusOnesAreDropped) {
    Table table;
    table.AddColumn("A", 3);
    table.AddColumn("B", 3);
    table.AddRow({"a"});
    table.AddRow({"a", "b", "c"});
    EXPECT_EQ(
        "A  B\n"
        "─  ─\n"
        "a\n"
        "a  b\n",
        table.ToString());
}

TEST(GuideTableTest, WithoutRowsThereIsOnlyTheHead) {
    Table table;
    table.AddColumn("A", 3);
    EXPECT_EQ("A\n─\n", table.ToString());
}

}  // namespace
