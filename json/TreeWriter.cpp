#include "json/TreeWriter.h"

namespace kpl::json {

std::string TreeWriter::Write(const JSONValue& root) {
    const JSONValue* value = &root;
    do {
        Begin(value);
    } while (Next(&value));
    return m_text.Text();
}

// Writes a scalar, or opens a container.
void TreeWriter::Begin(const JSONValue* value) {
    switch (value != nullptr ? value->getType() : JSONType::Null) {
        case JSONType::Null:
            m_text.WriteWord("null", 4);
            break;
        case JSONType::String:
            m_text.WriteQuoted(value->AsString());
            break;
        case JSONType::Bool:
            value->AsBool() ? m_text.WriteWord("true", 4) : m_text.WriteWord("false", 5);
            break;
        case JSONType::Number:
            m_text.WriteNumber(value->AsNumber());
            break;
        case JSONType::Array:
            m_text.WriteChar('[');
            m_open.push_back(value);
            m_elements.push_back(value->AsArray().data());
            break;
        case JSONType::Object:
            m_text.WriteChar('{');
            m_open.push_back(value);
            m_members.push_back(value->AsObject().begin());
            break;
    }
}

// The value to write next, what stands before it being written; closes the containers that end
// here. False at the end of the tree.
bool TreeWriter::Next(const JSONValue** child) {
    for (; !m_open.empty(); m_open.pop_back()) {
        const JSONValue& container = *m_open.back();
        if (container.IsArray() ? NextElement(container.AsArray(), child)
                                : NextMember(container.AsObject(), child)) {
            return true;
        }
    }
    return false;
}

bool TreeWriter::NextElement(const JSONArray& elements, const JSONValue** child) {
    const JSONValue* const*& next = m_elements.back();
    if (next == elements.data() + elements.size()) {
        m_text.WriteChar(']');
        m_elements.pop_back();
        return false;
    }
    if (next != elements.data()) {
        m_text.WriteChar(',');
    }
    *child = *next++;
    return true;
}

bool TreeWriter::NextMember(const JSONObject& members, const JSONValue** child) {
    JSONObject::const_iterator& next = m_members.back();
    if (next == members.end()) {
        m_text.WriteChar('}');
        m_members.pop_back();
        return false;
    }
    if (next != members.begin()) {
        m_text.WriteChar(',');
    }
    m_text.WriteQuoted(next->first);
    m_text.WriteChar(':');
    *child = next->second;
    ++next;
    return true;
}

}  // namespace kpl::json
