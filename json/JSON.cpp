#include "kpl/json/JSON.h"

#include "json/NumberScanner.h"
#include "json/StringScanner.h"
#include "json/WhiteSpace.h"

JSONValue* JSON::Parse(const char* text) {
    if (text == nullptr || !SkipWhitespace(&text)) {
        return nullptr;
    }
    JSONValue* value = JSONValue::Parse(&text);
    if (value != nullptr && SkipWhitespace(&text)) {
        delete value;
        return nullptr;
    }
    return value;
}

std::string JSON::Stringify(const JSONValue* value) {
    return value != nullptr ? value->Stringify() : std::string();
}

bool JSON::SkipWhitespace(const char** cursor) {
    *cursor = kpl::json::SkipSpace(*cursor);
    return **cursor != '\0';
}

bool JSON::ExtractString(const char** cursor, std::string& out) {
    out.clear();
    return kpl::json::ScanString(cursor, &out);
}

double JSON::ParseInt(const char** cursor) {
    return kpl::json::ScanInt(cursor);
}

double JSON::ParseDecimal(const char** cursor) {
    return kpl::json::ScanDecimal(cursor);
}
