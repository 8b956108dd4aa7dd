#include "tests/support/WireFormatsPage.h"

#include <ctype.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace kpl::test {

namespace {

bool IsPair(const std::string& line, size_t at) {
    return at + 1 < line.size() && isxdigit(static_cast<unsigned char>(line[at])) != 0 &&
           isxdigit(static_cast<unsigned char>(line[at + 1])) != 0;
}

// Two spaces end them.
std::string LeadingBytes(const std::string& line) {
    std::string bytes;
    for (size_t i = 0; IsPair(line, i); i += 3) {
        bytes.push_back(static_cast<char>(std::stoi(line.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

}  // namespace

std::string DocumentText(const std::string& file) {
    std::ifstream page(std::string(KPL_DOCS_DIR) + "/" + file);
    return std::string(std::istreambuf_iterator<char>(page), {});
}

std::string DocumentedBytes(const std::string& file, const std::string& name) {
    std::istringstream page(DocumentText(file));
    std::string line;
    while (std::getline(page, line) && line != "<!-- bytes: " + name + " -->") {
    }
    EXPECT_TRUE(std::getline(page, line) && line == "```text") << name;
    std::string bytes;
    while (std::getline(page, line) && line != "```") {
        EXPECT_NE(LeadingBytes(line), "") << line;
        bytes += LeadingBytes(line);
    }
    return bytes;
}

std::string WireFormatsPage() {
    return DocumentText("wire-formats.md");
}

std::string WireFormatsExample(const std::string& name) {
    return DocumentedBytes("wire-formats.md", name);
}

}  // namespace kpl::test
