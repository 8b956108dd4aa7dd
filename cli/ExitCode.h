#ifndef KPL_CLI_EXITCODE_H_
#define KPL_CLI_EXITCODE_H_

namespace kpl::cli {

// How the tool ends; ExitCodes() in Help.h has the words for each.
enum ExitCode : int {
    kOk = 0,
    kDiffers = 1,      // an empty answer, or another one than recorded
    kUsage = 2,        // the command line
    kNoServer = 3,     // nobody serves that name
    kNoAnswer = 4,     // not in time
    kGone = 5,         // the server went while it was used
    kFile = 6,         // a file or a directory cannot be used
    kRefused = 7,      // what was asked for would do harm, or was not confirmed
    kSignalled = 128,  // plus the number of the signal
};

}  // namespace kpl::cli

#endif  // KPL_CLI_EXITCODE_H_
