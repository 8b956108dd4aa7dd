#ifndef KPL_CLI_DIRECTORY_H_
#define KPL_CLI_DIRECTORY_H_

#include <string>
#include <vector>

namespace kpl::cli {

// The names in a directory, sorted. Returns 0, or the errno of what failed.
int ListDirectory(const std::string& path, std::vector<std::string>* names);

}  // namespace kpl::cli

#endif  // KPL_CLI_DIRECTORY_H_
