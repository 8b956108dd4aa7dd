#include "kpl/json/JSONValue.h"

#include "json/ChildDeleter.h"
#include "json/ScalarParser.h"
#include "json/TextWriter.h"
#include "json/TreeBuilder.h"
#include "json/TreeParser.h"
#include "json/TreeWriter.h"

namespace {

// Makes the value of a text that is no container.
struct HeapMaker {
    static JSONValue* AddNull() { return new JSONValue; }
    static JSONValue* AddBool(bool value) { return new JSONValue(value); }
    static JSONValue* AddNumber(double value) { return new JSONValue(value); }
    static JSONValue* AddString(const char* begin, const char* end) {
        return new JSONValue(std::string(begin, end));
    }
};

// Never destroyed: a value may still be read while the process ends.
template <typename T>
const T& Empty() {
    static const T* const empty = new T;
    return *empty;
}

}  // namespace

JSONValue::JSONValue(const char* text) : JSONValue(std::string(text != nullptr ? text : "")) {}

JSONValue::JSONValue(const std::string& text)
    : m_type(JSONType::String), m_holder(Holder::Self), m_string(new std::string(text)) {}

JSONValue::JSONValue(const JSONArray& elements)
    : m_type(JSONType::Array), m_holder(Holder::Self), m_array(new JSONArray(elements)) {}

JSONValue::JSONValue(const JSONObject& members)
    : m_type(JSONType::Object), m_holder(Holder::Self), m_object(new JSONObject(members)) {}

JSONValue::~JSONValue() {
    if (m_holder == Holder::Tree) {
        kpl::json::TreeBuilder::Free(*this);
    } else if (m_holder == Holder::Self) {
        FreeOwn();
    }
}

// Children that hold others are emptied first, wherever they are: no destructor calls another one
// of a value with children.
void JSONValue::FreeOwn() {
    if (IsString()) {
        delete m_string;
        return;
    }
    kpl::json::ChildDeleter::DeleteChildren(this);
    if (IsArray()) {
        delete m_array;
    } else {
        delete m_object;
    }
}

const std::string& JSONValue::AsString() const {
    return IsString() ? *m_string : Empty<std::string>();
}

const JSONArray& JSONValue::AsArray() const {
    return IsArray() ? *m_array : Empty<JSONArray>();
}

const JSONObject& JSONValue::AsObject() const {
    return IsObject() ? *m_object : Empty<JSONObject>();
}

JSONValue* JSONValue::Parse(const char** cursor) {
    if (**cursor == '[' || **cursor == '{') {
        kpl::json::TreeParser parser(*cursor);
        JSONValue* root = parser.Parse();
        *cursor = parser.At();
        return root;
    }
    std::string unescaped;
    HeapMaker maker;
    return kpl::json::ParseScalar(cursor, &unescaped, maker);
}

std::string JSONValue::Stringify() const {
    return kpl::json::TreeWriter().Write(*this);
}

std::string JSONValue::StringifyString(const std::string& text) {
    kpl::json::TextWriter writer;
    writer.WriteQuoted(text);
    return writer.Text();
}
