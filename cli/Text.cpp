#include "cli/Text.h"

#include <limits.h>

#include <charconv>
#include <string_view>

namespace kpl::cli {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

unsigned char ByteAt(const std::string& bytes, size_t at) {
    return static_cast<unsigned char>(bytes[at]);
}

void AppendHex(std::string* text, unsigned char byte) {
    *text += kDigits[byte >> 4];
    *text += kDigits[byte & 15];
}

// How many bytes follow a first byte, and the smallest number that may be written with that many;
// -1 for a byte that begins no character.
int Followers(unsigned char first, unsigned* smallest) {
    if (first < 0x80) {
        *smallest = 0;
        return 0;
    }
    if (first >= 0xC2 && first < 0xE0) {
        *smallest = 0x80;
        return 1;
    }
    if (first >= 0xE0 && first < 0xF0) {
        *smallest = 0x800;
        return 2;
    }
    *smallest = 0x10000;
    return first >= 0xF0 && first < 0xF5 ? 3 : -1;
}

// The length of the UTF-8 character at `at`, 0 if there is none; `*number` is what it stands for.
size_t CharacterAt(const std::string& bytes, size_t at, unsigned* number) {
    unsigned smallest = 0;
    const int followers = Followers(ByteAt(bytes, at), &smallest);
    if (followers < 0 || at + static_cast<size_t>(followers) >= bytes.size()) {
        return 0;
    }
    *number = ByteAt(bytes, at) & (followers == 0 ? 0x7Fu : 0x3Fu >> followers);
    for (int i = 1; i <= followers; ++i) {
        const unsigned char next = ByteAt(bytes, at + static_cast<size_t>(i));
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        *number = *number << 6 | (next & 0x3Fu);
    }
    const bool surrogate = *number >= 0xD800 && *number < 0xE000;
    const bool valid = *number >= smallest && *number <= 0x10FFFF && !surrogate;
    return valid ? static_cast<size_t>(followers) + 1 : 0;
}

// Also the second block of control characters, some of which a terminal obeys.
bool IsControl(unsigned number) {
    return number < 0x20 || (number >= 0x7F && number < 0xA0);
}

std::string Escaped(const std::string& bytes, bool quotes) {
    std::string text;
    for (size_t at = 0; at < bytes.size();) {
        unsigned number = 0;
        const size_t length = CharacterAt(bytes, at, &number);
        if (length > 0 && !IsControl(number)) {
            if (number == '\\' || (quotes && number == '"')) {
                text += '\\';
            }
            text.append(bytes, at, length);
            at += length;
            continue;
        }
        const unsigned char byte = ByteAt(bytes, at++);
        if (byte == '\n') {
            text += "\\n";
        } else if (byte == '\t') {
            text += "\\t";
        } else if (byte == '\r') {
            text += "\\r";
        } else {
            text += "\\x";
            AppendHex(&text, byte);
        }
    }
    return text;
}

}  // namespace

std::string Hex(const std::string& bytes) {
    std::string text;
    for (size_t at = 0; at < bytes.size(); ++at) {
        AppendHex(&text, ByteAt(bytes, at));
    }
    return text;
}

std::string Printable(const std::string& bytes) {
    return Escaped(bytes, false);
}

std::string Quoted(const std::string& bytes) {
    return '"' + Escaped(bytes, true) + '"';
}

bool IsUtf8(const std::string& bytes) {
    for (size_t at = 0; at < bytes.size();) {
        unsigned number = 0;
        const size_t length = CharacterAt(bytes, at, &number);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string Json(const std::string& bytes) {
    if (!IsUtf8(bytes)) {
        return "{\"hex\":\"" + Hex(bytes) + "\"}";
    }
    std::string text = "\"";
    for (size_t at = 0; at < bytes.size(); ++at) {
        const unsigned char byte = ByteAt(bytes, at);
        if (byte < 0x20 || byte == 0x7F) {
            text += "\\u00";
            AppendHex(&text, byte);
        } else {
            if (byte == '"' || byte == '\\') {
                text += '\\';
            }
            text += bytes[at];
        }
    }
    return text + '"';
}

std::optional<unsigned long long> ParseUnsigned(const std::string& text, unsigned long long max) {
    std::string_view digits = text;
    const bool isHex = digits.substr(0, 2) == "0x" || digits.substr(0, 2) == "0X";
    digits.remove_prefix(isHex ? 2 : 0);
    unsigned long long value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, isHex ? 16 : 10);
    if (error != std::errc() || stop != end || value > max) {
        return std::nullopt;
    }
    return value;
}

std::optional<long long> ParseInteger(const std::string& text, long long min, long long max) {
    const bool negative = !text.empty() && text[0] == '-';
    const auto limit = static_cast<unsigned long long>(LLONG_MAX) + (negative ? 1 : 0);
    const auto magnitude = ParseUnsigned(negative ? text.substr(1) : text, limit);
    if (!magnitude) {
        return std::nullopt;
    }
    const auto value = static_cast<long long>(negative ? 0 - *magnitude : *magnitude);
    if (value < min || value > max) {
        return std::nullopt;
    }
    return value;
}

}  // namespace kpl::cli
