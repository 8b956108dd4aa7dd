#include "tests/support/TempDir.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace kpl::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kpl-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    m_path = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::vector<std::string> TempDir::Entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace kpl::test
