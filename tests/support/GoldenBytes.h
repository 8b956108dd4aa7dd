#ifndef KPL_TESTS_SUPPORT_GOLDENBYTES_H_
#define KPL_TESTS_SUPPORT_GOLDENBYTES_H_

#include <string>

namespace kpl::test {

// The bytes of tests/golden/NAME.hex: hexadecimal pairs; what follows a '#' is for the reader.
// These files were written from the published tables, not by the library, so both directions can be
// compared with them on every port. Empty, with a failure, if there is no such file.
std::string GoldenBytes(const std::string& name);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_GOLDENBYTES_H_
