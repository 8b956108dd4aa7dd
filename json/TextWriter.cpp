#include "json/TextWriter.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <array>

#include "json/NumberText.h"

namespace kpl::json {

namespace {

// So many bytes of a string are written between two looks at the room in the buffer.
constexpr size_t kPiece = 256;

// How a byte is written: "\\u0000" is the longest.
struct Escape {
    char text[7];
    uint8_t size;
};
constexpr size_t kLongestEscape = 6;

// What follows the backslash, or NUL for a byte that stands for itself.
constexpr char Letter(size_t byte) {
    switch (byte) {
        case '\b':
            return 'b';
        case '\f':
            return 'f';
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        case '\t':
            return 't';
        case '"':
        case '\\':
        case '/':
            return static_cast<char>(byte);
        default:
            return byte < 32 ? 'u' : '\0';
    }
}

// No byte below 32 keeps its value in "\\u0000": the zeros are part of the format.
constexpr std::array<Escape, 256> Escapes() {
    std::array<Escape, 256> escapes{};
    for (size_t byte = 0; byte < escapes.size(); ++byte) {
        const char letter = Letter(byte);
        escapes[byte] = letter == '\0'  ? Escape{{static_cast<char>(byte)}, 1}
                        : letter == 'u' ? Escape{{'\\', 'u', '0', '0', '0', '0'}, kLongestEscape}
                                        : Escape{{'\\', letter}, 2};
    }
    return escapes;
}

constexpr std::array<Escape, 256> kEscapes = Escapes();

constexpr uint64_t kOnes = 0x0101010101010101U;
constexpr uint64_t kHighBits = 0x8080808080808080U;

// Not 0 if one of the eight bytes is 0.
uint64_t ZeroBytes(uint64_t word) {
    return (word - kOnes) & ~word & kHighBits;
}

// True if none of the eight bytes needs an escape.
bool ArePlain(uint64_t word) {
    const uint64_t below32 = (word - kOnes * 32) & ~word & kHighBits;
    return (below32 | ZeroBytes(word ^ (kOnes * '"')) | ZeroBytes(word ^ (kOnes * '\\')) |
            ZeroBytes(word ^ (kOnes * '/'))) == 0;
}

// Copies a whole entry, whatever its size: which bytes need an escape is hard to foresee for a
// processor, and what is too much is overwritten.
char* EscapeByte(char c, char* to) {
    const Escape& escape = kEscapes[static_cast<unsigned char>(c)];
    memcpy(to, &escape, sizeof(escape));
    return to + escape.size;
}

// Returns the end of what it wrote.
char* EscapeText(const char* at, const char* end, char* to) {
    while (at != end) {
        const auto left = static_cast<size_t>(end - at);
        uint64_t word = 0;
        if (left >= sizeof(word)) {
            memcpy(&word, at, sizeof(word));
            if (ArePlain(word)) {
                memcpy(to, &word, sizeof(word));
                at += sizeof(word);
                to += sizeof(word);
                continue;
            }
        }
        for (const char* stop = at + std::min(left, sizeof(word)); at != stop; ++at) {
            to = EscapeByte(*at, to);
        }
    }
    return to;
}

}  // namespace

void TextWriter::WriteWord(const char* word, size_t size) {
    memcpy(Room(size), word, size);
    m_end += size;
}

void TextWriter::WriteNumber(double number) {
    m_end = FormatNumber(number, Room(kNumberRoom));
}

void TextWriter::WriteQuoted(const std::string& text) {
    WriteChar('"');
    for (size_t at = 0; at < text.size(); at += kPiece) {
        const char* begin = text.data() + at;
        const size_t size = std::min(kPiece, text.size() - at);
        m_end = EscapeText(begin, begin + size, Room(size * kLongestEscape + sizeof(Escape)));
    }
    WriteChar('"');
}

void TextWriter::AddBlock() {
    const auto size = static_cast<size_t>(m_end - m_begin);
    (m_blocks.empty() ? m_firstSize : m_blocks.back().size) = size;
    m_blocks.push_back({std::unique_ptr<char[]>(new char[kBlock]), 0});
    m_begin = m_blocks.back().text.get();
    m_end = m_begin;
    m_limit = m_begin + kBlock;
}

std::string TextWriter::Text() const {
    const auto last = static_cast<size_t>(m_end - m_begin);
    if (m_blocks.empty()) {
        return std::string(m_first, last);
    }
    size_t size = m_firstSize + last;
    for (const Block& block : m_blocks) {
        size += block.size;
    }
    std::string text;
    text.reserve(size);
    text.append(m_first, m_firstSize);
    for (const Block& block : m_blocks) {
        text.append(block.text.get(), &block == &m_blocks.back() ? last : block.size);
    }
    return text;
}

}  // namespace kpl::json
