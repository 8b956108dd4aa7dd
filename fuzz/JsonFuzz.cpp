// Parses any bytes as JSON text. What can be parsed is written, parsed again and compared, as far
// as the format carries it: six digits of a number, and of the bytes below 32 only those with an
// escape of their own.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kpl/json/JSON.h"

namespace {

using Value = std::unique_ptr<JSONValue>;

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

// What a string is after it was written and read again.
std::string Carried(std::string text) {
    for (char& c : text) {
        const bool known = c == '\b' || c == '\f' || c == '\n' || c == '\r' || c == '\t';
        c = c >= 0 && c < 32 && !known ? '\0' : c;
    }
    return text;
}

// Numbers below this are rounded more coarsely at every step of their exponent.
bool HasAllBits(double number) {
    return number == 0 || std::fabs(number) > 1e-300;
}

void CompareNumbers(double before, const JSONValue& after) {
    if (!std::isfinite(before)) {
        Require(after.IsNull());
        return;
    }
    Require(after.IsNumber());
    const double again = after.AsNumber();
    Require(std::signbit(again) == std::signbit(before));
    if (HasAllBits(before)) {
        Require(std::fabs(again - before) <= std::fabs(before) * 5.1e-6);
        Require(JSONValue(again).Stringify() == JSONValue(before).Stringify());
    }
    if (std::fabs(before) < 1e6 && before == std::floor(before)) {
        Require(again == before);
    }
}

using Pairs = std::vector<std::pair<const JSONValue*, const JSONValue*>>;

void CompareArrays(const JSONArray& before, const JSONArray& after, Pairs* pairs) {
    Require(before.size() == after.size());
    for (size_t i = 0; i < before.size(); ++i) {
        pairs->push_back({before[i], after[i]});
    }
}

// Two keys may have become one; then the last of them, in the order of writing, is left.
void CompareObjects(const JSONObject& before, const JSONObject& after, Pairs* pairs) {
    std::map<std::string, const JSONValue*> expected;
    for (const auto& member : before) {
        expected[Carried(member.first)] = member.second;
    }
    Require(expected.size() == after.size());
    auto at = after.begin();
    for (const auto& member : expected) {
        Require(at->first == member.first);
        pairs->push_back({member.second, at->second});
        ++at;
    }
}

void CompareTrees(const JSONValue& before, const JSONValue& after) {
    Pairs pairs{{&before, &after}};
    while (!pairs.empty()) {
        const JSONValue& one = *pairs.back().first;
        const JSONValue& other = *pairs.back().second;
        pairs.pop_back();
        if (one.IsNumber()) {
            CompareNumbers(one.AsNumber(), other);
            continue;
        }
        Require(one.getType() == other.getType());
        Require(one.AsBool() == other.AsBool());
        Require(Carried(one.AsString()) == other.AsString());
        CompareArrays(one.AsArray(), other.AsArray(), &pairs);
        CompareObjects(one.AsObject(), other.AsObject(), &pairs);
    }
}

// The scanners and the parser of single values, over the whole text: each moves on or stands still,
// and none passes the end.
void Scan(const std::string& text) {
    const char* const end = text.c_str() + text.size();
    const char* cursor = text.c_str();
    std::string out;
    while (cursor != end) {
        const char* const before = cursor;
        const Value value(JSONValue::Parse(&cursor));
        JSON::SkipWhitespace(&cursor);
        JSON::ExtractString(&cursor, out);
        Require(JSON::ParseInt(&cursor) >= 0 && JSON::ParseDecimal(&cursor) < 1.000001);
        Require(cursor >= before && cursor <= end);
        cursor += cursor == before ? 1 : 0;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Ends at its first NUL, and its memory just behind that.
    const std::string text(data, std::find(data, data + size, 0));
    const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
    std::copy_n(text.c_str(), text.size() + 1, exact.get());
    Scan(text);
    const Value value(JSON::Parse(exact.get()));
    if (value == nullptr) {
        return 0;
    }
    const std::string written = JSON::Stringify(value.get());
    const Value again(JSON::Parse(written.c_str()));
    Require(again != nullptr);
    CompareTrees(*value, *again);
    return 0;
}
