#ifndef KPL_JSON_JSONVALUE_H_
#define KPL_JSON_JSONVALUE_H_

#include <map>
#include <string>
#include <vector>

#include "kpl/Export.h"

class JSONValue;

namespace kpl::json {
class ChildDeleter;
class TreeBuilder;
}  // namespace kpl::json

// What a value is; the numbers are fixed.
enum class JSONType { Null = 0, String = 1, Bool = 2, Number = 3, Array = 4, Object = 5 };

// Elements in their order; JSONValue says who owns them.
using JSONArray = std::vector<JSONValue*>;

// Ordered by key, byte by byte; an object is written in that order.
using JSONObject = std::map<std::string, JSONValue*>;

// One node of a tree of JSON values. It cannot be changed once it is made, so any number of threads
// may read it at a time; one thread deletes it.
//
// A value owns its children: delete the root and nothing else. The values below a parsed root share
// the root's memory and can neither be deleted nor given to another value.
//
// Deleting, writing and parsing use the same small piece of stack for every depth of the tree.
class KPL_EXPORT JSONValue {
public:
    // A null.
    JSONValue() : m_type(JSONType::Null), m_holder(Holder::None), m_number(0) {}

    // A string: a copy of the bytes. A null pointer gives the empty string.
    JSONValue(const char* text);
    JSONValue(const std::string& text);

    // A true or false; a number.
    JSONValue(bool value) : m_type(JSONType::Bool), m_holder(Holder::None), m_bool(value) {}
    JSONValue(double value) : m_type(JSONType::Number), m_holder(Holder::None), m_number(value) {}
    JSONValue(int value) : JSONValue(static_cast<double>(value)) {}

    // Copies the pointers and owns the children from then on: each of them comes from `new` or from
    // a parser, and has no other owner. A null pointer is allowed and is written as "null".
    JSONValue(const JSONArray& elements);
    JSONValue(const JSONObject& members);

    ~JSONValue();
    JSONValue(const JSONValue&) = delete;
    JSONValue& operator=(const JSONValue&) = delete;

    // Any thread, like everything below.
    JSONType getType() const { return m_type; }
    bool IsNull() const { return m_type == JSONType::Null; }
    bool IsString() const { return m_type == JSONType::String; }
    bool IsBool() const { return m_type == JSONType::Bool; }
    bool IsNumber() const { return m_type == JSONType::Number; }
    bool IsArray() const { return m_type == JSONType::Array; }
    bool IsObject() const { return m_type == JSONType::Object; }

    // What the value holds. On a value of another type: the empty string or container, false, 0.
    // References live as long as the value.
    const std::string& AsString() const;
    bool AsBool() const { return IsBool() && m_bool; }
    double AsNumber() const { return IsNumber() ? m_number : 0; }
    const JSONArray& AsArray() const;
    const JSONObject& AsObject() const;

    // Parses one value, and not the white space before it, and moves the cursor behind it. Returns
    // a new tree that the caller deletes, or null on failure; the cursor then stands where reading
    // ended. The text ends with a NUL.
    static JSONValue* Parse(const char** cursor);

    // The value as compact text: no white space, members in the order of their keys, numbers with
    // six significant digits whatever the locale. NaN and infinities are written as "null".
    std::string Stringify() const;

    // The text as a quoted JSON string. Bytes below 32 without an escape of their own are all
    // written as "\u0000"; bytes of 128 and above are written as they are.
    static std::string StringifyString(const std::string& text);

private:
    friend class kpl::json::ChildDeleter;
    friend class kpl::json::TreeBuilder;

    // Who frees what the value points to.
    enum class Holder : unsigned char {
        None,  // nobody: it holds no pointer, or lies inside a parsed tree
        Self,  // the value: one string or container on the heap
        Tree,  // the value, which is the root of a parsed tree: the tree's blocks
    };

    void FreeOwn();

    JSONType m_type;
    Holder m_holder;
    union {
        std::string* m_string;
        bool m_bool;
        double m_number;
        JSONArray* m_array;
        JSONObject* m_object;
        JSONValue* m_parent;  // of a container that is still being parsed
    };
};

#endif  // KPL_JSON_JSONVALUE_H_
