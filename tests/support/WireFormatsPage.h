#ifndef KPL_TESTS_SUPPORT_WIREFORMATSPAGE_H_
#define KPL_TESTS_SUPPORT_WIREFORMATSPAGE_H_

#include <string>

namespace kpl::test {

// The text of a page in docs/.
std::string DocumentText(const std::string& file);

// The bytes of its worked example of that name: the hexadecimal pairs that each line of the block
// under "<!-- bytes: NAME -->" starts with.
std::string DocumentedBytes(const std::string& file, const std::string& name);

// The same for docs/wire-formats.md.
std::string WireFormatsPage();
std::string WireFormatsExample(const std::string& name);

}  // namespace kpl::test

#endif  // KPL_TESTS_SUPPORT_WIREFORMATSPAGE_H_
