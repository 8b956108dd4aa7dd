// Numbers of JSON: read bit for bit with the arithmetic that is laid down, and written as "%g" does
// in the "C" locale.
#include <gtest/gtest.h>
#include <locale.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <limits>
#include <locale>
#include <memory>
#include <random>
#include <string>

#include "kpl/json/JSON.h"
#include "tests/support/Stopwatch.h"
#include "tests/support/TempDir.h"

namespace {

uint64_t Bits(double value) {
    uint64_t bits = 0;
    memcpy(&bits, &value, sizeof(bits));
    return bits;
}

double FromBits(uint64_t bits) {
    double value = 0;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

double Read(const std::string& text) {
    const std::unique_ptr<JSONValue> value(JSON::Parse(text.c_str()));
    EXPECT_TRUE(value != nullptr && value->IsNumber()) << text;
    return value != nullptr ? value->AsNumber() : 0;
}

std::string Written(double value) {
    return JSONValue(value).Stringify();
}

// The arithmetic as it is laid down, step by step, for a number that is well formed.
double StatedInt(const char** at) {
    double value = 0;
    for (; **at >= '0' && **at <= '9'; ++*at) {
        value = value * 10 + (**at - '0');
    }
    return value;
}

double StatedDecimal(const char** at) {
    double sum = 0;
    double f = 0.1;
    for (; **at >= '0' && **at <= '9'; ++*at) {
        sum = sum + (**at - '0') * f;
        f = f * 0.1;
    }
    return sum;
}

double StatedExponent(const char** at, double value) {
    ++*at;
    const bool divide = **at == '-';
    *at += divide || **at == '+' ? 1 : 0;
    const double exponent = StatedInt(at);
    for (double i = 0; i < exponent; ++i) {
        value = divide ? value / 10 : value * 10;
    }
    return value;
}

double Stated(const std::string& text) {
    const char* at = text.c_str();
    const bool negative = *at == '-';
    at += negative ? 1 : 0;
    double value = StatedInt(&at);
    if (*at == '.') {
        ++at;
        value = value + StatedDecimal(&at);
    }
    if (*at == 'e' || *at == 'E') {
        value = StatedExponent(&at, value);
    }
    return negative ? -value : value;
}

class Generator {
public:
    uint64_t Below(uint64_t limit) { return m_random() % limit; }
    uint64_t Word() { return m_random(); }

    std::string Digits(uint64_t most) {
        std::string text;
        for (uint64_t count = 1 + Below(most); count > 0; --count) {
            text += static_cast<char>('0' + Below(10));
        }
        return text;
    }

    // A well formed number with parts of any size.
    std::string Number() {
        std::string text = Below(3) == 0 ? "-" : "";
        text += Below(8) == 0 ? "0" : static_cast<char>('1' + Below(9)) + Digits(24);
        if (Below(2) == 0) {
            text += '.' + Digits(24);
        }
        if (Below(3) == 0) {
            const char* const signs[] = {"e", "E", "e+", "e-", "E-"};
            text += signs[Below(5)] + std::to_string(Below(Below(4) == 0 ? 400 : 30));
        }
        return text;
    }

private:
    std::mt19937_64 m_random{20240501};
};

TEST(JSONNumberTest, ReadsBitForBitWhatTheStatedStepsGive) {
    Generator generator;
    for (int i = 0; i < 200000; ++i) {
        const std::string text = generator.Number();
        ASSERT_EQ(Bits(Read(text)), Bits(Stated(text))) << text;
    }
}

TEST(JSONNumberTest, ReadsTheEdgesOfExactArithmeticAsStated) {
    for (const char* text :
         {"999999999999999", "1000000000000000", "9999999999999999", "9007199254740991",
          "9007199254740993", "90071992547409931", "18446744073709551615", "18446744073709551616",
          "123456789012345678901234567890", "0.1234567890123456789", "1.7976931348623157e308",
          "4.9406564584124654e-324", "2.2250738585072014e-308", "1e22", "1e23", "1e-22", "1e-23"}) {
        EXPECT_EQ(Bits(Read(text)), Bits(Stated(text))) << text;
    }
}

TEST(JSONNumberTest, TheFractionIsSummedByItselfAndThenAdded) {
    EXPECT_EQ(Bits(Read("0.3")), Bits(3 * 0.1));
    EXPECT_NE(Bits(Read("0.3")), Bits(0.3));
    // Added digit by digit to the whole part, 4.35 would end in other bits.
    EXPECT_EQ(Bits(Read("4.35")), Bits(4 + (3 * 0.1 + 5 * (0.1 * 0.1))));
}

TEST(JSONNumberTest, TheSignIsAppliedLast) {
    EXPECT_EQ(Bits(Read("-0")), Bits(-0.0));
    EXPECT_EQ(Bits(Read("-0.0e5")), Bits(-0.0));
    EXPECT_EQ(Read("-12.5e1"), -125);
}

TEST(JSONNumberTest, AnyExponentTakesBoundedTime) {
    const kpl::test::Stopwatch watch;
    const std::string huge(5000, '9');  // an exponent of infinitely many steps
    for (const std::string& exponent :
         {std::string("999999999"), std::string("9007199254740993"), huge}) {
        EXPECT_EQ(Read("1e" + exponent), std::numeric_limits<double>::infinity());
        EXPECT_EQ(Read("-1.5E+" + exponent), -std::numeric_limits<double>::infinity());
        EXPECT_EQ(Bits(Read("123.5e-" + exponent)), Bits(0.0));
        EXPECT_EQ(Bits(Read("-1e-" + exponent)), Bits(-0.0));
        EXPECT_EQ(Bits(Read("0e" + exponent)), Bits(0.0));
        EXPECT_EQ(Bits(Read("0e-" + exponent)), Bits(0.0));
    }
    EXPECT_EQ(Read(std::string(400, '9') + "e-" + huge), std::numeric_limits<double>::infinity());
    EXPECT_LT(watch.ElapsedMs(), 2000);
}

TEST(JSONNumberTest, AnExponentOfLeadingZerosIsSmall) {
    EXPECT_EQ(Read("1e" + std::string(1000, '0') + "2"), 100);
}

TEST(JSONNumberTest, EveryExponentGivesTheStatedValue) {
    const std::string mantissas[] = {"1",
                                     "7.3",
                                     "99999999999999999999",
                                     "0.000001",
                                     '1' + std::string(308, '0'),          // 632 steps from zero
                                     "0." + std::string(322, '0') + '9'};  // as far from infinity
    for (int exponent = 0; exponent <= 700; ++exponent) {
        for (const std::string& mantissa : mantissas) {
            for (const char* sign : {"e", "e-"}) {
                const std::string text = mantissa + (sign + std::to_string(exponent));
                ASSERT_EQ(Bits(Read(text)), Bits(Stated(text))) << text;
            }
        }
    }
}

TEST(JSONNumberTest, AFractionOfManyDigitsIsRead) {
    const std::string text = "0." + std::string(1000000, '7');
    EXPECT_EQ(Bits(Read(text)), Bits(Stated(text)));
}

TEST(JSONNumberTest, WhatIsNotWellFormedIsRefused) {
    for (const char* text :
         {"-",   "--1", "+1", ".5", "-.5", "1.",   "1.e5",  "1e",    "1e+",      "1e-",
          "1ex", "1.x", "-x", "00", "-01", "0x10", "1e1.5", "1_000", "Infinity", "NaN"}) {
        EXPECT_EQ(JSON::Parse(text), nullptr) << text;
    }
}

TEST(JSONNumberTest, ExamplesAreWritten) {
    EXPECT_EQ(Written(0.5), "0.5");
    EXPECT_EQ(Written(1234567), "1.23457e+06");
    EXPECT_EQ(Written(100), "100");
    EXPECT_EQ(Written(-0.0), "-0");
    EXPECT_EQ(Written(0), "0");
    EXPECT_EQ(Written(1e-5), "1e-05");
    EXPECT_EQ(Written(1e100), "1e+100");
}

// What "%g" gives in the "C" locale, which is in effect unless a test changes it.
std::string Reference(double value) {
    char text[32];
    snprintf(text, sizeof(text), "%g", value);
    return text;
}

void ExpectAsReference(double value) {
    ASSERT_EQ(Written(value), Reference(value)) << Bits(value);
    ASSERT_EQ(Written(-value), Reference(-value)) << Bits(value);
}

TEST(JSONNumberTest, RandomBitsAreWrittenWithSixDigits) {
    Generator generator;
    for (int i = 0; i < 300000; ++i) {
        const double value = FromBits(generator.Word());
        if (isfinite(value)) {
            ExpectAsReference(value);
        }
    }
}

TEST(JSONNumberTest, NumbersOfEveryUsualSizeAreWrittenWithSixDigits) {
    Generator generator;
    for (int i = 0; i < 600000; ++i) {
        const auto exponent = 1023 - 75 + generator.Below(145);  // 2^-75 to 2^70
        ExpectAsReference(FromBits((exponent << 52) | (generator.Word() >> 12)));
    }
}

TEST(JSONNumberTest, NeighboursOfPowersOfTenAndTwoAreWrittenWithSixDigits) {
    for (int exponent = -330; exponent <= 308; ++exponent) {
        for (const double power :
             {strtod(("1e" + std::to_string(exponent)).c_str(), nullptr),
              strtod(("9.999995e" + std::to_string(exponent)).c_str(), nullptr), ldexp(1, exponent),
              ldexp(1, 3 * exponent)}) {
            double below = power;
            double above = power;
            for (int step = 0; step < 4 && isfinite(above); ++step) {
                ExpectAsReference(below);
                ExpectAsReference(above);
                below = nextafter(below, 0);
                above = nextafter(above, HUGE_VAL);
            }
        }
    }
}

TEST(JSONNumberTest, TiesAreWrittenRoundedToEven) {
    EXPECT_EQ(Written(1234565), "1.23456e+06");
    EXPECT_EQ(Written(1234575), "1.23458e+06");
    EXPECT_EQ(Written(1234565.0000000002), "1.23457e+06");
    EXPECT_EQ(Written(9999995), "1e+07");
    EXPECT_EQ(Written(100000.5), "100000");
    EXPECT_EQ(Written(100001.5), "100002");
    EXPECT_EQ(Written(999999.5), "1e+06");
    Generator generator;
    for (int i = 0; i < 100000; ++i) {
        // Seven digits ending in 5, scaled by every power of two that keeps them a tie.
        const auto digits = static_cast<double>((100000 + generator.Below(900000)) * 10 + 5);
        ExpectAsReference(digits);
        ExpectAsReference(digits * 1e6);
        ExpectAsReference(digits * 1e12);
        ExpectAsReference(static_cast<double>(100000 + generator.Below(900000)) + 0.5);
        ExpectAsReference(static_cast<double>(10000 + generator.Below(90000)) + 0.25);
        ExpectAsReference(static_cast<double>(generator.Below(1000)) + 0.0009765625);
    }
}

TEST(JSONNumberTest, NearTiesAreWrittenRoundedTheRightWay) {
    Generator generator;
    for (int i = 0; i < 300000; ++i) {
        // The nearest double lies a little above or below the tie that the text is.
        const std::string text = std::to_string((100000 + generator.Below(900000)) * 10 + 5) +
                                 "e-" + std::to_string(generator.Below(28));
        ExpectAsReference(strtod(text.c_str(), nullptr));
    }
}

TEST(JSONNumberTest, WholeNumbersAreWrittenWithSixDigits) {
    for (int i = 0; i < 1100000; i += 1 + i / 5000) {
        ExpectAsReference(i);
    }
    Generator generator;
    for (int i = 0; i < 100000; ++i) {
        ExpectAsReference(static_cast<double>(generator.Word() >> generator.Below(60)));
    }
}

// Groups digits by two and has a comma for a point.
class StrangeNumbers : public std::numpunct<char> {
protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\2"; }
};

TEST(JSONNumberTest, TheGlobalLocaleOfStreamsIsIgnored) {
    const std::locale old = std::locale::global(std::locale(std::locale(), new StrangeNumbers));
    const std::string written = Written(12345.5) + ' ' + Written(1.5e300);
    const double read = Read("1.5");
    std::locale::global(old);
    EXPECT_EQ(written, "12345.5 1.5e+300");
    EXPECT_EQ(read, 1.5);
}

TEST(JSONNumberTest, TheLocaleOfTheProcessIsIgnored) {
    const kpl::test::TempDir dir;
    const std::string compile =
        "localedef -c -i de_DE -f ISO-8859-1 " + dir.Path() + "/comma >/dev/null 2>&1";
    const int compiled = system(compile.c_str());
    setenv("LOCPATH", dir.c_str(), 1);
    if (setlocale(LC_ALL, "comma") == nullptr) {
        GTEST_SKIP() << "no locale with a comma can be made here: localedef gave " << compiled;
    }
    char comma[8];
    snprintf(comma, sizeof(comma), "%g", 1.5);
    EXPECT_STREQ(comma, "1,5");
    EXPECT_EQ(Written(1.5), "1.5");
    EXPECT_EQ(Written(1.5e300), "1.5e+300");
    EXPECT_EQ(Written(1.5e-300), "1.5e-300");
    EXPECT_EQ(Read("1.5"), 1.5);
    setlocale(LC_ALL, "C");
}

}  // namespace
