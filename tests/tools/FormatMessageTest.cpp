// Every text and every result beside the C library's.
#include "tools/FormatMessage.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using kpl::tools::FormatMessage;

constexpr size_t kMostRoom = 64;

// With as much room as there is, and with less and less.
__attribute__((format(printf, 1, 2))) void ExpectSame(const char* format, ...) {
    for (size_t size = kMostRoom; size > 0; --size) {
        std::vector<char> expected(size, '~');
        std::vector<char> text(size, '~');  // exactly that long, for the address sanitizer
        va_list arguments;
        va_start(arguments, format);
        const int expectedResult = vsnprintf(expected.data(), size, format, arguments);
        va_end(arguments);
        va_start(arguments, format);
        const int result = FormatMessage(text.data(), size, format, arguments);
        va_end(arguments);
        ASSERT_EQ(expectedResult, result) << format << ", room for " << size;
        const size_t length = std::min(static_cast<size_t>(result), size - 1);
        ASSERT_EQ(std::string(expected.data(), length + 1), std::string(text.data(), length + 1))
            << format << ", room for " << size;
    }
}

TEST(FormatMessageTest, TextAlone) {
    ExpectSame("%s", "");
    ExpectSame("Class::Method(): done\n");
    ExpectSame("%%");
    ExpectSame("100%% of %%");
}

TEST(FormatMessageTest, Numbers) {
    for (const int number : {0, 1, -1, 9, 10, 4095, -4096, INT_MAX, INT_MIN}) {
        ExpectSame("%d", number);
        ExpectSame("before %i after", number);
        ExpectSame("%u %x", static_cast<unsigned int>(number), static_cast<unsigned int>(number));
    }
    for (const long number : {0L, -1L, 77L, LONG_MAX, LONG_MIN}) {
        ExpectSame("%ld|%li", number, number);
        ExpectSame("%lu|%lx", static_cast<unsigned long>(number),
                   static_cast<unsigned long>(number));
    }
}

TEST(FormatMessageTest, Strings) {
    const char* volatile none = nullptr;  // the compiler warns of a null that it sees
    ExpectSame("%s and %s", "one", "");
    ExpectSame("%s", std::string(kMostRoom - 1, 'a').c_str());
    ExpectSame("%s", std::string(200, 'a').c_str());
    ExpectSame("%s\n", "100%s %n");
    ExpectSame("<%s>", static_cast<const char*>(none));
}

TEST(FormatMessageTest, Characters) {
    ExpectSame("%c%c%c", 'a', '\n', 0xe4);
    ExpectSame("a%cb", 0);
}

TEST(FormatMessageTest, SeveralConversionsTakeTheirArgumentsInOrder) {
    ExpectSame("%s %d %lu %c %x %ld %s", "a", -2, 3UL, 'd', 0x5u, -6L, "g");
    ExpectSame("%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8);
}

// The C library's, also when others come before it.
TEST(FormatMessageTest, EveryOtherConversion) {
    ExpectSame("%d %5d|%-5d|%05d|%+d", 1, 2, 3, 4, 5);
    ExpectSame("%s %8s|%-8s|%.2s|%.*s", "a", "b", "c", "defg", 1, "hi");
    ExpectSame("%d %lld %llu %llx", 1, -2LL, 3ULL, 4ULL);
    ExpectSame("%d %hd %hhu %zu", 1, static_cast<short>(-2), static_cast<unsigned char>(3),
               sizeof(int));
    ExpectSame("%d %X %o %#x", 1, 0xabu, 8u, 16u);
    ExpectSame("%s %f %.3f %e %g", "a", 0.5, 1.0 / 3, 12345.678, 1e-9);
    ExpectSame("%s %p", "a", static_cast<const void*>("b"));
    ExpectSame("%s %ls %lc", "a", L"b", static_cast<wint_t>(L'c'));
    ExpectSame("%d %5c|", 1, 'c');
    ExpectSame("%d %lc", 1, static_cast<wint_t>(0x20ac));  // none of the locale "C": fails
}

}  // namespace
