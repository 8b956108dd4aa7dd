#ifndef KPL_CLI_PARAMTEXT_H_
#define KPL_CLI_PARAMTEXT_H_

#include <string>

#include "cli/Param.h"

namespace kpl::cli {

// The name of a parameter code on the command line and in what is printed: "int", "str", ...;
// "code 77" for one that has none.
std::string TypeName(int code);

// Type and value in one line: int 42, str "hello", double 0.5. Numbers without loss: as many digits
// as reading them back needs. A value that does not fit its type is shown in hexadecimal.
std::string ParamLine(const Param& param);

// {"type":"int","value":42}. NaN and the infinities are strings. A value that does not fit its
// type, and a text that is no UTF-8, stand as "hex", all its bytes, in place of "value"; so does
// every structure.
std::string ParamJson(const Param& param);

// ParamJson of all, as a JSON array.
std::string ParamsJson(const Params& params);

}  // namespace kpl::cli

#endif  // KPL_CLI_PARAMTEXT_H_
