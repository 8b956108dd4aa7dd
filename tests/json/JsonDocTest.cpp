// The table of docs/json.md, read from the page: every row is what the library really does.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "kpl/json/JSON.h"

namespace {

struct Row {
    std::string text;     // as on the page
    std::string rfc;      // yes, no, free
    std::string here;     // in one word
    std::string written;  // as on the page
};

std::string Trimmed(const std::string& text) {
    const size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? ""
                                      : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// "| a | b |" gives "a" and "b".
std::vector<std::string> Cells(const std::string& line) {
    std::vector<std::string> cells;
    for (size_t at = line.find('|'); at != std::string::npos;) {
        const size_t end = line.find('|', at + 1);
        if (end != std::string::npos) {
            cells.push_back(Trimmed(line.substr(at + 1, end - at - 1)));
        }
        at = end;
    }
    return cells;
}

// The rows of all tables that begin with the columns of a Row.
std::vector<Row> Rows() {
    std::ifstream page(KPL_JSON_PAGE);
    std::vector<Row> rows;
    bool inTable = false;
    for (std::string line; std::getline(page, line);) {
        const auto cells = Cells(line);
        inTable = !cells.empty() && (inTable || cells[0] == "Text");
        if (inTable && cells[0] != "Text" && cells[0].find("---") != 0) {
            EXPECT_EQ(cells.size(), 5U) << line;
            rows.push_back({cells[0], cells[1], cells[2], cells[3]});
        }
    }
    return rows;
}

// A control picture, U+2400 to U+2420, is the byte that it pictures.
bool AppendPicture(const std::string& cell, size_t* at, std::string* bytes) {
    if (cell.compare(*at, 2, "\xE2\x90") != 0) {
        return false;
    }
    bytes->push_back(static_cast<char>(static_cast<unsigned char>(cell[*at + 2]) - 0x80));
    *at += 3;
    return true;
}

// What stands between the brackets U+27E8 and U+27E9: a byte as two digits, or "1000 x [".
void AppendBracketed(const std::string& inner, std::string* bytes) {
    const size_t times = inner.find(" x ");
    if (times == std::string::npos) {
        EXPECT_EQ(inner.size(), 2U) << inner;
        bytes->push_back(static_cast<char>(std::stoi(inner, nullptr, 16)));
        return;
    }
    for (int count = std::stoi(inner); count > 0; --count) {
        *bytes += inner.substr(times + 3);
    }
}

// The bytes that a cell like "`[1]`" stands for.
std::string Bytes(const std::string& cell) {
    EXPECT_TRUE(cell.size() >= 2 && cell.front() == '`' && cell.back() == '`') << cell;
    std::string bytes;
    for (size_t at = 1; at + 1 < cell.size();) {
        if (cell.compare(at, 3, "\xE2\x9F\xA8") == 0) {
            const size_t end = cell.find("\xE2\x9F\xA9", at);
            AppendBracketed(cell.substr(at + 3, end - at - 3), &bytes);
            at = end + 3;
        } else if (!AppendPicture(cell, &at, &bytes)) {
            bytes.push_back(cell[at++]);
        }
    }
    return bytes;
}

std::string Answer(const std::string& text) {
    const std::unique_ptr<JSONValue> value(JSON::Parse(text.c_str()));
    return value != nullptr ? value->Stringify() : "refused";
}

// Which words may stand in the column "Here", for an answer of ours to a text of this kind.
std::string Verdicts(const std::string& rfc, bool accepted) {
    if (rfc == "yes") {
        return accepted ? "as the RFC, lossy, last bits" : "**stricter**";
    }
    if (rfc == "no") {
        return accepted ? "**laxer**" : "as the RFC";
    }
    EXPECT_EQ(rfc, "free");
    return accepted ? "accepted, lossy, last bits, last wins" : "refused";
}

TEST(JsonDocTest, EveryRowOfTheTableHolds) {
    const auto rows = Rows();
    EXPECT_GT(rows.size(), 150U);
    for (const Row& row : rows) {
        const std::string answer = Answer(Bytes(row.text));
        const std::string expected = row.written == "refused" ? "refused" : Bytes(row.written);
        EXPECT_TRUE(answer == expected) << row.text << " is written " << answer.substr(0, 200);
        EXPECT_NE(Verdicts(row.rfc, answer != "refused").find(row.here), std::string::npos)
            << row.text << ": " << row.here;
    }
}

TEST(JsonDocTest, NoTextStandsInTheTableTwice) {
    std::vector<std::string> texts;
    for (const Row& row : Rows()) {
        EXPECT_EQ(std::count(texts.begin(), texts.end(), Bytes(row.text)), 0) << row.text;
        texts.push_back(Bytes(row.text));
    }
}

// What the column "Here" must say of a number that is read: "lossy" if another value is written
// back, "last bits" if only the value in between is another one.
std::string NumberVerdict(const std::string& text, const JSONValue& value,
                          const std::string& plain) {
    const double meant = strtod(text.c_str(), nullptr);
    const std::string written = value.Stringify();
    if (written == "null" || strtod(written.c_str(), nullptr) != meant) {
        return "lossy";
    }
    return value.AsNumber() != meant ? "last bits" : plain;
}

TEST(JsonDocTest, NumbersAreCalledLossyWhenTheyAre) {
    int numbers = 0;
    for (const Row& row : Rows()) {
        const std::string text = Bytes(row.text);
        const std::unique_ptr<JSONValue> value(JSON::Parse(text.c_str()));
        if (value != nullptr && value->IsNumber() && row.rfc != "no") {
            ++numbers;
            const std::string plain = row.rfc == "yes" ? "as the RFC" : "accepted";
            EXPECT_EQ(row.here, NumberVerdict(text, *value, plain)) << row.text;
        }
    }
    EXPECT_GT(numbers, 40);
}

// The example is compiled as it stands on the page.
TEST(JsonDocTest, TheExampleWorks) {
#include "JsonDocExample.inc"
    EXPECT_EQ(channel, 7);
    EXPECT_EQ(first, "News");
    EXPECT_EQ(text, R"({"ok":true,"titles":["Sport\/Live",2.5]})");
}

}  // namespace
