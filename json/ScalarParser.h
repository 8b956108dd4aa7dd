#ifndef KPL_JSON_SCALARPARSER_H_
#define KPL_JSON_SCALARPARSER_H_

#include <string>

#include "json/NumberScanner.h"
#include "json/StringScanner.h"

namespace kpl::json {

// Reads the rest of a string, whose opening quotation mark is behind the cursor. `begin` and `end`
// lie in the text itself if it has no escape, else in `unescaped`. False when it is not well
// formed.
inline bool ScanText(const char** cursor, std::string* unescaped, const char** begin,
                     const char** end) {
    *begin = *cursor;
    *end = EndOfPlainText(*cursor);
    if (**end == '"') {
        *cursor = *end + 1;
        return true;
    }
    unescaped->clear();
    const bool wellFormed = ScanString(cursor, unescaped);
    *begin = unescaped->data();
    *end = *begin + unescaped->size();
    return wellFormed;
}

// Moves the cursor over `word`, which is in small letters, if the text goes on with it in letters
// of either size. Looks no further than the first byte that differs, so never past the text's NUL.
inline bool ScanLiteral(const char** cursor, const char* word) {
    const char* at = *cursor;
    for (; *word != '\0'; ++word, ++at) {
        if ((*at | 0x20) != *word) {
            return false;
        }
    }
    *cursor = at;
    return true;
}

template <typename Maker>
JSONValue* ParseLiteral(const char** cursor, Maker& maker) {
    if (ScanLiteral(cursor, "true")) {
        return maker.AddBool(true);
    }
    if (ScanLiteral(cursor, "false")) {
        return maker.AddBool(false);
    }
    return ScanLiteral(cursor, "null") ? maker.AddNull() : nullptr;
}

// Parses a value that is not a container and lets `maker` make it. Null when it is not well formed.
template <typename Maker>
JSONValue* ParseScalar(const char** cursor, std::string* unescaped, Maker& maker) {
    if (**cursor == '"') {
        ++*cursor;
        const char* begin = nullptr;
        const char* end = nullptr;
        return ScanText(cursor, unescaped, &begin, &end) ? maker.AddString(begin, end) : nullptr;
    }
    if (**cursor == '-' || IsDigit(**cursor)) {
        double number = 0;
        return ScanNumber(cursor, &number) ? maker.AddNumber(number) : nullptr;
    }
    return ParseLiteral(cursor, maker);
}

}  // namespace kpl::json

#endif  // KPL_JSON_SCALARPARSER_H_
