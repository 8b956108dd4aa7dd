#ifndef KPL_TESTS_SUPPORT_WIREFORMATSPAGE_H_
#define KPL_TESTS_SUPPORT_WIREFORMATSPAGE_H_

#include <string>

namespace kpl::test {

// The text of docs/wire-formats.md.
std::string WireFormatsPage();

// The bytes of its worked example of that name: the hexadecimal pairs that each line of the block
// under "<!-- bytes: NAME -->" starts with.
std::string WireFormatsExample(const std::string& name);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_WIREFORMATSPAGE_H_
