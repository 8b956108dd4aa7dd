#include "json/NumberScanner.h"

#include <stdint.h>

namespace kpl::json {

namespace {

// So many digits are exact in a double, at every step.
constexpr int kExactDigits = 15;

int DigitAt(const char* at) {
    return *at - '0';
}

// Within so many steps every number has become infinity, or zero, and does not change any more.
constexpr int kMostSteps = 650;

// Multiplies or divides by 10 once for each unit of the exponent, with the rounding of each step.
double Scale(double value, double exponent, bool divide) {
    const int steps = exponent < kMostSteps ? static_cast<int>(exponent) : kMostSteps;
    for (int i = 0; i < steps; ++i) {
        value = divide ? value / 10 : value * 10;
    }
    return value;
}

bool ScanFraction(const char** cursor, double* value) {
    ++*cursor;
    if (!IsDigit(**cursor)) {
        return false;
    }
    *value += ScanDecimal(cursor);
    return true;
}

bool ScanExponent(const char** cursor, double* value) {
    ++*cursor;
    const bool divide = **cursor == '-';
    if (divide || **cursor == '+') {
        ++*cursor;
    }
    if (!IsDigit(**cursor)) {
        return false;
    }
    *value = Scale(*value, ScanInt(cursor), divide);
    return true;
}

// The digits before the point. A zero stands alone: a digit behind it is not part of the number.
bool ScanWhole(const char** cursor, double* value) {
    if (!IsDigit(**cursor)) {
        return false;
    }
    if (**cursor == '0') {
        ++*cursor;
        *value = 0;
    } else {
        *value = ScanInt(cursor);
    }
    return true;
}

}  // namespace

double ScanInt(const char** cursor) {
    const char* at = *cursor;
    const char* const start = at;
    int64_t exact = 0;
    while (IsDigit(*at) && at - start < kExactDigits) {
        exact = exact * 10 + DigitAt(at++);
    }
    auto value = static_cast<double>(exact);
    while (IsDigit(*at)) {
        value = value * 10 + DigitAt(at++);
    }
    *cursor = at;
    return value;
}

double ScanDecimal(const char** cursor) {
    const char* at = *cursor;
    double sum = 0;
    for (double f = 0.1; IsDigit(*at); f *= 0.1) {
        sum += DigitAt(at++) * f;
    }
    *cursor = at;
    return sum;
}

bool ScanNumber(const char** cursor, double* value) {
    const bool negative = **cursor == '-';
    if (negative) {
        ++*cursor;
    }
    if (!ScanWhole(cursor, value) || (**cursor == '.' && !ScanFraction(cursor, value))) {
        return false;
    }
    if ((**cursor == 'e' || **cursor == 'E') && !ScanExponent(cursor, value)) {
        return false;
    }
    if (negative) {
        *value = -*value;
    }
    return true;
}

}  // namespace kpl::json
