#include <stdio.h>

#include "cli/Command.h"
#include "cli/ExitCode.h"

namespace kpl::cli {

int Fail(int code, const std::string& what) {
    fprintf(stderr, "kpl-rpc: %s\n", what.c_str());
    return code;
}

int FailUsage(const std::string& what, const char* command) {
    const std::string help = command != nullptr ? std::string(" ") + command : "";
    return Fail(kUsage, what + "; see `kpl-rpc help" + help + "`");
}

int Interrupted(const Invocation& invocation) {
    return kSignalled + invocation.stop->Signal();
}

}  // namespace kpl::cli
