#include "tools/FormatMessage.h"

#include <stdio.h>
#include <string.h>

#include <charconv>
#include <system_error>

namespace kpl::tools {

namespace {

// The place that a text goes to, with room for the zero that ends it.
class Writer {
public:
    Writer(char* text, size_t size) : m_begin(text), m_at(text), m_last(text + size - 1) {}

    bool Put(char c) {
        if (m_at == m_last) {
            return false;
        }
        *m_at++ = c;
        return true;
    }

    bool Put(const char* text) {
        if (text == nullptr) {
            return false;
        }
        const size_t length = strlen(text);
        if (length > static_cast<size_t>(m_last - m_at)) {
            return false;
        }
        memcpy(m_at, text, length);
        m_at += length;
        return true;
    }

    template <typename Number>
    bool PutNumber(Number number, int base) {
        const std::to_chars_result result = std::to_chars(m_at, m_last, number, base);
        m_at = result.ptr;
        return result.ec == std::errc();
    }

    int End() {
        *m_at = '\0';
        return static_cast<int>(m_at - m_begin);
    }

private:
    char* const m_begin;
    char* m_at;
    char* const m_last;
};

// -1 where there is a conversion that it does not know, a null string, or not enough room.
KPL_PRINTF(3, 0)
int FormatSimple(char* text, size_t size, const char* format, va_list arguments) {
    Writer writer(text, size);
    bool done = true;
    for (; done && *format != '\0'; ++format) {
        if (*format != '%') {
            done = writer.Put(*format);
            continue;
        }
        const bool isLong = *++format == 'l';
        if (isLong) {
            ++format;
        }
        switch (*format) {
            case 'd':
            case 'i':
                done =
                    writer.PutNumber(isLong ? va_arg(arguments, long) : va_arg(arguments, int), 10);
                break;
            case 'u':
            case 'x':
                done = writer.PutNumber(
                    isLong ? va_arg(arguments, unsigned long) : va_arg(arguments, unsigned int),
                    *format == 'u' ? 10 : 16);
                break;
            case 's':
                done = !isLong && writer.Put(va_arg(arguments, const char*));
                break;
            case 'c':
                done = !isLong && writer.Put(static_cast<char>(va_arg(arguments, int)));
                break;
            case '%':
                done = !isLong && writer.Put('%');
                break;
            default:
                return -1;
        }
    }
    return done ? writer.End() : -1;
}

}  // namespace

int FormatMessage(char* text, size_t size, const char* format, va_list arguments) {
    va_list own;
    va_copy(own, arguments);
    const int length = FormatSimple(text, size, format, own);
    va_end(own);
    if (length >= 0) {
        return length;
    }
    text[0] = '\0';
    return vsnprintf(text, size, format, arguments);
}

}  // namespace kpl::tools
