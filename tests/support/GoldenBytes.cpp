#include "tests/support/GoldenBytes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace kpl::test {

std::string GoldenBytes(const std::string& name) {
    std::ifstream file(KPL_GOLDEN_DIR "/" + name + ".hex");
    std::string bytes;
    for (std::string line; std::getline(file, line);) {
        std::istringstream pairs(line.substr(0, line.find('#')));
        for (std::string pair; pairs >> pair;) {
            bytes.push_back(static_cast<char>(std::stoi(pair, nullptr, 16)));
        }
    }
    EXPECT_FALSE(bytes.empty()) << "no golden bytes: " << name;
    return bytes;
}

}  // namespace kpl::test
