#ifndef KPL_JSON_JSON_H_
#define KPL_JSON_JSON_H_

#include <string>

#include "kpl/Export.h"
#include "kpl/json/JSONValue.h"

// Reads JSON text into a tree of values and writes a tree back. Text is bytes; there is no Unicode
// processing. What is read more loosely, more strictly or with loss compared with RFC 8259 is
// listed in docs/json.md. Any thread.
class KPL_EXPORT JSON {
public:
    JSON() = delete;

    // Parses a text that holds one value and white space around it, up to its NUL. Returns a new
    // tree that the caller deletes, or null on failure; a null pointer is a failure.
    static JSONValue* Parse(const char* text);

    // The value as compact text; the empty string for a null pointer.
    static std::string Stringify(const JSONValue* value);

    // The parser's scanners. Each moves the cursor over what it reads and never past the NUL.

    // Skips spaces, tabs, carriage returns and line feeds. Returns false at the end of the text.
    static bool SkipWhitespace(const char** cursor);

    // Reads a string whose opening quotation mark is already behind the cursor, up to and with the
    // closing one. Returns false on a string that is not well formed; `out` and the cursor are then
    // as far as reading came.
    static bool ExtractString(const char** cursor, std::string& out);

    // Reads decimal digits as a whole number; 0 when there is none.
    static double ParseInt(const char** cursor);

    // Reads decimal digits as those behind a decimal point; 0 when there is none. The digits are
    // summed one by one, so that the result may differ in its last bits from the nearest double.
    static double ParseDecimal(const char** cursor);
};

#endif  // KPL_JSON_JSON_H_
