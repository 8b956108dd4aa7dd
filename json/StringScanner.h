#ifndef KPL_JSON_STRINGSCANNER_H_
#define KPL_JSON_STRINGSCANNER_H_

#include <string>

namespace kpl::json {

// The first byte at or after `at` that does not simply stand for itself inside a string: a
// quotation mark, a backslash, or a byte below 32 other than a tab, so at the latest the text's
// NUL.
const char* EndOfPlainText(const char* at);

// Appends the rest of a string, up to its closing quotation mark, and moves the cursor behind that.
// False when the string is not well formed; the cursor then stands where reading ended.
bool ScanString(const char** cursor, std::string* out);

}  // namespace kpl::json

#endif  // KPL_JSON_STRINGSCANNER_H_
