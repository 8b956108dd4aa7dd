#ifndef KPL_CLI_READFILE_H_
#define KPL_CLI_READFILE_H_

#include <stddef.h>

#include <optional>
#include <string>

namespace kpl::cli {

// Opens a regular file for reading; anything else could keep us waiting. Returns the descriptor, or
// -1 and why in `fault`.
int OpenRegularFile(const std::string& path, std::string* fault);

// The whole of a regular file. Nothing, and why in `fault`, if it cannot be read or has more than
// `limit` bytes.
std::optional<std::string> ReadSmallFile(const std::string& path, size_t limit, std::string* fault);

}  // namespace kpl::cli

#endif  // KPL_CLI_READFILE_H_
