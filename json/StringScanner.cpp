#include "json/StringScanner.h"

#include <array>

namespace kpl::json {

namespace {

constexpr std::array<bool, 256> PlainBytes() {
    std::array<bool, 256> plain{};
    for (size_t byte = 0; byte < plain.size(); ++byte) {
        plain[byte] = byte >= 32 && byte != '"' && byte != '\\';
    }
    plain['\t'] = true;
    return plain;
}

constexpr std::array<bool, 256> kPlain = PlainBytes();

bool IsPlain(char c) {
    return kPlain[static_cast<unsigned char>(c)];
}

// The value of a hexadecimal digit, or -1.
int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// The four digits of a "\u" escape at the cursor. Only the low byte of the code point is kept: text
// is bytes here.
bool ScanCodePoint(const char** cursor, std::string* out) {
    int value = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = HexValue(**cursor);
        if (digit < 0) {
            return false;
        }
        value = ((value << 4) & 255) | digit;
        ++*cursor;
    }
    out->push_back(static_cast<char>(value));
    return true;
}

// What a backslash and `c` stand for, or NUL when there is no such escape.
constexpr char Unescaped(char c) {
    switch (c) {
        case 'n':
            return '\n';
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case '/':
        case '\\':
        case '"':
            return c;
        default:
            return '\0';
    }
}

// An escape, the cursor being behind its backslash.
bool ScanEscape(const char** cursor, std::string* out) {
    const char c = **cursor;
    if (c == 'u') {
        ++*cursor;
        return ScanCodePoint(cursor, out);
    }
    const char unescaped = Unescaped(c);
    if (unescaped == '\0') {
        return false;
    }
    ++*cursor;
    out->push_back(unescaped);
    return true;
}

}  // namespace

const char* EndOfPlainText(const char* at) {
    while (IsPlain(*at)) {
        ++at;
    }
    return at;
}

bool ScanString(const char** cursor, std::string* out) {
    for (;;) {
        const char* const stop = EndOfPlainText(*cursor);
        out->append(*cursor, stop);
        *cursor = stop;
        if (*stop != '"' && *stop != '\\') {
            return false;
        }
        ++*cursor;
        if (*stop == '"') {
            return true;
        }
        if (!ScanEscape(cursor, out)) {
            return false;
        }
    }
}

}  // namespace kpl::json
