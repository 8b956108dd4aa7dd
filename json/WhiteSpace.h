#ifndef KPL_JSON_WHITESPACE_H_
#define KPL_JSON_WHITESPACE_H_

namespace kpl::json {

// The first byte at or after `at` that is not white space.
inline const char* SkipSpace(const char* at) {
    while (*at == ' ' || *at == '\n' || *at == '\t' || *at == '\r') {
        ++at;
    }
    return at;
}

}  // namespace kpl::json

#endif  // KPL_JSON_WHITESPACE_H_
