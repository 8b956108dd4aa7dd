#ifndef KPL_JSON_NUMBERSCANNER_H_
#define KPL_JSON_NUMBERSCANNER_H_

namespace kpl::json {

inline bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// value = value * 10 + digit in double arithmetic over the digits at the cursor.
double ScanInt(const char** cursor);

// The sum of digit * f over the digits at the cursor, f being 0.1, 0.1 * 0.1 and so on.
double ScanDecimal(const char** cursor);

// Reads a number that starts with a minus sign or a digit. False when it is not well formed.
bool ScanNumber(const char** cursor, double* value);

}  // namespace kpl::json

#endif  // KPL_JSON_NUMBERSCANNER_H_
