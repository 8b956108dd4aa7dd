#ifndef KPL_CLI_ARGUMENT_H_
#define KPL_CLI_ARGUMENT_H_

#include <optional>
#include <string>

#include "cli/Param.h"

namespace kpl::cli {

// Reads one TYPE:VALUE of the command line:
//   bool:true            also false, 1, 0
//   int:-5 ulong:0xff    the integers: short ushort int uint long ulong longlong ulonglong uchar;
//                        long and ulong have 32 bits, because that is what travels
//   char:65 char:'A'     -128 to 127, or a character between quotes; uchar too
//   double:0.5 float:nan as strtod reads them
//   str:hello            everything behind the colon
//   file:PATH            the bytes of a file as an array of elements of one byte
//   file/N:PATH          the same, of elements of N bytes
// Nothing, and why in `fault`, if it is none of these or out of range.
std::optional<Param> ParseArgument(const std::string& text, std::string* fault);

}  // namespace kpl::cli

#endif  // KPL_CLI_ARGUMENT_H_
