#ifndef KPL_BENCH_JSON_DOCUMENTS_H_
#define KPL_BENCH_JSON_DOCUMENTS_H_

#include <string>

namespace kpl::bench {

// Generated JSON texts of about 1 MB, the same ones in every run.

// Channels with their programmes: objects of ten members with short and long strings, whole
// numbers, booleans, nulls and small arrays.
std::string ProgrammeGuide();

// Rows of numbers: whole ones, decimal fractions and some with an exponent.
std::string Numbers();

// Strings of 20 to 200 bytes, with an escape in about every tenth place.
std::string EscapedStrings();

}  // namespace kpl::bench

#endif  // KPL_BENCH_JSON_DOCUMENTS_H_
