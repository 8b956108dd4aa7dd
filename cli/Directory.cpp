#include "cli/Directory.h"

#include <dirent.h>
#include <errno.h>

#include <algorithm>

namespace kpl::cli {

int ListDirectory(const std::string& path, std::vector<std::string>* names) {
    DIR* const directory = opendir(path.c_str());
    if (directory == nullptr) {
        return errno;
    }
    while (const dirent* const entry = readdir(directory)) {
        names->push_back(entry->d_name);
    }
    closedir(directory);
    std::sort(names->begin(), names->end());
    return 0;
}

}  // namespace kpl::cli
