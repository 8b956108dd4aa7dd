#ifndef KPL_EXAMPLES_FETCH_LINES_FETCHFAULT_H_
#define KPL_EXAMPLES_FETCH_LINES_FETCHFAULT_H_

#include <string>

// Why kpl::parser::LineParser got no lines from `path`, a file or an address: what could not be
// done first. Tries once more.
std::string WhyNoLines(const char* path);

#endif  // KPL_EXAMPLES_FETCH_LINES_FETCHFAULT_H_
