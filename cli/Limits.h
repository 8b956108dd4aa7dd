#ifndef KPL_CLI_LIMITS_H_
#define KPL_CLI_LIMITS_H_

#include <stddef.h>

namespace kpl::cli {

// What the library sends and receives at most as one command, in bytes.
constexpr size_t kMaxCommandSize = 16384;

}  // namespace kpl::cli

#endif  // KPL_CLI_LIMITS_H_
