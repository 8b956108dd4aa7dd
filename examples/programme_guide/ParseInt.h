#ifndef KPL_EXAMPLES_PROGRAMME_GUIDE_PARSEINT_H_
#define KPL_EXAMPLES_PROGRAMME_GUIDE_PARSEINT_H_

#include <charconv>
#include <optional>
#include <string_view>

namespace guide {

// The decimal number that `text` is, from its first to its last character; nothing if it is none or
// lies outside of `least` to `most`.
inline std::optional<int> ParseInt(std::string_view text, int least, int most) {
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < least || value > most) {
        return std::nullopt;
    }
    return value;
}

}  // namespace guide

#endif  // KPL_EXAMPLES_PROGRAMME_GUIDE_PARSEINT_H_
