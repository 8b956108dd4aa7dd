#ifndef KPL_JSON_NUMBERTEXT_H_
#define KPL_JSON_NUMBERTEXT_H_

#include <stddef.h>

namespace kpl::json {

// The longest number is "-1.79769e+308"; FormatNumber may write garbage behind the end it returns.
constexpr size_t kNumberRoom = 32;

// Writes a number with six significant digits as "%g" does in the "C" locale, whatever the
// process's locale is; what is not finite as "null". Returns the end of the text, which has no NUL.
char* FormatNumber(double number, char* to);

}  // namespace kpl::json

#endif  // KPL_JSON_NUMBERTEXT_H_
