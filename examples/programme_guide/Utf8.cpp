#include "Utf8.h"

#include <stddef.h>

namespace guide {

namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;

struct Range {
    char32_t first;
    char32_t last;
};

// The blocks that occur in real texts, as the terminals draw them.
constexpr Range kZeroWidth[] = {{0x0300, 0x036F}, {0x200B, 0x200F}, {0x20D0, 0x20FF},
                                {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};
constexpr Range kWide[] = {{0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0x4DBF},
                           {0x4E00, 0xA4CF},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},
                           {0xFE30, 0xFE4F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},
                           {0x1F300, 0x1F64F}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};

template <size_t N>
bool IsIn(const Range (&ranges)[N], char32_t character) {
    for (const Range& range : ranges) {
        if (character >= range.first && character <= range.last) {
            return true;
        }
    }
    return false;
}

int Width(char32_t character) {
    if (IsIn(kZeroWidth, character)) {
        return 0;
    }
    return IsIn(kWide, character) ? 2 : 1;
}

// How many bytes the character takes that begins with `lead`; 0 if none does.
size_t Length(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead < 0xE0) {
        return 2;
    }
    if (lead >= 0xE0 && lead < 0xF0) {
        return 3;
    }
    return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

// False for what must not be written in `length` bytes, or not at all.
bool IsAllowed(char32_t character, size_t length) {
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    return character >= kLeast[length] && character <= 0x10FFFF && !isSurrogate;
}

// The character at `*pos`, which moves behind it: kInvalid, and one byte on, if it is none.
char32_t Next(const std::string& text, size_t* pos) {
    const size_t begin = (*pos)++;
    const auto lead = static_cast<unsigned char>(text[begin]);
    const size_t length = Length(lead);
    if (length == 0 || length > text.size() - begin) {
        return kInvalid;
    }
    char32_t character = length == 1 ? lead : lead & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[begin + i]);
        if ((byte & 0xC0) != 0x80) {
            return kInvalid;
        }
        character = (character << 6) | (byte & 0x3Fu);
    }
    if (!IsAllowed(character, length)) {
        return kInvalid;
    }
    *pos = begin + length;
    return character;
}

char32_t Fold(char32_t character) {
    const auto isBetween = [character](char32_t first, char32_t last) {
        return character >= first && character <= last;
    };
    if (isBetween('A', 'Z') || (isBetween(0xC0, 0xDE) && character != 0xD7) ||
        isBetween(0x391, 0x3A9) || isBetween(0x410, 0x42F)) {
        return character + 0x20;
    }
    if (isBetween(0x400, 0x40F)) {
        return character + 0x50;
    }
    // In these blocks a small letter follows its capital; where the pairs begin changes.
    if (isBetween(0x100, 0x137) || isBetween(0x14A, 0x177) || isBetween(0x460, 0x481)) {
        return character | 1;
    }
    if (isBetween(0x139, 0x148) || isBetween(0x179, 0x17E)) {
        return character + (character & 1);
    }
    return character;
}

// Of the one or two bytes that every foldable letter takes.
void AppendShort(std::string* text, char32_t character) {
    if (character < 0x80) {
        text->push_back(static_cast<char>(character));
    } else {
        text->push_back(static_cast<char>(0xC0 | (character >> 6)));
        text->push_back(static_cast<char>(0x80 | (character & 0x3F)));
    }
}

}  // namespace

bool IsUtf8(const std::string& text) {
    for (size_t pos = 0; pos < text.size();) {
        if (Next(text, &pos) == kInvalid) {
            return false;
        }
    }
    return true;
}

int DisplayWidth(const std::string& text) {
    int width = 0;
    for (size_t pos = 0; pos < text.size();) {
        width += Width(Next(text, &pos));
    }
    return width;
}

std::string CutToWidth(const std::string& text, int width) {
    if (width < 1 || DisplayWidth(text) <= width) {
        return width < 1 ? std::string() : text;
    }
    int used = 1;  // the ellipsis
    size_t end = 0;
    for (size_t pos = 0; pos < text.size(); end = pos) {
        used += Width(Next(text, &pos));
        if (used > width) {
            break;
        }
    }
    return text.substr(0, end) + "…";
}

std::string FoldCase(const std::string& text) {
    std::string folded;
    for (size_t pos = 0; pos < text.size();) {
        const size_t begin = pos;
        const char32_t character = Next(text, &pos);
        const char32_t small = Fold(character);
        if (small == character) {
            folded.append(text, begin, pos - begin);
        } else {
            AppendShort(&folded, small);
        }
    }
    return folded;
}

}  // namespace guide
