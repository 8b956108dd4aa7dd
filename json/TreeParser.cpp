#include "json/TreeParser.h"

#include <string>

#include "json/ScalarParser.h"
#include "json/WhiteSpace.h"

namespace kpl::json {

JSONValue* TreeParser::Parse() {
    return ParseContents() ? m_tree.Finish() : nullptr;
}

bool TreeParser::ParseContents() {
    bool more = EnterContainer();
    while (more) {
        if (!ParseElement()) {
            return false;
        }
        more = m_tree.Open() != nullptr;
    }
    return true;
}

// One element of the open container, from behind the bracket or comma before it to behind the comma
// after it, or to behind the last of the containers that end with it. An element that is a
// container is only entered.
bool TreeParser::ParseElement() {
    if (m_inObject && !ParseKey()) {
        return false;
    }
    m_at = SkipSpace(m_at);
    if (*m_at == '{' || *m_at == '[') {
        if (EnterContainer()) {
            return true;
        }
    } else {
        JSONValue* scalar = ParseScalar(&m_at, &m_unescaped, m_tree);
        if (scalar == nullptr) {
            return false;
        }
        Put(scalar);
    }
    return EndElement();
}

// A key and its colon.
bool TreeParser::ParseKey() {
    m_at = SkipSpace(m_at);
    if (*m_at == '\0') {
        return false;
    }
    ++m_at;  // the opening quotation mark, or whatever stands in its place: this reader does not
             // care
    const char* begin = nullptr;
    const char* end = nullptr;
    if (!ScanText(&m_at, &m_unescaped, &begin, &end)) {
        return false;
    }
    m_at = SkipSpace(m_at);
    if (*m_at != ':') {
        return false;
    }
    ++m_at;
    // The value of an earlier member with this key is forgotten; it lies in the tree to its end.
    m_slot = &m_tree.OpenMembers().try_emplace(std::string(begin, end)).first->second;
    return true;
}

// Opens the container at the cursor and returns true; an empty one is closed again, with false.
bool TreeParser::EnterContainer() {
    const bool isObject = *m_at == '{';
    const size_t firstElement = m_elements.size() + (m_inObject ? 0 : 1);
    Put(isObject ? m_tree.OpenObject() : m_tree.OpenArray(firstElement));
    m_inObject = isObject;
    m_at = SkipSpace(m_at + 1);
    if (!AtClosingBracket()) {
        return true;
    }
    LeaveContainer();
    return false;
}

// Behind an element stands a comma, or the end of its container, which is an element that ends,
// too.
bool TreeParser::EndElement() {
    while (m_tree.Open() != nullptr) {
        m_at = SkipSpace(m_at);
        if (*m_at == ',') {
            ++m_at;
            return true;
        }
        if (!AtClosingBracket()) {
            return false;
        }
        LeaveContainer();
    }
    return true;
}

void TreeParser::LeaveContainer() {
    ++m_at;
    if (m_inObject) {
        m_tree.CloseObject();
    } else {
        m_tree.CloseArray(&m_elements);
    }
    m_inObject = m_tree.Open() != nullptr && m_tree.Open()->IsObject();
}

void TreeParser::Put(JSONValue* value) {
    if (m_inObject) {
        *m_slot = value;
    } else {
        m_elements.push_back(value);
    }
}

}  // namespace kpl::json
