#ifndef KPL_CLI_HELP_H_
#define KPL_CLI_HELP_H_

#include <string>
#include <vector>

#include "cli/Command.h"

namespace kpl::cli {

struct ExitCodeInfo {
    const char* code;  // as text: "0", "128+n"
    const char* meaning;
};

// The table of exit codes, the same in help and man page.
const std::vector<ExitCodeInfo>& ExitCodes();

// What `kpl-rpc help` prints, and `kpl-rpc help COMMAND`.
std::string HelpText();
std::string HelpText(const CommandInfo& command);

}  // namespace kpl::cli

#endif  // KPL_CLI_HELP_H_
