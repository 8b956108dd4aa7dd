// What the programs need to know about text in UTF-8. Bytes that are not UTF-8 count as one
// character each; they are copied as they are.
#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_UTF8_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_UTF8_H_

#include <string>

namespace guide {

bool IsUtf8(const std::string& text);

// How many columns of a terminal the text takes: none for combining marks, two for the wide
// characters of East Asia and for pictures, one for the rest.
int DisplayWidth(const std::string& text);

// The text, with its end replaced by "…" if it is wider than `width` columns.
std::string CutToWidth(const std::string& text, int width);

// The text with capital letters made small, so that a search need not care: Latin, Greek and
// Cyrillic ones.
std::string FoldCase(const std::string& text);

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_UTF8_H_
