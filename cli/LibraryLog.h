#ifndef KPL_CLI_LIBRARYLOG_H_
#define KPL_CLI_LIBRARYLOG_H_

namespace kpl::cli {

// Switches the library's log on; before that nothing of it is shown, forced messages included.
void ShowLibraryLog();

}  // namespace kpl::cli

#endif  // KPL_CLI_LIBRARYLOG_H_
