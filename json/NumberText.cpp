#include "json/NumberText.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace kpl::json {

namespace {

// 100000 to 999999, and the power of ten of the first of these six digits.
struct SixDigits {
    uint32_t digits;
    int exponent;
};

struct Product {
    uint64_t high;
    uint64_t low;
};

constexpr int kDigits = 6;
constexpr uint64_t kSevenDigits = 1000000;

// 5 to the power of 27 is the last one that fits into 64 bits.
constexpr int kLargestPower = 27;
constexpr double kSmallestScaled = 1e-21;
constexpr double kLargestScaled = 1e6;
constexpr double kLargestWhole = 9e18;

constexpr int kMantissaBits = 52;
constexpr int kExponentBias = 1023;

// 10^n = m * 2^e, m being 5^n moved up so that its highest bit is set.
struct PowerOfTen {
    uint64_t mantissa;
    int exponent;
};

constexpr std::array<PowerOfTen, kLargestPower + 1> ScalingPowers() {
    std::array<PowerOfTen, kLargestPower + 1> powers{};
    uint64_t five = 1;
    for (int n = 0; n <= kLargestPower; ++n, five *= 5) {
        PowerOfTen power{five, n};
        while (power.mantissa >> 63 == 0) {
            power.mantissa <<= 1;
            --power.exponent;
        }
        powers[static_cast<size_t>(n)] = power;
    }
    return powers;
}

constexpr std::array<uint64_t, 20> WholePowers() {
    std::array<uint64_t, 20> powers{1};
    for (size_t n = 1; n < powers.size(); ++n) {
        powers[n] = powers[n - 1] * 10;
    }
    return powers;
}

// From the lowest power of ten that comes into question, 1e-22, on: the one above it.
constexpr int kLowestGuess = 22;
constexpr double kTenAbove[] = {
    1e-21, 1e-20, 1e-19, 1e-18, 1e-17, 1e-16, 1e-15, 1e-14, 1e-13, 1e-12, 1e-11, 1e-10, 1e-9, 1e-8,
    1e-7,  1e-6,  1e-5,  1e-4,  1e-3,  1e-2,  1e-1,  1e0,   1e1,   1e2,   1e3,   1e4,   1e5,  1e6};

constexpr auto kScalingPowers = ScalingPowers();
constexpr auto kWholePowers = WholePowers();

void PutPair(uint32_t pair, char* to) {
    to[0] = static_cast<char>('0' + pair / 10);
    to[1] = static_cast<char>('0' + pair % 10);
}

// All 128 bits of a product, from parts that every platform can multiply.
Product Multiply(uint64_t a, uint64_t b) {
    const uint64_t low = (a & UINT32_MAX) * (b & UINT32_MAX);
    const uint64_t middle1 = (a >> 32) * (b & UINT32_MAX) + (low >> 32);
    const uint64_t middle2 = (a & UINT32_MAX) * (b >> 32) + (middle1 & UINT32_MAX);
    return {(a >> 32) * (b >> 32) + (middle1 >> 32) + (middle2 >> 32),
            (middle2 << 32) | (low & UINT32_MAX)};
}

// Rounds to nearest, a tie to the even one: `rest` of `unit` was cut off behind the digits, and
// `more` says that something lies behind the rest. Free of branches, which no processor could
// foresee here.
SixDigits Round(uint64_t digits, uint64_t rest, uint64_t unit, bool more, int exponent) {
    const uint64_t half = unit / 2;
    const uint64_t up = rest > half ? 1 : 0;
    const uint64_t tieUp = rest == half ? (digits & 1) | (more ? 1 : 0) : 0;
    digits += up | tieUp;
    if (digits == kSevenDigits) {
        return {kSevenDigits / 10, exponent + 1};
    }
    return {static_cast<uint32_t>(digits), exponent};
}

// 1e6 and more: all six digits are in the whole part; what is behind the point only breaks ties.
SixDigits DigitsOfLarge(double number) {
    const auto whole = static_cast<uint64_t>(number);
    const bool more = static_cast<double>(whole) != number;
    size_t length = kDigits + 1;
    while (whole >= kWholePowers[length]) {
        ++length;
    }
    const uint64_t unit = kWholePowers[length - kDigits];
    return Round(whole / unit, whole % unit, unit, more, static_cast<int>(length) - 1);
}

// The power of ten of the number's first digit. A number just below a power of ten may count as
// that power: its digits are 99999.9 then, and are rounded to the same.
int DecimalExponent(double number, int binaryExponent) {
    const int guess = (binaryExponent * 1233) >> 12;  // 1233 / 4096 is the logarithm of 2
    return guess + (number >= kTenAbove[static_cast<size_t>(guess + kLowestGuess)] ? 1 : 0);
}

// Below 1e6: number * 10^n without any loss, cut into whole part and rest.
SixDigits DigitsOfSmall(double number) {
    uint64_t bits = 0;
    memcpy(&bits, &number, sizeof(bits));
    const int binaryExponent = static_cast<int>(bits >> kMantissaBits) - kExponentBias;
    const uint64_t mantissa = (bits << (63 - kMantissaBits)) | (uint64_t{1} << 63);
    const int exponent = DecimalExponent(number, binaryExponent);
    const PowerOfTen& power = kScalingPowers[static_cast<size_t>(kDigits - 1 - exponent)];
    const Product product = Multiply(mantissa, power.mantissa);
    // Of the product's 128 bits the whole part is a few of the highest; so many bits are behind it.
    const int restBits = 63 - binaryExponent - power.exponent;
    const uint64_t unit = uint64_t{1} << (restBits - 64);
    const uint64_t rest = product.high & (unit - 1);
    return Round(product.high >> (restBits - 64), rest, unit, product.low != 0, exponent);
}

// Copies all six digits: a size known to the compiler costs less than the few bytes too many, which
// are overwritten or lie behind the end.
void PutDigits(const char* digits, char* to) {
    memcpy(to, digits, kDigits);
}

// "0.00123", "1.5" or "150": digits and a point.
char* FormatFixed(const char* digits, size_t count, int exponent, char* to) {
    if (exponent < 0) {
        const int zeros = -1 - exponent;
        std::copy_n("0.000", 5, to);
        PutDigits(digits, to + 2 + zeros);
        return to + 2 + zeros + count;
    }
    const auto whole = static_cast<size_t>(exponent) + 1;
    PutDigits(digits, to);
    to[whole] = '.';
    PutDigits(digits + whole, to + whole + 1);
    return to + (count > whole ? count + 1 : whole);
}

// "1.5e+07": one digit before the point, an exponent of two digits at least.
char* FormatScientific(const char* digits, size_t count, int exponent, char* to) {
    to[0] = digits[0];
    to[1] = '.';
    PutDigits(digits + 1, to + 2);
    to += count > 1 ? count + 1 : 1;
    *to++ = 'e';
    *to++ = exponent < 0 ? '-' : '+';
    PutPair(static_cast<uint32_t>(std::abs(exponent)), to);  // no more than 21 comes here
    return to + 2;
}

char* FormatDigits(SixDigits number, char* to) {
    char digits[2 * kDigits] = {};  // copied from any of the six on
    PutPair(number.digits / 10000, digits);
    PutPair(number.digits / 100 % 100, digits + 2);
    PutPair(number.digits % 100, digits + 4);
    size_t count = 1;  // without the zeros at the end
    for (size_t i = 1; i < kDigits; ++i) {
        count = digits[i] != '0' ? i + 1 : count;
    }
    const bool fixed = number.exponent >= -4 && number.exponent < kDigits;
    return fixed ? FormatFixed(digits, count, number.exponent, to)
                 : FormatScientific(digits, count, number.exponent, to);
}

}  // namespace

char* FormatNumber(double number, char* to) {
    if (!std::isfinite(number)) {
        return std::copy_n("null", 4, to);
    }
    *to = '-';
    to += std::signbit(number) ? 1 : 0;
    number = std::fabs(number);
    if (number == 0) {
        *to++ = '0';
        return to;
    }
    if (number >= kSmallestScaled && number < kLargestScaled) {
        return FormatDigits(DigitsOfSmall(number), to);
    }
    if (number >= kLargestScaled && number < kLargestWhole) {
        return FormatDigits(DigitsOfLarge(number), to);
    }
    // Far from what people write, where exact arithmetic needs hundreds of digits.
    return std::to_chars(to, to + kNumberRoom - 1, number, std::chars_format::general, kDigits).ptr;
}

}  // namespace kpl::json
