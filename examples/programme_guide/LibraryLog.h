#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_LIBRARYLOG_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_LIBRARYLOG_H_

namespace guide {

// Shows the library's messages on stderr. Without it they are dropped, also those that the library
// would write in any case: what matters to the user of this program, it says itself. Before any
// other thread exists.
void ShowLibraryLog();

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_LIBRARYLOG_H_
