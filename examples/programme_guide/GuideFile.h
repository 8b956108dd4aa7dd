// Reads a programme guide from a file; examples/data/guide.tsv describes how one looks.
#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDEFILE_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDEFILE_H_

#include <istream>
#include <optional>
#include <string>

#include "Guide.h"

namespace guide {

// Longer lines are refused; so every programme fits into one command.
constexpr size_t kMaxLineSize = 4096;

// Channels that all fit into one command.
constexpr int kMaxChannels = 100;
constexpr size_t kMaxChannelNameSize = 31;

// Nothing, with one line of text in `error`, if the file cannot be read, a line is not a programme
// as it should be ("FILE:LINE: what is wrong with it"), or there is none.
std::optional<Guide> LoadGuide(const std::string& path, std::string* error);

// The same from a stream that is called `name` in errors.
std::optional<Guide> ReadGuide(std::istream& in, const std::string& name, std::string* error);

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_GUIDEFILE_H_
