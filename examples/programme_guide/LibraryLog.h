#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_LIBRARYLOG_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_LIBRARYLOG_H_

#include <string>

namespace guide {

// Shows the library's messages on stderr: all of them, or only those that it writes in any case.
// Without it these are dropped, too: what matters to the user of a program, it says itself. Before
// any other thread exists.
void ShowLibraryLog(bool all = true);

// Writes all of the library's messages to LogTools<N>.txt in `directory`, also those that are not
// shown. Returns what is wrong with the directory; empty if nothing is. Controlling thread.
std::string WriteLibraryLog(const std::string& directory);

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_LIBRARYLOG_H_
