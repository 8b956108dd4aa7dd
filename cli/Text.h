// Bytes from elsewhere as text that a terminal, or a JSON reader, takes safely.
#ifndef KPL_CLI_TEXT_H_
#define KPL_CLI_TEXT_H_

#include <optional>
#include <string>

namespace kpl::cli {

// Two digits a byte, lower case.
std::string Hex(const std::string& bytes);

// The text as it is, but for control characters and bytes that are no UTF-8: those become \n, \t,
// \xNN and so on, and a backslash becomes two.
std::string Printable(const std::string& bytes);

// The same in double quotes, with quotes inside escaped.
std::string Quoted(const std::string& bytes);

bool IsUtf8(const std::string& bytes);

// As a JSON string; bytes that are no UTF-8 become {"hex":"..."}.
std::string Json(const std::string& bytes);

// Decimal, or hexadecimal after 0x, with a sign. Nothing for anything else or beyond the limits.
std::optional<long long> ParseInteger(const std::string& text, long long min, long long max);
std::optional<unsigned long long> ParseUnsigned(const std::string& text, unsigned long long max);

}  // namespace kpl::cli

#endif  // KPL_CLI_TEXT_H_
