#ifndef KPL_BENCH_JSON_DOCUMENTS_H_
#define KPL_BENCH_JSON_DOCUMENTS_H_

#include <stddef.h>

#include <string>

namespace kpl::bench {

// Generated JSON texts, the same ones in every run; of about 1 MB unless a size is given.

// Channels with their programmes: objects of ten members with short and long strings, whole
// numbers, booleans, nulls and small arrays.
std::string ProgrammeGuide(size_t size = 1000000);

// Rows of numbers: whole ones, decimal fractions and some with an exponent.
std::string Numbers();

// Strings of 20 to 200 bytes, with an escape in about every tenth place.
std::string EscapedStrings();

}  // namespace kpl::bench

#endif  // KPL_BENCH_JSON_DOCUMENTS_H_
