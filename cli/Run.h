#ifndef KPL_CLI_RUN_H_
#define KPL_CLI_RUN_H_

#include <string>
#include <vector>

namespace kpl::cli {

// The whole tool: runs what the arguments (without the program's name) say and returns the exit
// code. Called once, while there is no other thread. `showLog` switches the library's log on.
int Run(const std::vector<std::string>& arguments, void (*showLog)());

}  // namespace kpl::cli

#endif  // KPL_CLI_RUN_H_
